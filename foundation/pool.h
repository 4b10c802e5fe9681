#ifndef QUILLON_FOUNDATION_POOL_H_
#define QUILLON_FOUNDATION_POOL_H_

#include <cstddef>
#include <cstdint>
#include <new>

namespace quillon {

/// Memory for what a format file makes by the million: list nodes, short texts, map entries, components. Taking a block
/// and giving it back is a few instructions where the heap would look for neighbours to join. Memory given back is kept
/// for blocks of the same size; blocks above kLargest come from the heap. For one thread. A build with the address
/// sanitizer takes every block from the heap, so that its misuse is noticed.
///
/// Blocks of one size lie in chunks, each with a list of its free ones, as in Bonwick's slab allocator (USENIX Summer
/// 1994). So what is made in a row lies together also after much was given back in another order.
class Pool {
 public:
  static constexpr std::size_t kLargest = 256;

  static void* allocate(std::size_t size) {
    if (!pooled(size)) return ::operator new(size);
    Chunk*& chunk = open_[sizeClass(size)];
    if (!chunk) chunk = newChunk(sizeClass(size));
    Free* const block = chunk->free;
    chunk->free = block->next;
    if (!chunk->free) chunk = chunk->next;
    return block;
  }

  /// `size` is what the block was asked for with.
  static void deallocate(void* block, std::size_t size) {
    if (!pooled(size)) {
      ::operator delete(block);
      return;
    }
    const std::uintptr_t within = reinterpret_cast<std::uintptr_t>(block) & (kChunk - 1);
    auto* const chunk = reinterpret_cast<Chunk*>(static_cast<char*>(block) - within);
    Chunk*& open = open_[sizeClass(size)];
    if (!chunk->free) {
      chunk->next = open;
      open = chunk;
    }
    chunk->free = new (block) Free{chunk->free};
  }

 private:
  struct Free {
    Free* next;
  };

  /// The start of each piece of memory that is cut into blocks.
  struct Chunk {
    Chunk* next;  ///< The next one with free blocks, of those of the same size.
    Free* free;   ///< Null when all blocks are taken; the chunk is then in no list.
  };

  static constexpr std::uintptr_t kChunk = 16384;  ///< Size and alignment.

  static constexpr bool pooled(std::size_t size) {
#ifdef __SANITIZE_ADDRESS__
    return size == 0;
#else
    return size <= kLargest;
#endif
  }

  static constexpr std::size_t sizeClass(std::size_t size) { return (size + sizeof(Free) - 1) / sizeof(Free); }

  /// Its blocks are handed out in the order of their addresses.
  static Chunk* newChunk(std::size_t index) {
    const std::size_t size = index * sizeof(Free);
    char* const memory = nextChunk();
    Chunk* const chunk = new (memory) Chunk{nullptr, nullptr};
    for (std::size_t i = (kChunk - sizeof(Chunk)) / size; i-- > 0;) {
      chunk->free = new (memory + sizeof(Chunk) + i * size) Free{chunk->free};
    }
    return chunk;
  }

  /// Chunks come from the heap many at a time: each alone would cost another one for its alignment.
  static char* nextChunk() {
    if (left_ == 0) {
      reserve_ = static_cast<char*>(::operator new (kReserve* kChunk, std::align_val_t{kChunk}));
      left_ = kReserve;
    }
    return reserve_ + (kReserve - left_--) * kChunk;
  }

  static constexpr std::size_t kReserve = 64;
  static inline char* reserve_ = nullptr;
  static inline std::size_t left_ = 0;                           ///< Chunks of `reserve_` that have not been used.
  static inline Chunk* open_[kLargest / sizeof(Free) + 1] = {};  ///< By size: the chunks with free blocks.
};

/// Base of classes whose objects, and those of their derived classes, come from the pool.
class Pooled {
 public:
  static void* operator new(std::size_t size) { return Pool::allocate(size); }
  static void operator delete(void* block, std::size_t size) { Pool::deallocate(block, size); }
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_POOL_H_
