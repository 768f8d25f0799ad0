// A typical small file, in process: load it from a string, set one value and
// take the text, N times; prints the mean seconds per round trip. With
// "phases" it also prints the mean seconds of destroying the document.
//   compare_small_corvane <file> <section> <key> <iterations> [phases]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"

int main(int argc, char** argv) {
  const bool phases = argc == 6 && std::strcmp(argv[5], "phases") == 0;
  if (argc != 5 && !phases) {
    std::fprintf(stderr, "usage: %s file section key iterations [phases]\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  const YString text = YString::fromUTF8(bytes.str());
  const YString section = YString::fromUTF8(argv[2]), key = YString::fromUTF8(argv[3]), value(u"edited");
  const auto factory = YIniStandardElementFactory::standardFactory();
  const long iterations = std::atol(argv[4]);
  using Clock = std::chrono::steady_clock;
  std::size_t total = 0;
  Clock::duration destroying{};
  const auto start = Clock::now();
  for (long i = 0; i < iterations; ++i) {
    auto document = YIniDocument::documentFromStringFactory(text, factory);
    document->sectionForName(section)->setValueForOptionWithName(value, key);
    total += document->stringValue().length();
    if (phases) {
      const auto destroyStart = Clock::now();
      document.reset();
      destroying += Clock::now() - destroyStart;
    }
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const double n = static_cast<double>(iterations);
  if (phases)
    std::printf("%.9f %zu %.9f\n", seconds / n, total, std::chrono::duration<double>(destroying).count() / n);
  else
    std::printf("%.9f %zu\n", seconds / n, total);
  return 0;
}
