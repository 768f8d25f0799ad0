// Round trip through Corvane: load the file, set one option's value, write
// the whole text back. With "-" as the value nothing is edited (the
// reference for the output check); with "load" as a sixth argument the file
// is only loaded; with "phases" the round trip is done and the seconds of
// the whole and of destroying the document are printed.
#include <chrono>
#include <cstdio>
#include <cstring>

#include "YIniDocument+Extensions.h"
#include "YIniStandardElementFactory.h"

int main(int argc, char** argv) {
  if (argc != 6 && argc != 7) {
    std::fprintf(stderr, "usage: %s input output section key value|- [load|phases]\n", argv[0]);
    return 2;
  }
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  const bool phases = argc == 7 && std::strcmp(argv[6], "phases") == 0;
  auto document = YIniDocument::documentWithContentsOfFileFactory(YString::fromUTF8(argv[1]),
                                                                  YIniStandardElementFactory::standardFactory());
  if (argc == 7 && !phases) return document->elements()->count() > 0 ? 0 : 1;
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
  if (phases) {
    const auto destroyStart = Clock::now();
    document.reset();
    const auto end = Clock::now();
    std::printf("%.6f %.6f\n", std::chrono::duration<double>(end - start).count(),
                std::chrono::duration<double>(end - destroyStart).count());
  }
  return 0;
}
