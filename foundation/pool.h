#ifndef QUILLON_FOUNDATION_POOL_H_
#define QUILLON_FOUNDATION_POOL_H_

#include <cstddef>
#include <cstdint>
#include <new>

namespace quillon {

/// Memory for what a format file makes by the million: lists, short texts, map entries, components. Taking a block and
/// giving it back is a few instructions where the heap would look for neighbours to join. What is given back is kept
/// for blocks of the same size; blocks above kLargest come from the heap. For any number of threads: a block may be
/// given back by another thread than the one that took it, and may outlive that thread.
///
/// Blocks of one size lie in chunks, each with a list of its free ones, as in Bonwick's slab allocator (USENIX Summer
/// 1994). So what is made in a row lies together also after much was given back in another order. Each thread takes
/// from chunks of its own, without a lock; what another thread gives back waits for it in a list. When a thread ends,
/// its chunks wait for the next one that begins.
///
/// A library built with the address sanitizer takes every block from the heap, so that misuse is noticed. That is the
/// library's choice alone: the programs that use it may be built with the sanitizer or without.
class Pool {
 public:
  static constexpr std::size_t kLargest = 256;

  /// A block of `size` bytes, aligned to 16 where `size` is a multiple of that, else to 8. Throws std::bad_alloc.
  [[nodiscard]] static void* allocate(std::size_t size) {
    if (size > kLargest) return ::operator new(size);
    Chunk* const chunk = mine_->open[sizeClass(size)];
    return chunk ? take(chunk) : refill(size);
  }

  /// `size` is what the block was asked for with.
  static void deallocate(void* block, std::size_t size) noexcept {
    if (size > kLargest) {
      ::operator delete(block);
    } else if (mine_ != &none_ && chunkOf(block)->owner == mine_) {
      put(chunkOf(block), block);
    } else {
      giveBack(block);
    }
  }

 private:
  struct Free {
    Free* next;
  };
  struct Shelf;

  /// The start of each piece of memory that is cut into blocks.
  struct Chunk {
    Shelf* owner;
    Chunk* next;  ///< The next open one of the same owner and size.
    Free* free;   ///< Null when all blocks are taken; otherwise the chunk is among the open ones.
    std::uint32_t sizeClass;
    std::uint32_t uncut;  ///< Where the bytes begin that have not been cut into blocks.
  };

  static constexpr std::size_t kStep = 8;
  static constexpr std::size_t kClasses = kLargest / kStep + 1;
  static constexpr std::uintptr_t kChunk = 16384;  ///< Size and alignment.

  static constexpr std::size_t sizeClass(std::size_t size) { return (size + kStep - 1) / kStep; }

  static Chunk* chunkOf(void* block) {
    return reinterpret_cast<Chunk*>(static_cast<char*>(block) -
                                    (reinterpret_cast<std::uintptr_t>(block) & (kChunk - 1)));
  }

  /// What the chunks of one thread are reached by.
  struct Shelf {
    Chunk* open[kClasses];  ///< By size: the chunks with free blocks.
  };
  struct Stock;

  static void* take(Chunk* chunk) {
    Free* const block = chunk->free;
    chunk->free = block->next;
    if (!chunk->free) cut(chunk);
    return block;
  }

  static void put(Chunk* chunk, void* block) {
    if (!chunk->free) {
      chunk->next = chunk->owner->open[chunk->sizeClass];
      chunk->owner->open[chunk->sizeClass] = chunk;
    }
    chunk->free = new (block) Free{chunk->free};
  }

  static void cut(Chunk* chunk) noexcept;
  static void* refill(std::size_t size);
  static void giveBack(void* block) noexcept;

  static Shelf none_;  ///< That of a thread that has none: empty.
  static constinit thread_local Shelf* mine_;
};

/// Base of classes whose objects, and those of their derived classes, come from the pool. Objects that want more
/// alignment than others, and arrays, come from the heap.
class Pooled {
 public:
  static void* operator new(std::size_t size) { return Pool::allocate(size); }
  /// Null when memory is exhausted. An object whose constructor throws keeps its block: nobody knows its size.
  static void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
      return Pool::allocate(size);
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }
  static void* operator new(std::size_t /*size*/, void* place) noexcept { return place; }
  static void* operator new(std::size_t size, std::align_val_t alignment) { return ::operator new(size, alignment); }

  static void operator delete(void* block, std::size_t size) noexcept { Pool::deallocate(block, size); }
  static void operator delete(void* /*block*/, const std::nothrow_t& /*tag*/) noexcept {}
  static void operator delete(void* /*block*/, void* /*place*/) noexcept {}
  static void operator delete(void* block, std::size_t /*size*/, std::align_val_t alignment) noexcept {
    ::operator delete(block, alignment);
  }
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_POOL_H_
