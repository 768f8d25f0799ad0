// A typical small file, in process: load it from a string, set one value and
// take the text, N times; prints the mean seconds per round trip.
//   compare_small_corvane <file> <section> <key> <iterations>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s file section key iterations\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  const YString text = YString::fromUTF8(bytes.str());
  const YString section = YString::fromUTF8(argv[2]), key = YString::fromUTF8(argv[3]), value(u"edited");
  const auto factory = YIniStandardElementFactory::standardFactory();
  const long iterations = std::atol(argv[4]);
  std::size_t total = 0;
  const auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < iterations; ++i) {
    auto document = YIniDocument::documentFromStringFactory(text, factory);
    document->sectionForName(section)->setValueForOptionWithName(value, key);
    total += document->stringValue().length();
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%.9f %zu\n", seconds / static_cast<double>(iterations), total);
  return 0;
}
