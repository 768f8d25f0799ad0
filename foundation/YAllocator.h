/// \file YAllocator.h
/// Allocation of the many small objects a document is made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace ydetail {
/// Blocks of at most this many bytes come from the small-object pool.
inline constexpr std::size_t kSmallObjectLimit = 256;
/// The pool's size classes are multiples of this many bytes.
inline constexpr std::size_t kSmallObjectGranule = 16;
inline constexpr unsigned kSmallObjectClasses = kSmallObjectLimit / kSmallObjectGranule;

/// A free block, linked into a list through its first word.
struct FreeBlock {
  FreeBlock* next;
};

/// A thread's own free lists, one per size class, and how many blocks each
/// may still take. Zero room sends every free to the slow path: so it is
/// until the thread registers its exit flush, after the flush, and always
/// while the pool is disabled. Only the pool and the inline paths below use it.
struct ThreadFreeLists {
  FreeBlock* lists[kSmallObjectClasses];
  std::uint32_t room[kSmallObjectClasses];
};
extern constinit thread_local ThreadFreeLists threadFreeLists;

/// The paths of smallAllocate() and smallDeallocate() that leave the
/// thread's lists: refilling and spilling them, sizes out of range.
void* smallAllocateSlowly(std::size_t size);
void smallDeallocateSlowly(void* block, std::size_t size) noexcept;

/// Memory for `size` bytes, aligned to 16. Sizes up to kSmallObjectLimit are
/// carved, in 16-byte size classes and with no per-block header, from 64 KiB
/// chunks of pre-faulted memory (in small pages; with CORVANE_POOL_HUGE_PAGES=1
/// in the environment, in transparent huge pages while they fault in faster
/// than small ones), and recycled through bounded per-thread free lists;
/// larger ones go to operator new. Throws std::bad_alloc when no memory is
/// left.
///
/// Resident memory follows the peak live set: blocks beyond a thread's lists
/// (128 KiB a class) go back to their chunks, whichever thread frees them, and
/// chunks whose blocks all came back serve any size class; those left unused
/// for a second (beyond 4 MiB of them) are given back to the system the next
/// time a chunk is taken or emptied.
inline void* smallAllocate(std::size_t size) {
  if (size - 1 < kSmallObjectLimit) {  // a zero size wraps round to the slow path
    ThreadFreeLists& own = threadFreeLists;
    const std::size_t c = (size - 1) / kSmallObjectGranule;
    if (FreeBlock* block = own.lists[c]) {
      own.lists[c] = block->next;
      ++own.room[c];
      return block;
    }
  }
  return smallAllocateSlowly(size);
}
/// Gives back a block from smallAllocate(); `size` must be the size asked for.
/// Any thread may give back any block, also while threads end.
inline void smallDeallocate(void* block, std::size_t size) noexcept {
  if (block && size - 1 < kSmallObjectLimit) {
    ThreadFreeLists& own = threadFreeLists;
    const std::size_t c = (size - 1) / kSmallObjectGranule;
    if (own.room[c]) {
      auto* free = static_cast<FreeBlock*>(block);
      free->next = own.lists[c];
      own.lists[c] = free;
      --own.room[c];
      return;
    }
  }
  smallDeallocateSlowly(block, size);
}

/// Memory for `size` bytes of one large buffer. Sizes from 1 MiB up are
/// mapped with their pages faulted in at once (much cheaper than a fault per
/// page on first touch), from 4 MiB up in huge pages where the pool takes
/// them (see smallAllocate()) and they fault in faster than small pages;
/// smaller ones go to operator new. Throws std::bad_alloc when no memory is
/// left.
void* largeAllocate(std::size_t size);
/// Gives back a buffer from largeAllocate(); `size` as asked for. A mapped
/// buffer goes straight back to the system.
void largeDeallocate(void* buffer, std::size_t size) noexcept;
}  // namespace ydetail

/// A standard allocator over the small-object pool, for std::allocate_shared
/// and containers of small nodes. Stateless: all instances are interchangeable.
template <class T>
struct YSmallObjectAllocator {
  using value_type = T;  ///< the type allocated
  YSmallObjectAllocator() noexcept = default;
  /// The allocator rebound from another type (there is no state to copy).
  template <class U>
  YSmallObjectAllocator(const YSmallObjectAllocator<U>&) noexcept {}

  /// Room for `n` objects of T, uninitialised: from the pool when it fits a
  /// small block, else from std::allocator. Throws std::bad_alloc.
  T* allocate(std::size_t n) {
    if constexpr (alignof(T) > 16) return std::allocator<T>().allocate(n);
    else {
      if (n > ydetail::kSmallObjectLimit / sizeof(T) + 1) return std::allocator<T>().allocate(n);
      return static_cast<T*>(ydetail::smallAllocate(n * sizeof(T)));
    }
  }
  /// Gives back `p`, from allocate() with the same `n`.
  void deallocate(T* p, std::size_t n) noexcept {
    if constexpr (alignof(T) > 16) std::allocator<T>().deallocate(p, n);
    else {
      if (n > ydetail::kSmallObjectLimit / sizeof(T) + 1) return std::allocator<T>().deallocate(p, n);
      ydetail::smallDeallocate(p, n * sizeof(T));
    }
  }
  /// Always true: memory from one instance may be given back through any other.
  template <class U>
  friend bool operator==(const YSmallObjectAllocator&, const YSmallObjectAllocator<U>&) noexcept {
    return true;
  }
};

/// std::make_shared with the object and its reference counts in one pooled block.
template <class T, class... Args>
std::shared_ptr<T> YMakeShared(Args&&... args) {
  return std::allocate_shared<T>(YSmallObjectAllocator<T>(), std::forward<Args>(args)...);
}
