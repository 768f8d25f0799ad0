#include "YAllocator.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
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

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23  // Linux 5.14; older kernels refuse it and pages fault on first touch
#endif

// How the pool is laid out
//
// Blocks are carved from 64 KiB chunks aligned to their size, each holding
// blocks of one size class behind a small header, so the chunk of any block
// is its address with the low bits cleared. A chunk counts the blocks it has
// handed out; when all have come back it is empty and may serve any class.
//
// Each thread keeps a free list per class, taken from and given to without a
// lock. A list holds at most 128 KiB of blocks; a free that finds it full
// gives the whole list to the shared store of its class (one mutex per
// class), which returns each block to its chunk. A thread whose list runs
// dry takes a batch: a chunk's returned blocks, or newly carved ones. So
// blocks freed on another thread flow back to whoever allocates next, and a
// class's blocks, once freed, become empty chunks that any class reuses:
// resident memory follows the peak live set, plus at most 2 MiB of lists per
// thread. Every hand-over between threads goes through a mutex,
// which orders the block's last use before its next owner's first.
//
// Chunks come from address space reserved in 64 MiB arenas, aligned to 2 MiB,
// and faulted in 2 MiB at a time with one call (the first 2 MiB a chunk at a
// time), in small pages unless huge pages are asked for (see
// hugePagesWanted). Empty chunks are kept for reuse; those empty for a
// second, beyond the newest 4 MiB of them, are given back to the system.
namespace ydetail {
namespace {

constexpr std::size_t kGranule = kSmallObjectGranule;
constexpr unsigned kClasses = kSmallObjectClasses;
constexpr std::size_t kChunkSize = std::size_t(64) << 10;
constexpr std::size_t kHugePage = std::size_t(2) << 20;
constexpr std::size_t kArenaSize = std::size_t(64) << 20;
constexpr std::size_t kLargeBuffer = std::size_t(1) << 20;
// A thread's free list of one class holds at most this many bytes of blocks.
constexpr std::size_t kListBytes = std::size_t(128) << 10;
// A thread takes blocks from the shared store in batches of this size.
constexpr std::size_t kBatchBytes = std::size_t(8) << 10;
// Empty chunks kept whatever the timing, and how long the others may idle.
constexpr std::size_t kKeptEmptyChunks = (std::size_t(4) << 20) / kChunkSize;
constexpr long kIdleMilliseconds = 1000;

// The header at the start of every chunk.
struct alignas(16) Chunk {
  Chunk* next;  // in its class's list of chunks with blocks to give, or among the empty chunks
  Chunk* prev;
  FreeBlock* free;      // blocks that came back
  FreeBlock* freeTail;  // the last of them, so the list is handed over whole
  char* carve;          // where the blocks never handed out begin
  std::uint32_t freeCount;
  std::uint32_t used;   // blocks handed out: in threads' lists or in use
  std::uint32_t size;   // block size
  bool listed;          // in its class's list
  long emptiedAt;       // when the last block came back (milliseconds), while empty
};
constexpr std::size_t kChunkHeader = sizeof(Chunk);
static_assert(kChunkHeader % kGranule == 0);

inline unsigned classOf(std::size_t size) noexcept {
  return size == 0 ? 0u : static_cast<unsigned>((size - 1) / kGranule);
}
constexpr std::size_t blockSize(unsigned c) noexcept { return (c + 1) * kGranule; }
constexpr std::uint32_t batchOf(unsigned c) noexcept { return static_cast<std::uint32_t>(kBatchBytes / blockSize(c)); }
constexpr std::uint32_t listLimitOf(unsigned c) noexcept {
  return static_cast<std::uint32_t>(kListBytes / blockSize(c));
}
// A refill may bring a batch less one plus a whole chunk's returned blocks.
static_assert(kListBytes >= kBatchBytes + kChunkSize);

inline Chunk* chunkOf(void* block) noexcept {
  return reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(block) & ~(kChunkSize - 1));
}
inline bool isExhausted(const Chunk* chunk) noexcept {
  return !chunk->free && chunk->carve + chunk->size > reinterpret_cast<const char*>(chunk) + kChunkSize;
}

inline std::size_t pageSize() noexcept {
  static const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return page;
}
inline std::size_t pageRounded(std::size_t size) noexcept {
  const std::size_t page = pageSize();
  return (size + page - 1) / page * page;
}

long nowMilliseconds() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Set once the kernel refuses to fault pages in ahead (before Linux 5.14):
// the pages then come on first touch, and timing the call tells nothing.
std::atomic<bool> populateRefused{false};

// Faults the pages in with one call where the kernel offers it.
void populate(void* memory, std::size_t bytes) noexcept {
  if (::madvise(memory, bytes, MADV_POPULATE_WRITE) != 0) populateRefused.store(true, std::memory_order_relaxed);
}

long nowNanoseconds() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec) * 1000000000L + now.tv_nsec;
}

// Faults in `bytes` at `memory`; the nanoseconds that took.
long timedPopulate(void* memory, std::size_t bytes) noexcept {
  const long start = nowNanoseconds();
  populate(memory, bytes);
  return nowNanoseconds() - start;
}

// Huge pages are cheaper to fault in than small ones where the kernel has
// free 2 MiB blocks at hand, but can cost several times more where it must
// find them first (a virtual machine whose host backs fresh memory lazily: on
// the build machine 2.2 ms a MiB against 0.3 ms in small pages and 0.08 ms in
// huge pages at hand). There, only memory freed in the last seconds is at
// hand, and a process that meets the first dear block has paid 4 to 5 ms for
// it: in bench/compare's runs, small pages alone loaded the corpus in 0.071
// to 0.072 s against 0.075 to 0.078 s with huge pages, and its round trip in
// 0.093 to 0.094 s against 0.094 to 0.099 s. So the pool asks for huge pages
// only when CORVANE_POOL_HUGE_PAGES=1 is in the environment (for machines
// where they are at hand), and otherwise asks for small pages, also where
// huge pages are the system's default.
bool hugePagesWanted() noexcept {
  static const bool wanted = [] {
    const char* value = std::getenv("CORVANE_POOL_HUGE_PAGES");
    return value && std::strcmp(value, "1") == 0;
  }();
  return wanted;
}

// Asked for, huge pages are timed: the pool times what it faults in, 2 MiB at
// a time, arenas and large buffers alike: from a huge-page step that costs
// more than twice the same bytes in small pages, the rest goes in small
// pages, and for the next ten seconds new arenas and large buffers use small
// pages from the start. The small-page cost is the process's own, measured on
// the first 2 MiB it faults in, which come before any huge step.
//
// Twice, because a step the host must back costs 4 to 5 ms against 0.5 to
// 0.9 ms in small pages, while a step at hand that the scheduler interrupts
// can take a little more than small pages (0.8 ms against 0.6 to 0.8 ms, in
// two runs of twenty-four): taken for dear, it sent the rest of a run's
// memory to small pages. Huge pages also repay a little of a dearer step:
// unmapping them costs 3 to 4 µs a MiB against 55 µs in small pages.
constexpr long kDearFactor = 2;
constexpr long kDearMilliseconds = 10000;
// Nanoseconds to fault in 2 MiB in small pages; 0 until measured.
std::atomic<long> smallPageCost{0};
// When a huge-page step was last found dear (milliseconds; 0: never).
std::atomic<long> hugePagesDearAt{0};

bool hugePagesDear() noexcept {
  const long at = hugePagesDearAt.load(std::memory_order_relaxed);
  return at != 0 && nowMilliseconds() - at < kDearMilliseconds;
}

// Notes what faulting in 2 MiB of huge pages took; true if that was more
// than twice what small pages would have taken.
bool hugeStepWasDear(long spent, long smallCost) noexcept {
  if (spent <= kDearFactor * smallCost || populateRefused.load(std::memory_order_relaxed)) return false;
  hugePagesDearAt.store(nowMilliseconds(), std::memory_order_relaxed);
  return true;
}

// Publishes the process's small-page cost, unless measured already; the one
// that stands.
long noteSmallPageCost(long spent) noexcept {
  long expected = 0;
  return smallPageCost.compare_exchange_strong(expected, spent, std::memory_order_relaxed) ? spent : expected;
}

// `bytes` (a multiple of the page size) of address space starting on a 2 MiB
// boundary and marked for huge pages (unless `huge` is false); no page is
// faulted in yet. Null when the system has no room. A reservation (`reserve`)
// is not charged against the system's commit limit, as most of it may stay
// unused.
char* mapHugeAligned(std::size_t bytes, bool reserve, bool huge = true) noexcept {
  void* memory = ::mmap(nullptr, bytes + kHugePage, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | (reserve ? MAP_NORESERVE : 0), -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t aligned = (start + kHugePage - 1) & ~(kHugePage - 1);
  if (aligned > start) ::munmap(memory, aligned - start);
  const std::uintptr_t end = start + bytes + kHugePage;
  if (end > aligned + bytes) ::munmap(reinterpret_cast<void*>(aligned + bytes), end - (aligned + bytes));
  // Where transparent huge pages are offered only on request, the request;
  // where they are the default, small pages are asked for when not wanted.
  ::madvise(reinterpret_cast<void*>(aligned), bytes, huge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
  return reinterpret_cast<char*>(aligned);
}

// The chunks of one size class that have blocks to give.
struct alignas(64) ClassStore {
  std::mutex mutex;
  Chunk* chunks = nullptr;
};

// Empty chunks and the address space not carved into chunks yet.
struct ChunkStore {
  std::mutex mutex;
  Chunk* newest = nullptr;       // empty chunks, faulted in, ready for any class
  Chunk* oldest = nullptr;       // the end of that list that has been empty longest
  std::size_t emptyCount = 0;
  Chunk* released = nullptr;     // pages given back to the system but the header's
  char* next = nullptr;          // arena not carved yet
  char* faulted = nullptr;       // the arena is faulted in up to here
  char* end = nullptr;
  bool reservedBefore = false;
  std::size_t smallPageSteps = 0;  // chunks still to fault in one by one (see takeChunk)
  bool hugeSteps = false;          // the arena's unfaulted rest is marked for huge pages
  long smallSpent = 0;             // nanoseconds faulting in the first 2 MiB in small pages
};

// Never destroyed: blocks may be freed while the process exits.
struct Shared {
  ClassStore classes[kClasses];
  ChunkStore chunks;
};

Shared& shared() {
  static Shared* const instance = new Shared;
  return *instance;
}

// Gives the pages of chunks that have been empty for a second or more back
// to the system, beyond the few kept at all times; looked at whenever a chunk
// is taken or given back. A chunk's header page stays, so it can still be
// listed among the released ones.
void returnIdleChunks(ChunkStore& store, long now) noexcept {
  const std::size_t page = pageSize();
  if (page >= kChunkSize) return;
  while (store.emptyCount > kKeptEmptyChunks && now - store.oldest->emptiedAt >= kIdleMilliseconds) {
    Chunk* chunk = store.oldest;
    store.oldest = chunk->prev;
    store.oldest->next = nullptr;
    --store.emptyCount;
    ::madvise(reinterpret_cast<char*>(chunk) + page, kChunkSize - page, MADV_DONTNEED);
    chunk->next = store.released;
    store.released = chunk;
  }
}

// The rest of the arena goes in small pages.
void stopHugeSteps(ChunkStore& store) noexcept {
  if (store.faulted < store.end)
    ::madvise(store.faulted, static_cast<std::size_t>(store.end - store.faulted), MADV_NOHUGEPAGE);
  store.hugeSteps = false;
}

Chunk* takeChunk(ChunkStore& store) {
  std::lock_guard<std::mutex> lock(store.mutex);
  Chunk* chunk = store.newest;
  if (chunk) {
    store.newest = chunk->next;
    if (store.newest) store.newest->prev = nullptr;
    else store.oldest = nullptr;
    --store.emptyCount;
  } else if ((chunk = store.released)) {
    store.released = chunk->next;
    populate(reinterpret_cast<char*>(chunk) + pageSize(), kChunkSize - pageSize());
  } else {
    if (store.next == store.end) {
      std::size_t bytes = kArenaSize;
      const bool huge = hugePagesWanted() && !hugePagesDear();
      char* arena = mapHugeAligned(bytes, true, huge);
      if (!arena) arena = mapHugeAligned(bytes = kHugePage, true, huge);
      if (!arena) throw std::bad_alloc();
      store.hugeSteps = huge;
      if (!store.reservedBefore) {
        // The process's first 2 MiB are faulted in a chunk at a time in small
        // pages, so that a program needing a few blocks stays small.
        ::madvise(arena, kHugePage, MADV_NOHUGEPAGE);
        store.smallPageSteps = kHugePage / kChunkSize;
        store.reservedBefore = true;
      }
      store.next = store.faulted = arena;
      store.end = arena + bytes;
    }
    if (store.next == store.faulted) {
      std::size_t step = kHugePage;
      const bool small = store.smallPageSteps > 0;
      if (small) {
        --store.smallPageSteps;
        step = kChunkSize;
      }
      // Huge pages found dear since the arena was mapped (by a large buffer,
      // say) are dear here too: the kernel hands out the same free blocks.
      if (!small && store.hugeSteps && hugePagesDear()) stopHugeSteps(store);
      const long spent = timedPopulate(store.faulted, step);
      store.faulted += step;
      if (small) {
        store.smallSpent += spent;
        if (store.smallPageSteps == 0) noteSmallPageCost(store.smallSpent);
      } else if (store.hugeSteps) {
        // A huge step faults in as many bytes as the small steps did.
        if (hugeStepWasDear(spent, store.smallSpent)) stopHugeSteps(store);
      }
    }
    chunk = reinterpret_cast<Chunk*>(store.next);
    store.next += kChunkSize;
  }
  if (store.emptyCount > kKeptEmptyChunks) returnIdleChunks(store, nowMilliseconds());
  return chunk;
}

// `chunks`: linked through next.
void giveChunks(ChunkStore& store, Chunk* chunks) noexcept {
  const long now = nowMilliseconds();
  std::lock_guard<std::mutex> lock(store.mutex);
  while (chunks) {
    Chunk* chunk = chunks;
    chunks = chunk->next;
    chunk->emptiedAt = now;
    chunk->prev = nullptr;
    chunk->next = store.newest;
    if (store.newest) store.newest->prev = chunk;
    else store.oldest = chunk;
    store.newest = chunk;
    ++store.emptyCount;
  }
  returnIdleChunks(store, now);
}

void link(ClassStore& store, Chunk* chunk) noexcept {
  chunk->prev = nullptr;
  chunk->next = store.chunks;
  if (store.chunks) store.chunks->prev = chunk;
  store.chunks = chunk;
  chunk->listed = true;
}

void unlink(ClassStore& store, Chunk* chunk) noexcept {
  if (chunk->prev) chunk->prev->next = chunk->next;
  else store.chunks = chunk->next;
  if (chunk->next) chunk->next->prev = chunk->prev;
  chunk->listed = false;
}

// At least `wanted` blocks of class c (or what the chunks on hand have, but
// at least one), linked into `list`; the count taken. A chunk's returned
// blocks are taken as one list, without walking it, so the count may exceed
// `wanted` by a chunk's worth. Throws std::bad_alloc when no memory is left.
std::uint32_t takeBlocks(unsigned c, std::uint32_t wanted, FreeBlock*& list) {
  Shared& all = shared();
  ClassStore& store = all.classes[c];
  const std::uint32_t size = static_cast<std::uint32_t>(blockSize(c));
  FreeBlock* head = nullptr;
  FreeBlock** tail = &head;
  std::uint32_t taken = 0;
  std::lock_guard<std::mutex> lock(store.mutex);
  while (taken < wanted) {
    Chunk* chunk = store.chunks;
    if (!chunk) {
      if (taken) break;
      chunk = takeChunk(all.chunks);
      chunk->free = chunk->freeTail = nullptr;
      chunk->freeCount = 0;
      chunk->carve = reinterpret_cast<char*>(chunk) + kChunkHeader;
      chunk->used = 0;
      chunk->size = size;
      link(store, chunk);
    }
    if (chunk->free) {
      *tail = chunk->free;
      tail = &chunk->freeTail->next;
      taken += chunk->freeCount;
      chunk->used += chunk->freeCount;
      chunk->free = chunk->freeTail = nullptr;
      chunk->freeCount = 0;
    } else {
      char* const end = reinterpret_cast<char*>(chunk) + kChunkSize;
      const std::uint32_t before = taken;
      for (; taken < wanted && chunk->carve + size <= end; ++taken) {
        auto* block = reinterpret_cast<FreeBlock*>(chunk->carve);
        chunk->carve += size;
        *tail = block;
        tail = &block->next;
      }
      chunk->used += taken - before;
    }
    if (isExhausted(chunk)) unlink(store, chunk);
  }
  *tail = nullptr;
  list = head;
  return taken;
}

// Returns the blocks of `list` (class c, linked through next) to their chunks;
// chunks left with no block in use become empty chunks for any class.
void giveBlocks(unsigned c, FreeBlock* list) noexcept {
  Shared& all = shared();
  ClassStore& store = all.classes[c];
  Chunk* emptied = nullptr;
  {
    std::lock_guard<std::mutex> lock(store.mutex);
    while (list) {
      // Blocks freed one after another mostly share a chunk: each run of
      // them goes onto its chunk's list at once.
      FreeBlock* const first = list;
      Chunk* const chunk = chunkOf(first);
      FreeBlock* last = first;
      std::uint32_t run = 1;
      for (; last->next && chunkOf(last->next) == chunk; ++run) last = last->next;
      list = last->next;
      assert(chunk->size == blockSize(c) && chunk->used >= run);
      if (!chunk->free) chunk->freeTail = last;
      last->next = chunk->free;
      chunk->free = first;
      chunk->freeCount += run;
      if (!chunk->listed) link(store, chunk);
      chunk->used -= run;
      if (chunk->used == 0) {
        unlink(store, chunk);
        chunk->next = emptied;
        emptied = chunk;
      }
    }
  }
  if (emptied) giveChunks(all.chunks, emptied);
}

// Whether the thread's lists are flushed when it ends. Plain data, like the
// lists, so it stays usable while the thread's other objects are destroyed.
struct ThreadState {
  bool registered;  // the Reaper below will flush the lists
  bool dead;        // flushed: the thread is ending, the shared store serves it
};

constinit thread_local ThreadState tstate{};

// Gives the lists back when the thread ends.
struct Reaper {
  bool armed = false;
  ~Reaper() {
    ThreadFreeLists& cache = threadFreeLists;
    tstate.dead = true;
    for (unsigned c = 0; c < kClasses; ++c) {
      FreeBlock* list = cache.lists[c];
      cache.lists[c] = nullptr;
      cache.room[c] = 0;
      if (list) giveBlocks(c, list);
    }
  }
};

thread_local Reaper reaper;

void arm(ThreadFreeLists& cache) {
  reaper.armed = true;
  tstate.registered = true;
  for (unsigned c = 0; c < kClasses; ++c) cache.room[c] = listLimitOf(c);
}

// The thread's list of class c is empty.
void* refill(ThreadFreeLists& cache, unsigned c) {
  const ThreadState& state = tstate;
  FreeBlock* list = nullptr;
  if (state.dead) {
    // One block is wanted; a chunk's returned blocks come as one list.
    takeBlocks(c, 1, list);
    if (list->next) giveBlocks(c, list->next);
    return list;
  }
  if (!state.registered) arm(cache);
  const std::uint32_t taken = takeBlocks(c, batchOf(c), list);
  cache.lists[c] = list->next;
  cache.room[c] -= taken - 1;
  return list;
}

// A free that found no room in the thread's list, or came before the thread
// registered or after it ended.
void spill(ThreadFreeLists& cache, unsigned c, FreeBlock* block) noexcept {
  const ThreadState& state = tstate;
  if (!state.registered && !state.dead) {
    try {
      arm(cache);
    } catch (...) {
      // Registering the thread-exit flush failed: the block goes to the shared store.
    }
  }
  if (!state.registered || state.dead) {
    block->next = nullptr;
    giveBlocks(c, block);
    return;
  }
  if (cache.room[c]) {
    block->next = cache.lists[c];
    cache.lists[c] = block;
    --cache.room[c];
    return;
  }
  // The list is full: all of it goes to the shared store at once, without a
  // walk to cut it, and the list starts again with the block. A thread that
  // frees this much is mostly letting go of a large structure, whose blocks
  // were all just written; one that allocates again takes them back a chunk
  // at a time.
  FreeBlock* const full = cache.lists[c];
  block->next = nullptr;
  cache.lists[c] = block;
  cache.room[c] = listLimitOf(c) - 1;
  giveBlocks(c, full);
}

// Faults in `bytes` at `memory` (aligned to 2 MiB and marked for huge
// pages) 2 MiB at a time, timed as the pool's arenas are: from a step that
// costs more than small pages, the rest goes in small pages. Without the
// small-page cost yet, the first 2 MiB are faulted in small pages to find it.
void populateTimed(char* memory, std::size_t bytes) noexcept {
  char* at = memory;
  char* const end = memory + bytes;
  long smallCost = smallPageCost.load(std::memory_order_relaxed);
  if (!smallCost) {
    ::madvise(at, kHugePage, MADV_NOHUGEPAGE);
    smallCost = noteSmallPageCost(timedPopulate(at, kHugePage));
    at += kHugePage;
  }
  while (at < end) {
    const auto step = std::min(kHugePage, static_cast<std::size_t>(end - at));
    const long spent = timedPopulate(at, step);
    at += step;
    if (step == kHugePage && hugeStepWasDear(spent, smallCost) && at < end) {
      ::madvise(at, static_cast<std::size_t>(end - at), MADV_NOHUGEPAGE);
      populate(at, static_cast<std::size_t>(end - at));
      return;
    }
  }
}

// `bytes` faulted in at once: from 4 MiB up in huge pages where they are
// asked for and the kernel offers them cheaply (see populateTimed), else in
// small pages.
void* mapLarge(std::size_t bytes) {
  if (bytes >= 2 * kHugePage) {
    const bool huge = hugePagesWanted() && !hugePagesDear();
    char* memory = mapHugeAligned(bytes, false, huge);
    if (!memory) throw std::bad_alloc();
    if (huge)
      populateTimed(memory, bytes);
    else
      populate(memory, bytes);
    return memory;
  }
  void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return memory;
}

}  // namespace

// The lists stay empty and without room while the pool is disabled, so the
// inline fast paths always come here.
constinit thread_local ThreadFreeLists threadFreeLists{};

void* smallAllocateSlowly(std::size_t size) {
  if (Y_POOL_DISABLED || size > kSmallObjectLimit) return ::operator new(size);
  const unsigned c = classOf(size);
  ThreadFreeLists& cache = threadFreeLists;
  if (FreeBlock* block = cache.lists[c]) {  // a zero size, which the fast path leaves out
    cache.lists[c] = block->next;
    ++cache.room[c];
    return block;
  }
  return refill(cache, c);
}

void smallDeallocateSlowly(void* block, std::size_t size) noexcept {
  if (!block) return;
  if (Y_POOL_DISABLED || size > kSmallObjectLimit) return ::operator delete(block);
  const unsigned c = classOf(size);
  ThreadFreeLists& cache = threadFreeLists;
  auto* free = static_cast<FreeBlock*>(block);
  if (!cache.room[c]) return spill(cache, c, free);
  free->next = cache.lists[c];
  cache.lists[c] = free;
  --cache.room[c];
}

void* largeAllocate(std::size_t size) {
  if (Y_POOL_DISABLED || size < kLargeBuffer) return ::operator new(size);
  return mapLarge(pageRounded(size));
}

void largeDeallocate(void* buffer, std::size_t size) noexcept {
  if (!buffer) return;
  if (Y_POOL_DISABLED || size < kLargeBuffer) return ::operator delete(buffer);
  ::munmap(buffer, pageRounded(size));
}

}  // namespace ydetail
