// Random edits and a preserving save: the first byte sets how many edits and
// how many of the following bytes drive them; the rest is the INI text. What
// reads back must be the edited tree, and every untouched line must be kept
// (tests/corvane/PreservingProperty.h says exactly what is checked).
#include <exception>

#include "FuzzSupport.h"
#include "PreservingProperty.h"

using fuzzsupport::fail;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::quietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t choices = std::min<std::size_t>(size - 1, 1 + data[0] % 32);
  const std::uint8_t* script = data + 1;
  std::size_t next = 0;
  auto choose = [&](unsigned bound) -> unsigned {
    const unsigned byte = choices ? script[next++ % choices] : 0;
    return byte % bound;
  };
  const YString text = fuzzsupport::decodeInput(data + 1 + choices, size - 1 - choices);
  try {
    preservingproperty::Checker checker(text, choose);
    const auto outcome = checker.run(1 + data[0] / 32);
    if (!outcome.ok) fail("preserving save property", YString(outcome.failure));
  } catch (const std::exception& e) {
    fail("exception while loading, editing or saving", YString::stringWithFormat("%s", e.what()));
  }
  return 0;
}
