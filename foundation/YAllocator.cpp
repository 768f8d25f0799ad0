#include "YAllocator.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

// Under AddressSanitizer every block comes from operator new, so that the
// sanitizer sees each one on its own.
#if defined(__SANITIZE_ADDRESS__)
#define Y_POOL_DISABLED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define Y_POOL_DISABLED 1
#endif
#endif
#ifndef Y_POOL_DISABLED
#define Y_POOL_DISABLED 0
#endif

namespace ydetail {
namespace {

constexpr std::size_t kGranule = 16;
constexpr unsigned kClasses = kSmallObjectLimit / kGranule;
constexpr std::size_t kFirstChunk = std::size_t(64) << 10;
constexpr std::size_t kLargestChunk = std::size_t(4) << 20;
constexpr std::size_t kLargeBuffer = std::size_t(1) << 20;

struct FreeBlock {
  FreeBlock* next;
};

inline unsigned classOf(std::size_t size) noexcept {
  return size == 0 ? 0u : static_cast<unsigned>((size - 1) / kGranule);
}

inline std::size_t pageRounded(std::size_t size) noexcept {
  const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return (size + page - 1) / page * page;
}

// Anonymous memory with every page faulted in by one call.
void* mapPopulated(std::size_t bytes) {
  void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return memory;
}

// Free blocks handed over by threads that ended, and the memory that threads
// use while they end. Never destroyed: blocks may be freed during exit.
struct Depot {
  std::mutex mutex;
  FreeBlock* lists[kClasses] = {};
  FreeBlock* tails[kClasses] = {};  // last block of each non-empty list
  std::atomic<std::uint32_t> nonEmpty{0};  // bit c: lists[c] holds blocks
  char* bump = nullptr;
  char* end = nullptr;
};

Depot& depot() {
  static Depot* const instance = new Depot;
  return *instance;
}

// A thread's own free lists and the chunk it carves new blocks from. Plain
// data, so it stays usable while the thread's other objects are destroyed.
struct Cache {
  FreeBlock* lists[kClasses];
  FreeBlock* tails[kClasses];  // last block of each non-empty list, for handing a list over whole
  char* bump;
  char* end;
  std::size_t nextChunk;
  bool registered;  // the Reaper below will flush the cache
  bool dead;        // flushed: the thread is ending, the depot serves it
};

constinit thread_local Cache tcache{};

void flush(Cache& cache) noexcept {
  Depot& d = depot();
  std::lock_guard<std::mutex> lock(d.mutex);
  for (unsigned c = 0; c < kClasses; ++c) {
    FreeBlock* head = cache.lists[c];
    if (!head) continue;
    cache.tails[c]->next = d.lists[c];
    if (!d.lists[c]) d.tails[c] = cache.tails[c];
    d.lists[c] = head;
    d.nonEmpty.fetch_or(1u << c, std::memory_order_relaxed);
    cache.lists[c] = nullptr;
  }
  // The larger unused stretch is kept for threads that allocate while ending.
  if (cache.end - cache.bump > d.end - d.bump) {
    d.bump = cache.bump;
    d.end = cache.end;
  }
  cache.bump = cache.end = nullptr;
}

struct Reaper {
  bool armed = false;
  ~Reaper() {
    flush(tcache);
    tcache.dead = true;
  }
};

thread_local Reaper reaper;

void arm(Cache& cache) {
  reaper.armed = true;
  cache.registered = true;
}

void* depotAllocate(unsigned c) {
  const std::size_t bytes = (c + 1) * kGranule;
  Depot& d = depot();
  std::lock_guard<std::mutex> lock(d.mutex);
  if (FreeBlock* block = d.lists[c]) {
    d.lists[c] = block->next;
    if (!d.lists[c]) d.nonEmpty.fetch_and(~(1u << c), std::memory_order_relaxed);
    return block;
  }
  if (static_cast<std::size_t>(d.end - d.bump) < bytes) {
    d.bump = static_cast<char*>(mapPopulated(kFirstChunk));
    d.end = d.bump + kFirstChunk;
  }
  void* block = d.bump;
  d.bump += bytes;
  return block;
}

void* refill(Cache& cache, unsigned c) {
  if (cache.dead) return depotAllocate(c);
  if (!cache.registered) arm(cache);
  const std::size_t bytes = (c + 1) * kGranule;
  // Blocks that ended threads left behind come first.
  Depot& d = depot();
  if (d.nonEmpty.load(std::memory_order_relaxed) & (1u << c)) {
    std::lock_guard<std::mutex> lock(d.mutex);
    if (FreeBlock* block = d.lists[c]) {
      cache.lists[c] = block->next;
      cache.tails[c] = d.tails[c];
      d.lists[c] = nullptr;
      d.nonEmpty.fetch_and(~(1u << c), std::memory_order_relaxed);
      return block;
    }
  }
  if (static_cast<std::size_t>(cache.end - cache.bump) < bytes) {
    // The rest of the old chunk is too small for this class; it goes to the
    // free lists of the classes it fits.
    while (static_cast<std::size_t>(cache.end - cache.bump) >= kGranule) {
      const std::size_t rest = static_cast<std::size_t>(cache.end - cache.bump);
      const unsigned fit = classOf(rest < kSmallObjectLimit ? rest - (rest % kGranule) : kSmallObjectLimit);
      auto* block = reinterpret_cast<FreeBlock*>(cache.bump);
      if (!cache.lists[fit]) cache.tails[fit] = block;
      block->next = cache.lists[fit];
      cache.lists[fit] = block;
      cache.bump += (fit + 1) * kGranule;
    }
    if (cache.nextChunk == 0) cache.nextChunk = kFirstChunk;
    cache.bump = static_cast<char*>(mapPopulated(cache.nextChunk));
    cache.end = cache.bump + cache.nextChunk;
    if (cache.nextChunk < kLargestChunk) cache.nextChunk *= 2;
  }
  void* block = cache.bump;
  cache.bump += bytes;
  return block;
}

}  // namespace

void* smallAllocate(std::size_t size) {
  if (Y_POOL_DISABLED || size > kSmallObjectLimit) return ::operator new(size);
  const unsigned c = classOf(size);
  Cache& cache = tcache;
  if (FreeBlock* block = cache.lists[c]) {
    cache.lists[c] = block->next;
    return block;
  }
  return refill(cache, c);
}

void smallDeallocate(void* block, std::size_t size) noexcept {
  if (!block) return;
  if (Y_POOL_DISABLED || size > kSmallObjectLimit) return ::operator delete(block);
  const unsigned c = classOf(size);
  Cache& cache = tcache;
  auto* free = static_cast<FreeBlock*>(block);
  if (cache.dead) {
    Depot& d = depot();
    std::lock_guard<std::mutex> lock(d.mutex);
    if (!d.lists[c]) d.tails[c] = free;
    free->next = d.lists[c];
    d.lists[c] = free;
    d.nonEmpty.fetch_or(1u << c, std::memory_order_relaxed);
    return;
  }
  if (!cache.registered) {
    try {
      arm(cache);
    } catch (...) {
      // Registering the thread-exit flush failed: leave the block unused.
      return;
    }
  }
  if (!cache.lists[c]) cache.tails[c] = free;
  free->next = cache.lists[c];
  cache.lists[c] = free;
}

void* largeAllocate(std::size_t size) {
  if (Y_POOL_DISABLED || size < kLargeBuffer) return ::operator new(size);
  return mapPopulated(pageRounded(size));
}

void largeDeallocate(void* buffer, std::size_t size) noexcept {
  if (!buffer) return;
  if (Y_POOL_DISABLED || size < kLargeBuffer) return ::operator delete(buffer);
  ::munmap(buffer, pageRounded(size));
}

}  // namespace ydetail
