// Loads the input as an INI text, writes it back, writes the same document a
// second time, then loads the written text and writes it once more.
//
// Writing one document twice must give the same text, and the second pass
// must never be longer than the first. The text is not a fixed point: a
// blank line after an option is dropped on each pass, "[ ]" is written as
// "[]" (which reads back as unrecognised text), and an option with an empty
// name is not written, so the second pass may only shrink.
//
// Two exceptions, both from names being written unescaped; each such line may
// add one line end to the second pass, nothing else may:
// - an option line such as "[k=a]k=v" (the option "[k" with the value
//   "a]k=v", read from "\t[k=a]k=v") reads back as the section "k=a" and the
//   option "k=v", and the new header gets a line end of its own;
// - a section whose name is empty is written "[]", and a comment that follows
//   it on that line at the end of the text ("[ ]#c=" is written "[]#c=")
//   reads back as an option line, which gets a line end.
//
// A quarter of the inputs are also loaded with a long comment line after
// them, long enough that the reader shares equal option names: every option
// must get the same name as without it.
#include <algorithm>
#include <exception>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"

using fuzzsupport::fail;

namespace {

// The number of lines of `document`, as written, that the reader takes for
// another kind of line: option lines that read as a section header ("[", at
// least one character, then a "]" on the same line), and the headers "[]".
std::size_t linesReadOtherwise(YIniDocument& document) {
  std::size_t count = 0;
  auto sections = document.sections();
  for (const auto& section : *sections) {
    if (section->name().length() == 0) ++count;
    auto options = section->options();
    for (const auto& option : *options) {
      if (option->name().isNull() || option->value().isNull()) continue;
      std::u16string line(option->name().view());
      line += u'=';
      line += option->value().view();
      line.resize(std::min(line.size(), line.find(u'\n')));
      if (!line.empty() && line[0] == u'[' && line.find(u']', 2) != std::u16string::npos) ++count;
    }
  }
  return count;
}

// The names of the options of `document`, in order, joined by NUL ("\0"
// marks an option without a name).
std::u16string optionNames(YIniDocument& document) {
  std::u16string names;
  auto sections = document.sections();
  for (const auto& section : *sections) {
    auto options = section->options();
    for (const auto& option : *options) {
      names += option->name().isNull() ? std::u16string_view(u"\\0") : option->name().view();
      names += u'\0';
    }
  }
  return names;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::quietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const YString input = fuzzsupport::decodeInput(data, size);
  auto factory = YIniStandardElementFactory::standardFactory();
  try {
    auto document = YIniDocument::documentFromStringFactory(input, factory);
    if (!document) fail("loading returned no document");
    const YString first = document->stringValue();
    const YString again = document->stringValue();
    if (first.isNull()) fail("stringValue returned null");
    if (!again.isEqualToString(first)) fail("writing the same document twice gave different texts", first);

    auto reloaded = YIniDocument::documentFromStringFactory(first, factory);
    if (!reloaded) fail("loading the written text returned no document");
    const YString second = reloaded->stringValue();
    if (second.length() > first.length() + linesReadOtherwise(*document))
      fail("the text grew from one pass to the next", first);

    if (size % 4 == 0) {  // a quarter of the inputs, as the long text costs time
      YString padded = YString::mutableStringWithString(input);
      padded.appendString(YString(u"\n#" + std::u16string(40000, u'x') + u"\n"));
      auto longer = YIniDocument::documentFromStringFactory(padded.copy(), factory);
      if (!longer || optionNames(*longer) != optionNames(*document))
        fail("a long text gave options other names than the short one", input);
    }
  } catch (const std::exception& e) {
    fail("exception while loading or writing", YString::stringWithFormat("%s", e.what()));
  }
  return 0;
}
