// Text encodings: conversion between strings and bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

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
/// (when not null) says which position failed.
std::optional<std::string> YEncodeString(const YString& string, YStringEncoding encoding,
                                         std::shared_ptr<YError>* error);
/// Converts `bytes` in `encoding` to a string; invalid bytes fail. A leading
/// byte-order mark of the encoding is dropped.
YString YDecodeBytes(std::string_view bytes, YStringEncoding encoding, std::shared_ptr<YError>* error);
/// Decodes `bytes`, detecting the encoding: a byte-order mark first, then
/// UTF-16 without a mark (mostly ASCII text: NUL bytes at every other
/// position), then strict UTF-8, then a statistical guess above a confidence floor.
YString YDecodeBytesDetectingEncoding(std::string_view bytes, YStringEncoding* usedEncoding,
                                      std::shared_ptr<YError>* error);

/// Reads a whole file as bytes; nothing and `*error` on failure.
std::optional<std::string> YReadFile(const YString& path, std::shared_ptr<YError>* error);
/// Writes `bytes` to `path`, atomically when asked (see
/// YString::writeToFileAtomicallyEncodingError). A symbolic link is
/// followed: the file it points to is replaced, the link stays.
bool YWriteFile(const YString& path, std::string_view bytes, bool atomically, std::shared_ptr<YError>* error);
/// The same with the bytes handed over piece by piece: `next` returns the
/// next piece, and an empty one at the end. The pieces stay valid until the
/// next call. An exception from `next` removes the temporary file (when
/// writing atomically) and passes on.
bool YWriteFileChunks(const YString& path, const std::function<std::string_view()>& next, bool atomically,
                      std::shared_ptr<YError>* error);

namespace ydetail {
/// Appends `units` to `out` as UTF-8; a lone surrogate becomes U+FFFD.
void appendUTF8(std::u16string_view units, std::string& out);
}  // namespace ydetail
