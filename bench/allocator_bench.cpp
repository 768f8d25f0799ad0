// Throughput of the small-object pool: one block taken and given back at a
// time (the path every short-lived string takes), bursts that stay within a
// thread's own free lists and bursts far beyond them (loading and destroying
// a large document), mixed sizes, strings, and blocks handed to another
// thread to be freed there.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "YAllocator.h"
#include "YString.h"

namespace {

// One block taken and given back, over and over: the thread's free list alone.
void BM_TakeGive(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    void* block = ydetail::smallAllocate(size);
    benchmark::DoNotOptimize(block);
    ydetail::smallDeallocate(block, size);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_TakeGive)->Arg(16)->Arg(48)->Arg(112)->Arg(256);

// `count` blocks of one size taken, then all given back, in the same order.
void BM_Burst(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const auto count = static_cast<std::size_t>(state.range(1));
  std::vector<void*> blocks(count);
  for (auto _ : state) {
    for (auto& block : blocks) block = ydetail::smallAllocate(size);
    benchmark::DoNotOptimize(blocks.data());
    for (void* block : blocks) ydetail::smallDeallocate(block, size);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
}
BENCHMARK(BM_Burst)->Args({32, 1000})->Args({112, 1000})->Args({32, 200000})->Args({112, 200000});

// Mixed sizes, as a loaded document asks for them; half of the blocks are
// given back in reverse order, half in the order taken.
void BM_BurstMixed(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<std::size_t> sizes(count);
  std::uint64_t seed = 12345;
  for (auto& size : sizes) {
    seed = seed * 6364136223846793005ull + 1442695040888963407ull;
    size = 16 + (seed >> 33) % 241;
  }
  std::vector<void*> blocks(count);
  for (auto _ : state) {
    for (std::size_t i = 0; i < count; ++i) blocks[i] = ydetail::smallAllocate(sizes[i]);
    benchmark::DoNotOptimize(blocks.data());
    for (std::size_t i = 0; i < count; i += 2) ydetail::smallDeallocate(blocks[i], sizes[i]);
    for (std::size_t i = count - (count % 2 ? 0 : 1); i-- > 0;)
      if (i % 2) ydetail::smallDeallocate(blocks[i], sizes[i]);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
}
BENCHMARK(BM_BurstMixed)->Arg(1000)->Arg(200000);

// Short strings made and released, as scanning and editing do. Each new
// string replaces the oldest of 64, so that the timing does not hang on where
// one reused block happens to lie (a copy across a page boundary costs more).
void BM_StringChurn(benchmark::State& state) {
  const std::u16string text(static_cast<std::size_t>(state.range(0)), u'x');
  std::vector<YString> ring(64);
  std::size_t next = 0;
  for (auto _ : state) {
    ring[next] = YString(text);
    benchmark::DoNotOptimize(ring[next].length());
    next = (next + 1) % ring.size();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_StringChurn)->Arg(8)->Arg(40);

// Blocks taken on this thread in batches of 1,000 and given back on another.
void BM_HandOff(benchmark::State& state) {
  constexpr std::size_t kBatch = 1000;
  const auto size = static_cast<std::size_t>(state.range(0));
  std::mutex mutex;
  std::condition_variable ready;
  std::deque<std::vector<void*>> queue;
  bool done = false;
  std::thread consumer([&] {
    for (;;) {
      std::vector<void*> batch;
      {
        std::unique_lock<std::mutex> lock(mutex);
        ready.wait(lock, [&] { return done || !queue.empty(); });
        if (queue.empty()) return;
        batch = std::move(queue.front());
        queue.pop_front();
      }
      ready.notify_all();
      for (void* block : batch) ydetail::smallDeallocate(block, size);
    }
  });
  for (auto _ : state) {
    std::vector<void*> batch(kBatch);
    for (auto& block : batch) block = ydetail::smallAllocate(size);
    std::unique_lock<std::mutex> lock(mutex);
    // A bounded queue: the producer waits while the consumer is far behind.
    ready.wait(lock, [&] { return queue.size() < 8; });
    queue.push_back(std::move(batch));
    ready.notify_all();
  }
  {
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
  }
  ready.notify_all();
  consumer.join();
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kBatch));
}
BENCHMARK(BM_HandOff)->Arg(48)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
