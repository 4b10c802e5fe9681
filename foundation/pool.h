#ifndef QUILLON_FOUNDATION_POOL_H_
#define QUILLON_FOUNDATION_POOL_H_

#include <cstddef>
#include <new>
#include <utility>

namespace quillon {

/// Memory for what a format file makes by the million: list nodes, short texts, map entries, components. Taking a block
/// and giving it back is a few instructions where the heap would look for neighbours to join. Blocks given back are
/// kept for the next ones of their size; blocks above kLargest come from the heap. For one thread. A build with the
/// address sanitizer takes every block from the heap, so that its misuse is noticed.
class Pool {
 public:
  static constexpr std::size_t kLargest = 256;

  static void* allocate(std::size_t size) {
    if (!pooled(size)) return ::operator new(size);
    Free*& first = free_[sizeClass(size)];
    if (!first) refill(sizeClass(size));
    return std::exchange(first, first->next);
  }

  /// `size` is what the block was asked for with.
  static void deallocate(void* block, std::size_t size) {
    if (pooled(size)) {
      give(block, sizeClass(size));
    } else {
      ::operator delete(block);
    }
  }

 private:
  struct Free {
    Free* next;
  };

  static constexpr std::size_t kRefill = 16384;

  static constexpr bool pooled(std::size_t size) {
#ifdef __SANITIZE_ADDRESS__
    return size == 0;
#else
    return size <= kLargest;
#endif
  }

  static constexpr std::size_t sizeClass(std::size_t size) { return (size + sizeof(Free) - 1) / sizeof(Free); }

  static void give(void* block, std::size_t index) { free_[index] = new (block) Free{free_[index]}; }

  /// In order of addresses, so that what is made together lies together.
  static void refill(std::size_t index) {
    const std::size_t size = index * sizeof(Free);
    char* const blocks = static_cast<char*>(::operator new(kRefill));
    for (std::size_t i = kRefill / size; i-- > 0;) give(blocks + i * size, index);
  }

  static inline Free* free_[kLargest / sizeof(Free) + 1] = {};
};

/// Base of classes whose objects, and those of their derived classes, come from the pool.
class Pooled {
 public:
  static void* operator new(std::size_t size) { return Pool::allocate(size); }
  static void operator delete(void* block, std::size_t size) { Pool::deallocate(block, size); }
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_POOL_H_
