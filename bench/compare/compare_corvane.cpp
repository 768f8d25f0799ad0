// Round trip through Corvane: load the file, set one option's value, write
// the whole text back. With "-" as the value nothing is edited (the
// reference for the output check).
#include <cstdio>
#include <cstring>

#include "YIniDocument+Extensions.h"
#include "YIniStandardElementFactory.h"

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s input output section key value|-\n", argv[0]);
    return 2;
  }
  auto document = YIniDocument::documentWithContentsOfFileFactory(YString::fromUTF8(argv[1]),
                                                                  YIniStandardElementFactory::standardFactory());
  if (std::strcmp(argv[5], "-") != 0) {
    auto section = document->sectionForName(YString::fromUTF8(argv[3]));
    if (!section) {
      std::fprintf(stderr, "no section %s\n", argv[3]);
      return 1;
    }
    section->setValueForOptionWithName(YString::fromUTF8(argv[5]), YString::fromUTF8(argv[4]));
  }
  std::shared_ptr<YError> error;
  if (!document->writeToFileAtomicallyEncodingError(YString::fromUTF8(argv[2]), false, YUTF8StringEncoding, &error)) {
    std::fprintf(stderr, "%s\n", error->description().UTF8String().c_str());
    return 1;
  }
  return 0;
}
