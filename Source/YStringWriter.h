/// \file YStringWriter.h
/// A text writer that inserts into a caller's mutable string.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <memory>

#include "YTextWriter.h"

/// Inserts text into a mutable string at a movable position. The writer holds
/// a reference to the string (the caller keeps its own and reads the result
/// from it). The position starts at 0, so over a non-empty string the writer
/// writes in front of the existing text until seek() moves it.
///
/// Failures come from the string's insertion and leave both the string and
/// the position as they were: a null string or a value that is not a string
/// raises YInvalidArgumentException; a position beyond the string's length
/// (or negative, which reads as a huge index) raises YRangeException.
class YStringWriter : public YTextWriter {
 public:
  /// A writer over `string` at position 0. Nothing is checked.
  explicit YStringWriter(const YString& string);
  /// A new writer over `string`.
  static std::shared_ptr<YStringWriter> writerWithString(const YString& string);

  /// Stores `position`; nothing is checked or written.
  void seek(std::int64_t position) override;
  /// Inserts `string` at the position and advances it by the string's length.
  void write(const YString& string) override;
  /// write(string), then writeLine(); no line end if the first insertion fails.
  void writeLine(const YString& string) override;
  /// Inserts "\n" at the position and advances it by 1.
  void writeLine() override;
  /// Always fails with YInvalidArgumentException: only strings are inserted.
  void writeValue(const std::shared_ptr<YObject>& value) override;

  /// Inserts `pieces`, one after another, at the position and advances it,
  /// as one write() of their concatenation would, without making that
  /// string. The library's own writers use it when writing into exactly a
  /// YStringWriter.
  void writePieces(std::initializer_list<std::u16string_view> pieces);
  /// writePieces() of `name`, "=", `value` and a line end: the line nearly
  /// every option is written as.
  void writeOptionLine(std::u16string_view name, std::u16string_view value);

  /// The target string (the same object the writer was made with).
  const YString& string() const noexcept { return _string; }
  /// The insertion position in UTF-16 code units.
  std::int64_t position() const noexcept { return _position; }

 private:
  // Whether a write appends to the string (rather than inserting or failing).
  bool appendsAtEnd() const noexcept {
    return _position == static_cast<std::int64_t>(_string.length()) && _string.isMutable();
  }
  YString _string;
  std::int64_t _position = 0;
};
