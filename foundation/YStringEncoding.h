/// \file YStringEncoding.h
/// Text encodings: conversion between strings and bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "YError.h"
#include "YString.h"

/// Encoding identifiers (the platform's numeric values).
enum : YStringEncoding {
  YASCIIStringEncoding = 1,
  YNEXTSTEPStringEncoding = 2,
  YJapaneseEUCStringEncoding = 3,
  YUTF8StringEncoding = 4,
  YISOLatin1StringEncoding = 5,
  YSymbolStringEncoding = 6,
  YNonLossyASCIIStringEncoding = 7,
  YShiftJISStringEncoding = 8,
  YISOLatin2StringEncoding = 9,
  YUnicodeStringEncoding = 10,  ///< UTF-16 with a byte-order mark (little-endian when written)
  YWindowsCP1251StringEncoding = 11,
  YWindowsCP1252StringEncoding = 12,
  YWindowsCP1253StringEncoding = 13,
  YWindowsCP1254StringEncoding = 14,
  YWindowsCP1250StringEncoding = 15,
  YISO2022JPStringEncoding = 21,
  YMacOSRomanStringEncoding = 30,
  YUTF16StringEncoding = YUnicodeStringEncoding,
  YUTF16BigEndianStringEncoding = 0x90000100,
  YUTF16LittleEndianStringEncoding = 0x94000100,
  YUTF32StringEncoding = 0x8c000100,  ///< UTF-32 with a byte-order mark (little-endian when written)
  YUTF32BigEndianStringEncoding = 0x98000100,
  YUTF32LittleEndianStringEncoding = 0x9c000100,
};

/// True when this build can convert to and from `encoding`.
bool YStringEncodingIsSupported(YStringEncoding encoding);
/// A short name for `encoding` ("UTF-8", "UTF-16LE", "windows-1252", …), or "unknown".
const char* YStringEncodingName(YStringEncoding encoding);
/// The encoding named `name` (case-insensitive; "utf-8", "utf8", "latin1", "utf-16le", …), or nothing.
std::optional<YStringEncoding> YStringEncodingFromName(std::string_view name);

/// Converts `string` to bytes in `encoding`. A character the encoding cannot
/// represent (or a lone surrogate) fails: nothing is returned and `*error`
/// (when not null) says so, with the position that failed for UTF-8, UTF-16
/// and UTF-32 (a legacy encoding's error names the encoding only).
std::optional<std::string> YEncodeString(const YString& string, YStringEncoding encoding,
                                         std::shared_ptr<YError>* error);
/// Converts `bytes` in `encoding` to a string; invalid bytes fail, except a
/// lone surrogate in UTF-16, which is kept as it is (such text still loads,
/// and the preserving save writes it back; encoding it again fails). A
/// leading byte-order mark of the encoding is dropped.
YString YDecodeBytes(std::string_view bytes, YStringEncoding encoding, std::shared_ptr<YError>* error);
/// Decodes `bytes`, detecting the encoding: a byte-order mark first, then
/// UTF-16 without a mark (mostly ASCII text: NUL bytes at every other
/// position), then UTF-8, then a statistical guess above the detector's base
/// confidence (UTF-16 or UTF-32 only for bytes holding NUL), else, for bytes
/// holding no NUL, ISO-8859-1, which reads every byte and writes it back.
/// Bytes that are valid UTF-8 but for invalid sequences numbering under 1% of
/// the bytes are read as UTF-8 (the rest being valid UTF-8, it is ASCII or
/// holds multi-byte sequences), each invalid sequence becoming U+FFFD (see
/// YDecodeUTF8Replacing): one stray byte does not make a UTF-8 file a legacy
/// one. `*usedEncoding` is then YUTF8StringEncoding. Behind a UTF-8
/// byte-order mark the bytes are read as UTF-8 whatever their share of
/// invalid sequences.
YString YDecodeBytesDetectingEncoding(std::string_view bytes, YStringEncoding* usedEncoding,
                                      std::shared_ptr<YError>* error);
/// Decodes `bytes` as UTF-8 (a leading byte-order mark is kept as U+FEFF),
/// turning each invalid sequence into one U+FFFD: a byte that starts no
/// sequence, or the longest start of a sequence that is cut short (the
/// maximal subpart, as the Unicode standard recommends; an overlong form or
/// a surrogate is cut short at its second byte). Never fails. When
/// `invalidOffsets` is not null it receives the byte offset of each invalid
/// sequence, in order.
YString YDecodeUTF8Replacing(std::string_view bytes, std::vector<std::size_t>* invalidOffsets);

namespace ydetail {
/// Appends `units` to `out` as UTF-8; a lone surrogate becomes U+FFFD.
void appendUTF8(std::u16string_view units, std::string& out);
/// The number of bytes appendUTF8() makes of `units`.
std::size_t utf8Length(std::u16string_view units) noexcept;
/// Writes `units` at `out` as appendUTF8() would, into room for
/// utf8Length(units) bytes; returns the end of what it wrote.
char* writeUTF8(std::u16string_view units, char* out) noexcept;
}  // namespace ydetail
