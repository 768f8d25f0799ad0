// One measured run of the preserving save against the plain save.
//
//   preserve_save <mode> <input> <output> <section> <key> <value> [times-file]
//
// Modes: "load" only loads the file; "plain" loads, sets one value and saves
// with writeToFileAtomicallyEncodingError; "preserved" does the same with
// writePreservedToFileError. The save's own wall time (loading excluded) is
// appended to times-file, in seconds. Peak RSS is the caller's to measure
// (compare_measure).
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"
#include "YStringEncoding.h"

int main(int argc, char** argv) {
  if (argc < 7) {
    std::fprintf(stderr, "usage: %s load|plain|preserved input output section key value [times-file]\n", argv[0]);
    return 2;
  }
  const std::string mode = argv[1];
  auto document = YIniDocument::documentWithContentsOfFileFactory(YString::fromUTF8(argv[2]),
                                                                  YIniStandardElementFactory::standardFactory());
  if (mode == "load") return document ? 0 : 1;
  auto section = document->sectionForName(YString::fromUTF8(argv[4]));
  if (!section) {
    std::fprintf(stderr, "no section %s\n", argv[4]);
    return 1;
  }
  section->setValueForOptionWithName(YString::fromUTF8(argv[6]), YString::fromUTF8(argv[5]));
  std::shared_ptr<YError> error;
  const auto start = std::chrono::steady_clock::now();
  const YString output = YString::fromUTF8(argv[3]);
  const bool saved = mode == "plain"
                         ? document->writeToFileAtomicallyEncodingError(output, true, YUTF8StringEncoding, &error)
                         : document->writePreservedToFileError(output, &error);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!saved) {
    std::fprintf(stderr, "%s\n", error->description().UTF8String().c_str());
    return 1;
  }
  if (argc > 7) {
    if (FILE* times = std::fopen(argv[7], "a")) {
      std::fprintf(times, "%.6f\n", seconds);
      std::fclose(times);
    }
  }
  return 0;
}
