// Helpers shared by the libFuzzer targets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "YFoundation.h"

namespace fuzzsupport {

/// The input as text: strict UTF-8 where the bytes are valid UTF-8, else
/// Latin-1. Latin-1 maps every byte to one character, so every input becomes
/// a text; it is fast and deterministic, which keeps the fuzzer on the reader
/// and the writers instead of on encoding detection.
inline YString decodeInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  YString text = YDecodeBytes(bytes, YUTF8StringEncoding, nullptr);
  if (text.isNull()) text = YDecodeBytes(bytes, YISOLatin1StringEncoding, nullptr);
  if (text.isNull()) text = YString(u"");
  return text;
}

/// Drops the reader's "Unrecognized text sequence" lines, which nearly every
/// input produces; any other log line still goes to standard error.
inline void quietLog() {
  YSetLogSink([](const YString& message) {
    static const YString prefix(u"Unrecognized text sequence");
    if (message.hasPrefix(prefix)) return;
    std::fprintf(stderr, "%s\n", message.UTF8String().c_str());
  });
}

/// Reports a broken invariant and aborts, so that libFuzzer records the input.
[[noreturn]] inline void fail(const char* what, const YString& detail = YString()) {
  std::fprintf(stderr, "FUZZ FAILURE: %s\n", what);
  if (!detail.isNull()) std::fprintf(stderr, "%s\n", detail.UTF8String().c_str());
  std::abort();
}

// Input bytes as UTF-16 text: each byte one code unit, except that 0xFF
// takes the two bytes after it as one unit, so any unit is reachable while
// the ASCII the rules look at stays dense.
inline std::u16string textFrom(const std::uint8_t* data, std::size_t size) {
  std::u16string text;
  text.reserve(size);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] != 0xFF) {
      text.push_back(static_cast<char16_t>(data[i]));
    } else if (i + 2 < size) {
      text.push_back(static_cast<char16_t>((data[i + 1] << 8) | data[i + 2]));
      i += 2;
    }
  }
  return text;
}

}  // namespace fuzzsupport
