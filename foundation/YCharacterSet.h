/// \file YCharacterSet.h
/// Sets of UTF-16 code units.
#pragma once

#include <bitset>
#include <memory>

#include "YString.h"

/// An immutable set of UTF-16 code units with a constant-time membership test.
/// A handle: copies share the set. A default handle is null (absent) and
/// contains nothing.
class YCharacterSet {
 public:
  YCharacterSet() noexcept = default;

  /// Unicode space separators (category Zs) and U+0009 (tab). No line ends.
  static YCharacterSet whitespaceCharacterSet();
  /// The whitespace set plus U+000A–U+000D, U+0085, U+2028 and U+2029.
  static YCharacterSet whitespaceAndNewlineCharacterSet();
  /// U+000A–U+000D, U+0085, U+2028 and U+2029.
  static YCharacterSet newlineCharacterSet();
  /// The code units of `string` (empty for a null string).
  static YCharacterSet characterSetWithCharactersInString(const YString& string);
  /// The code units first .. first + length - 1; a range reaching past U+FFFF
  /// stops at U+FFFF, whatever its length.
  static YCharacterSet characterSetWithRange(char16_t first, std::size_t length);

  /// True for the null (absent) set, which contains nothing.
  bool isNull() const noexcept { return !_bits; }
  /// True when `character` is in the set; always false for a null set.
  bool characterIsMember(char16_t character) const noexcept { return _bits && _bits->test(character); }
  /// Every code unit not in this set (a null set inverts to all code units).
  YCharacterSet invertedSet() const;

 private:
  using Bits = std::bitset<65536>;
  explicit YCharacterSet(std::shared_ptr<const Bits> bits) noexcept : _bits(std::move(bits)) {}
  std::shared_ptr<const Bits> _bits;
};
