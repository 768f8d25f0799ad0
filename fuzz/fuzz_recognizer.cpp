// Reads arbitrary UTF-16 text both ways the INI reader can cut it into tokens,
// the line recogniser and the scanner's regular expressions alone, and checks
// that they agree: every token (class, range, subtokens), the elements, the
// loaded tree, line numbers, log lines, the written text and the preserving
// save's bytes (tests/corvane/ReaderPaths.h).
//
// The text is made from the bytes by fuzzsupport::textFrom: a byte below 0xFF
// is the code unit of the same value, and 0xFF takes the next two bytes as one
// big-endian unit, so that any code unit, lone surrogates included, is
// reachable while the ASCII the rules look at stays dense.
#include <string>

#include "FuzzSupport.h"
#include "ReaderPaths.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const YString text(fuzzsupport::textFrom(data, size));
  const std::string difference = readerpaths::compare(text);
  if (!difference.empty()) fuzzsupport::fail("the two ways of reading differ", YString(difference));
  return 0;
}
