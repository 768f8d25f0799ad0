// Reads arbitrary UTF-16 text both ways the INI reader can cut it into tokens,
// the line recogniser and the scanner's regular expressions alone, and checks
// that they agree: every token (class, range, subtokens), the elements, the
// loaded tree, line numbers, log lines, the written text and the preserving
// save's bytes (tests/corvane/ReaderPaths.h).
//
// The text is made from the bytes as fuzz_scanner makes it: a byte below 0xFF
// is the code unit of the same value, and 0xFF takes the next two bytes as one
// big-endian unit, so that any code unit, lone surrogates included, is
// reachable while the ASCII the rules look at stays dense.
#include <string>

#include "FuzzSupport.h"
#include "ReaderPaths.h"

namespace {

std::u16string textFrom(const std::uint8_t* data, std::size_t size) {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const YString text(textFrom(data, size));
  const std::string difference = readerpaths::compare(text);
  if (!difference.empty()) fuzzsupport::fail("the two ways of reading differ", YString(difference));
  return 0;
}
