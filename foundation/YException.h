/// \file YException.h
/// Exceptions raised by the foundation and the libraries built on it.
#pragma once

#include <exception>
#include <string>

#include "YString.h"

/// Base of every exception the libraries raise: a name (the kind of failure)
/// and a reason (what went wrong, for people). Thrown by value, caught by
/// reference.
class YException : public std::exception {
 public:
  /// An exception of kind `name` for `reason` (a null reason becomes "").
  YException(YString name, YString reason);
  ~YException() override;

  /// The kind of failure, e.g. "YInvalidArgumentException".
  const YString& name() const noexcept { return _name; }
  /// What went wrong; never null.
  const YString& reason() const noexcept { return _reason; }
  /// The reason in UTF-8.
  const char* what() const noexcept override { return _what.c_str(); }

 private:
  YString _name;
  YString _reason;
  std::string _what;
};

/// A broken precondition or invariant: what the default assertion handler throws.
class YInternalInconsistencyException : public YException {
 public:
  /// Named "YInternalInconsistencyException", for `reason`.
  explicit YInternalInconsistencyException(YString reason);
};

/// An argument the operation cannot take: an operation the object does not
/// implement, a null argument to an insertion, a value of the wrong kind, a
/// mutation of an immutable object.
class YInvalidArgumentException : public YException {
 public:
  /// Named "YInvalidArgumentException", for `reason`.
  explicit YInvalidArgumentException(YString reason);
};

/// An index or range outside the bounds of a string or list.
class YRangeException : public YException {
 public:
  /// Named "YRangeException", for `reason`.
  explicit YRangeException(YString reason);
};

/// A list changed while a guarded walk over it was in progress.
class YMutationDuringEnumerationException : public YException {
 public:
  /// Named "YMutationDuringEnumerationException", for `reason`.
  explicit YMutationDuringEnumerationException(YString reason);
};
