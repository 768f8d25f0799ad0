// The cost of bringing fresh anonymous memory in, per MiB, by the ways the
// small-object pool could map its regions: faulting 4 KiB pages on first
// touch, MAP_POPULATE, and transparent huge pages (madvise(MADV_HUGEPAGE))
// faulted by touch or by MADV_POPULATE_WRITE. Each iteration maps a fresh
// region, brings every page in, writes one byte a page (as carving blocks
// does) and unmaps it; the unmap is timed too, since the pool pays for it
// when it gives memory back.
#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

namespace {

constexpr std::size_t kHuge = std::size_t(2) << 20;
constexpr std::size_t kPage = 4096;

enum Way { kTouch, kPopulate, kHugeTouch, kHugePopulate };

// A region of `bytes` aligned to 2 MiB, so that huge pages can back it.
char* mapAligned(std::size_t bytes, bool populate) {
  const int flags = MAP_PRIVATE | MAP_ANONYMOUS | (populate ? MAP_POPULATE : 0);
  if (populate) {
    // MAP_POPULATE on the over-sized mapping would fault the trimmed ends too.
    void* m = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, -1, 0);
    return m == MAP_FAILED ? nullptr : static_cast<char*>(m);
  }
  void* m = ::mmap(nullptr, bytes + kHuge, PROT_READ | PROT_WRITE, flags, -1, 0);
  if (m == MAP_FAILED) return nullptr;
  auto start = reinterpret_cast<std::uintptr_t>(m);
  const std::uintptr_t aligned = (start + kHuge - 1) & ~(kHuge - 1);
  if (aligned > start) ::munmap(m, aligned - start);
  const std::uintptr_t tail = aligned + bytes;
  const std::uintptr_t end = start + bytes + kHuge;
  if (end > tail) ::munmap(reinterpret_cast<void*>(tail), end - tail);
  return reinterpret_cast<char*>(aligned);
}

void BM_FreshMemory(benchmark::State& state) {
  const auto way = static_cast<Way>(state.range(0));
  const std::size_t bytes = static_cast<std::size_t>(state.range(1)) << 20;
  for (auto _ : state) {
    char* region = mapAligned(bytes, way == kPopulate);
    if (!region) {
      state.SkipWithError("mmap failed");
      return;
    }
    if (way == kHugeTouch || way == kHugePopulate) ::madvise(region, bytes, MADV_HUGEPAGE);
    if (way == kHugePopulate && ::madvise(region, bytes, MADV_POPULATE_WRITE) != 0) {
      state.SkipWithError("MADV_POPULATE_WRITE not offered");
      ::munmap(region, bytes);
      return;
    }
    for (std::size_t at = 0; at < bytes; at += kPage) region[at] = 1;
    benchmark::DoNotOptimize(region);
    ::munmap(region, bytes);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  // Seconds per MiB (shown with an SI prefix: "u" is microseconds).
  state.counters["per_MiB"] = benchmark::Counter(static_cast<double>(state.iterations() * (bytes >> 20)),
                                                 benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

const char* const kWayNames[] = {"touch4k", "populate4k", "hugeTouch", "hugePopulate"};

}  // namespace

int main(int argc, char** argv) {
  for (int way = kTouch; way <= kHugePopulate; ++way)
    for (long mib : {4L, 32L})
      benchmark::RegisterBenchmark((std::string("BM_FreshMemory/") + kWayNames[way]).c_str(), BM_FreshMemory)
          ->Args({way, mib})
          ->UseRealTime()
          ->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
