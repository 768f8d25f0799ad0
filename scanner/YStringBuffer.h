/// \file YStringBuffer.h
/// A buffer holding the code units of a string.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>

#include "YObject.h"
#include "YString.h"

/// The characters of one string, held for scanning. An immutable string is
/// shared, not copied; a mutable one is snapshotted (once), so later changes
/// to it cannot move the text under a scanner. A null string gives an empty
/// buffer that remembers it was made from null.
class YStringBuffer : public YObject {
 public:
  /// Longest text a buffer holds: positions are 32-bit signed.
  static constexpr std::size_t maximumLength = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());

  /// A buffer over `string` (may be null). A text longer than maximumLength
  /// code units throws YInvalidArgumentException.
  explicit YStringBuffer(const YString& string);

  /// A new shared buffer over `string`; see the constructor.
  static std::shared_ptr<YStringBuffer> bufferFromString(const YString& string);

  /// The string held (null when made from null).
  const YString& string() const noexcept { return _string; }
  /// Number of code units.
  std::int32_t length() const noexcept { return static_cast<std::int32_t>(_text.size()); }
  /// The code units, valid as long as the buffer lives.
  std::u16string_view characters() const noexcept { return _text; }

 private:
  YString _string;
  std::u16string_view _text;
};
