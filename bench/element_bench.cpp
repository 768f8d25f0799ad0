// Element model costs: memory per loaded option, appending children, and one
// option edit in a large committed document.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>
#include <string>

#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"

// ---- allocation accounting ---------------------------------------------------
// Every allocation carries a header with its size, so live bytes can be tracked.

namespace {
std::size_t gLiveBytes = 0;
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* countedAlloc(std::size_t size) {
  auto* block = static_cast<unsigned char*>(std::malloc(size + kHeader));
  if (!block) throw std::bad_alloc();
  *reinterpret_cast<std::size_t*>(block) = size;
  gLiveBytes += size;
  return block + kHeader;
}

void countedFree(void* pointer) noexcept {
  if (!pointer) return;
  auto* block = static_cast<unsigned char*>(pointer) - kHeader;
  gLiveBytes -= *reinterpret_cast<std::size_t*>(block);
  std::free(block);
}
}  // namespace

void* operator new(std::size_t size) { return countedAlloc(size); }
void* operator new[](std::size_t size) { return countedAlloc(size); }
void operator delete(void* pointer) noexcept { countedFree(pointer); }
void operator delete[](void* pointer) noexcept { countedFree(pointer); }
void operator delete(void* pointer, std::size_t) noexcept { countedFree(pointer); }
void operator delete[](void* pointer, std::size_t) noexcept { countedFree(pointer); }

namespace {

YString numbered(const char* prefix, long i) { return YString(std::string(prefix) + std::to_string(i)); }

// A committed section of `count` options, as loading then committing leaves it.
std::shared_ptr<YIniSection> loadedSection(long count) {
  auto section = YIniSection::sectionWithName(YString("section"));
  for (long i = 0; i < count; ++i)
    section->addElement(YIniOption::optionWithNameAndValue(numbered("option", i), numbered("value", i)));
  section->commit();
  return section;
}

// Bytes that one option costs in a committed section: the object, its name
// and value strings, its slots in the current and initial lists, and the
// parent's observer registration.
void BM_BytesPerOption(benchmark::State& state) {
  const long count = state.range(0);
  double perOption = 0;
  for (auto _ : state) {
    const std::size_t emptyBefore = gLiveBytes;
    auto empty = loadedSection(0);
    const std::size_t emptyCost = gLiveBytes - emptyBefore;
    const std::size_t before = gLiveBytes;
    auto section = loadedSection(count);
    perOption = static_cast<double>(gLiveBytes - before - emptyCost) / static_cast<double>(count);
    benchmark::DoNotOptimize(section);
  }
  state.counters["bytes_per_option"] = perOption;
}
BENCHMARK(BM_BytesPerOption)->Arg(1000)->Arg(100000)->Iterations(3)->Unit(benchmark::kMillisecond);

// Appending n children, notifications included; the complexity fit shows O(n).
void BM_AppendChildren(benchmark::State& state) {
  const long count = state.range(0);
  const YString name("k"), value("v");
  for (auto _ : state) {
    auto section = YIniSection::sectionWithName(YString("s"));
    for (long i = 0; i < count; ++i) section->addElement(YIniOption::optionWithNameAndValue(name, value));
    benchmark::DoNotOptimize(section);
  }
  state.SetComplexityN(count);
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_AppendChildren)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);

// One option edit in a committed document of 20,000 sections with 12 options
// each: the option announces, its section and the document recompute (one pass
// over their direct children each). Alternates between a change and its undo,
// so both directions of the flag are measured.
void BM_EditOneOptionInLargeDocument(benchmark::State& state) {
  constexpr long kSections = 20000, kOptions = 12;
  auto factory = YIniStandardElementFactory::standardFactory();
  auto document = YIniDocument::documentWithFactory(factory);
  for (long s = 0; s < kSections; ++s) {
    auto section = factory->sectionWithName(numbered("section", s));
    section->addElement(YIniComment::commentWithNewLine());
    for (long o = 0; o < kOptions; ++o)
      section->addElement(factory->optionWithNameValueInSection(numbered("option", o), numbered("value", o), section));
    document->addElement(section);
  }
  document->commit();
  auto option = document->sectionForName(numbered("section", kSections / 2))->optionWithName(YString("option6"));
  const YString original = option->value(), changed("changed");
  bool flip = false;
  for (auto _ : state) {
    flip = !flip;
    option->setValue(flip ? changed : original);
    benchmark::DoNotOptimize(document->isModified());
  }
  if (document->isModified() != flip) state.SkipWithError("document flag out of step");
}
BENCHMARK(BM_EditOneOptionInLargeDocument)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
