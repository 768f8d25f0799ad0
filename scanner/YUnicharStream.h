/// \file YUnicharStream.h
/// A stream of UTF-16 code units over a buffer.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "YObject.h"
#include "YStringBuffer.h"

/// Reads the code units of a YStringBuffer, with a current position that
/// starts at 0. The stream keeps its buffer alive.
class YUnicharStream : public YObject {
 public:
  /// A stream at the start of `buffer`. A null buffer throws YInvalidArgumentException.
  explicit YUnicharStream(std::shared_ptr<YStringBuffer> buffer);

  /// A new shared stream at the start of `buffer`. Precondition: "buffer != nil"
  /// (null is returned when the handler returns).
  static std::shared_ptr<YUnicharStream> streamWithBuffer(std::shared_ptr<YStringBuffer> buffer);

  /// The buffer read (shared).
  const std::shared_ptr<YStringBuffer>& buffer() const noexcept { return _buffer; }
  /// All code units of the buffer.
  std::u16string_view characters() const noexcept { return _text; }
  /// The number of code units in the buffer.
  std::int32_t length() const noexcept { return static_cast<std::int32_t>(_text.size()); }

  /// The current position, 0 <= position() <= length().
  std::int32_t position() const noexcept { return _position; }
  /// Moves the current position; outside [0, length()] throws YRangeException.
  void setPosition(std::int32_t position);
  /// Whether the position is at the end (position() == length()).
  bool isAtEnd() const noexcept { return static_cast<std::size_t>(_position) >= _text.size(); }
  /// The code unit at the current position; YRangeException at the end.
  char16_t currentCharacter() const;

 private:
  std::shared_ptr<YStringBuffer> _buffer;
  std::u16string_view _text;
  std::int32_t _position = 0;
};
