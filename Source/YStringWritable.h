/// \file YStringWritable.h
/// A writable that writes a fixed piece of text.
#pragma once

#include <memory>

#include "YTextWritable.h"

/// Writes the text it holds, exactly as it stands, without a line end.
///
/// It can also hold an object in place of the text (a queued comment element,
/// for instance); writing then hands that object to the writer's writeValue(),
/// which for a string writer fails with YInvalidArgumentException. The held
/// string or object is shared, not copied.
class YStringWritable : public YTextWritable {
 public:
  /// Holds `string`; null is accepted (writing it then fails in the writer).
  explicit YStringWritable(const YString& string);
  /// Holds `value` in place of a string; null is accepted and writes as a null string.
  explicit YStringWritable(std::shared_ptr<YObject> value);

  /// A new shared writable holding `string`.
  static std::shared_ptr<YStringWritable> writableWithString(const YString& string);
  /// A new shared writable holding `value` in place of a string.
  static std::shared_ptr<YStringWritable> writableWithValue(std::shared_ptr<YObject> value);

  /// The held string (null when an object is held instead).
  const YString& string() const noexcept { return _string; }
  /// The object held in place of a string, if any.
  const std::shared_ptr<YObject>& value() const noexcept { return _value; }

  /// Writes the held text with the writer's write(), or the held object with
  /// its writeValue(). A null writer is a failed precondition ("textWriter != nil").
  void write(const std::shared_ptr<YTextWriter>& textWriter) override;

 private:
  YString _string;
  std::shared_ptr<YObject> _value;
};
