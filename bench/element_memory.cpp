// Resident bytes a loaded element costs, by kind: loads a text of N elements of
// one kind and prints the growth of resident memory divided by N, beside the
// text's own UTF-16 bytes per element. One kind per process, so that memory the
// pool keeps from an earlier kind does not hide the next one's cost.
//
// Usage: element_memory KIND [COUNT]
//   KIND: sections (empty sections), options (in one section), comments,
//         mixed (a section of 10 options with a comment, repeated)
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "YIniDocument+Extensions.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

namespace {

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// A text of about COUNT lines of one kind; empty for an unknown kind.
std::string makeText(const std::string& kind, std::size_t count) {
  std::string text;
  if (kind == "sections") {
    for (std::size_t i = 0; i < count; ++i) text += "[s" + std::to_string(i) + "]\n";
  } else if (kind == "options") {
    text = "[s]\n";
    for (std::size_t i = 0; i < count; ++i) text += "key" + std::to_string(i) + "=value" + std::to_string(i) + "\n";
  } else if (kind == "comments") {
    // A comment line is two elements: the comment and its line end.
    text = "[s]\n";
    for (std::size_t i = 0; i < count; ++i) text += "# comment " + std::to_string(i) + "\n";
  } else if (kind == "mixed") {
    for (std::size_t s = 0; s < count / 12; ++s) {
      text += "# section " + std::to_string(s) + "\n[section" + std::to_string(s) + "]\n";
      for (int i = 0; i < 10; ++i) text += "key" + std::to_string(i) + " = value " + std::to_string(s) + "\n";
    }
  }
  return text;
}

// Every element in the document, the document itself left out.
std::size_t elementCount(const YIniCompositeElement& composite) {
  auto elements = composite.elements();
  std::size_t count = elements->count();
  for (std::size_t i = 0; i < elements->count(); ++i)
    if (auto inner = std::dynamic_pointer_cast<YIniCompositeElement>(elements->objectAtIndex(i)))
      count += elementCount(*inner);
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: element_memory sections|options|comments|mixed [count]\n");
    return 2;
  }
  const std::string kind = argv[1];
  const std::size_t count = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1000000;
  std::string utf8 = makeText(kind, count);
  if (utf8.empty()) {
    std::fprintf(stderr, "unknown kind '%s'\n", kind.c_str());
    return 2;
  }
  const YString text = YString::fromUTF8(utf8);
  utf8 = std::string();
  auto factory = YIniStandardElementFactory::standardFactory();
  const std::size_t before = residentBytes();
  auto document = YIniDocument::documentFromStringFactory(text, factory);
  const std::size_t after = residentBytes();
  const std::size_t elements = elementCount(*document);
  const double perElement = static_cast<double>(after - before) / static_cast<double>(elements);
  const double textPerElement = static_cast<double>(text.length() * 2) / static_cast<double>(elements);
  std::printf("%-9s elements %9zu  resident growth per element %7.1f B  (the UTF-16 text, %5.1f B per element, "
              "was resident before)\n",
              kind.c_str(), elements, perElement, textPerElement);
  return document ? 0 : 1;
}
