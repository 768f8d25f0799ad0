// The small-file round trip through the floor model, in process, for
// comparison with compare_small_corvane (same arguments and output): from the
// text already in UTF-16, build the elements, set one value, take the whole
// text as one UTF-16 string, destroy; N times. With --slices the strings
// refer to the text instead of copying out of it. With "phases" it also
// prints the mean seconds of destroying the document.
//   compare_small_floor [--slices] <file> <section> <key> <iterations> [phases]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "FloorModel.h"

namespace {

using namespace floormodel;

template <class S>
int run(char** argv, bool phases) {
  std::ifstream in(argv[1], std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  Rep* const text = fromUTF8(bytes.str().c_str());
  const S section = S::adopt(fromUTF8(argv[2])), key = S::adopt(fromUTF8(argv[3])),
          value = S::adopt(fromUTF8("edited"));
  const long iterations = std::atol(argv[4]);
  std::size_t total = 0;
  int status = 0;
  using Clock = std::chrono::steady_clock;
  Clock::duration destroying{};
  const auto start = Clock::now();
  for (long i = 0; i < iterations; ++i) {
    retain(text);  // the document's reference, released with it
    auto document = std::make_shared<Document>(text, text->length, arena().mark());
    Loader<S>(text, *document).load();
    if (!setValueForOptionWithName(*document, section, key, value)) status = 1;
    total += stringValue<S>(*document).size();
    if (phases) {
      const auto destroyStart = Clock::now();
      document.reset();
      destroying += Clock::now() - destroyStart;
    }
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  release(text);
  if (status != 0) {
    std::fprintf(stderr, "no section %s\n", argv[2]);
    return status;
  }
  const double n = static_cast<double>(iterations);
  if (phases)
    std::printf("%.9f %zu %.9f\n", seconds / n, total, std::chrono::duration<double>(destroying).count() / n);
  else
    std::printf("%.9f %zu\n", seconds / n, total);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const bool slices = floormodel::takeSlicesFlag(argc, argv);
  const bool phases = argc == 6 && std::strcmp(argv[5], "phases") == 0;
  if (argc != 5 && !phases) {
    std::fprintf(stderr, "usage: compare_small_floor [--slices] file section key iterations [phases]\n");
    return 2;
  }
  return slices ? run<SlicedString>(argv, phases) : run<CopiedString>(argv, phases);
}
