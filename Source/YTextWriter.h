/// \file YTextWriter.h
/// The interface of every text sink.
#pragma once

#include <cstdint>
#include <memory>

#include "YObject.h"
#include "YString.h"

/// A sink that INI text is pushed into, piece by piece. Holds no state of its
/// own; implementations decide where the text goes (YStringWriter inserts it
/// into a mutable string).
class YTextWriter : public YObject {
 public:
  /// Moves the insertion position to `position` (UTF-16 code units).
  virtual void seek(std::int64_t position) = 0;
  /// Writes `string`. A null string fails with YInvalidArgumentException.
  virtual void write(const YString& string) = 0;
  /// Writes `string`, then a line end.
  virtual void writeLine(const YString& string) = 0;
  /// Writes one line end (LF).
  virtual void writeLine() = 0;
  /// Writes a value handed over in place of a string. Only strings are text,
  /// so the default fails with YInvalidArgumentException before anything is
  /// written; a sink that can render objects may override it.
  virtual void writeValue(const std::shared_ptr<YObject>& value);
};
