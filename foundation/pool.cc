#include "foundation/pool.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

namespace quillon {
namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr bool kFromHeap = true;
#else
constexpr bool kFromHeap = false;
#endif

/// What is asked of the heap at a time: one chunk alone would cost another for its alignment. Of the first piece only
/// the chunks in use cost memory. Further ones are for large models and as large as the system's large pages, which
/// take a tenth off the time of a large compile.
constexpr std::size_t kFirstPiece = std::size_t{1} << 20;
constexpr std::size_t kLargePage = std::size_t{2} << 20;
constexpr std::size_t kCut = 1024;  ///< Bytes cut into blocks at a time.

}  // namespace

/// All that a thread has in the pool. Lives as long as the process and serves one thread after another.
struct Pool::Stock : Shelf {
  Stock() : Shelf{} {}

  std::atomic<Free*> returned = nullptr;  ///< Blocks of its chunks that other threads gave back.
  char* reserve = nullptr;                ///< The rest of the latest piece.
  std::size_t left = 0;                   ///< Its bytes.
  Stock* next = nullptr;

  static constinit std::mutex mutex;
  static Stock* idle;                        ///< Those that serve no thread.
  static constinit thread_local bool ended;  ///< This thread has had one and is about to end.

  /// One that no thread has.
  static Stock* acquire() {
    const std::lock_guard lock(mutex);
    return idle ? std::exchange(idle, idle->next) : new Stock;
  }

  static void release(Stock* stock) noexcept {
    const std::lock_guard lock(mutex);
    stock->next = std::exchange(idle, stock);
  }

  void* allocate(std::size_t index) {
    collect();
    if (!open[index]) open[index] = newChunk(index);
    return take(open[index]);
  }

  /// Puts the blocks that other threads gave back where they belong.
  void collect() noexcept {
    if (!returned.load(std::memory_order_relaxed)) return;
    for (Free* block = returned.exchange(nullptr, std::memory_order_acquire); block;) {
      Free* const following = block->next;
      put(chunkOf(block), block);
      block = following;
    }
  }

  Chunk* newChunk(std::size_t index) {
    if (left == 0) {
      const std::size_t size = reserve ? kLargePage : kFirstPiece;
      reserve = static_cast<char*>(::operator new (size, std::align_val_t{size}));
      left = size;
      if (size == kLargePage) madvise(reserve, size, MADV_HUGEPAGE);  // no more than a wish
    }
    left -= kChunk;
    char* const memory = std::exchange(reserve, reserve + kChunk);
    auto* const chunk = new (memory) Chunk{this, nullptr, nullptr, static_cast<std::uint32_t>(index), sizeof(Chunk)};
    cut(chunk);
    return chunk;
  }
};

constinit std::mutex Pool::Stock::mutex;
constinit Pool::Stock* Pool::Stock::idle = nullptr;
constinit thread_local bool Pool::Stock::ended = false;
constinit Pool::Shelf Pool::none_ = {};
constinit thread_local Pool::Shelf* Pool::mine_ = &Pool::none_;

/// Gives a chunk without free blocks the next ones; when all are taken it is not open any more.
void Pool::cut(Chunk* chunk) noexcept {
  const std::size_t size = chunk->sizeClass > 0 ? chunk->sizeClass * kStep : 2 * kStep;
  const std::size_t count = std::min((kChunk - chunk->uncut) / size, std::max<std::size_t>(kCut / size, 1));
  if (count == 0) {
    chunk->owner->open[chunk->sizeClass] = chunk->next;
    return;
  }
  char* const first = reinterpret_cast<char*>(chunk) + chunk->uncut;
  for (std::size_t i = count; i-- > 0;) chunk->free = new (first + i * size) Free{chunk->free};
  chunk->uncut += static_cast<std::uint32_t>(count * size);
}

void* Pool::refill(std::size_t size) {
  if (kFromHeap) return ::operator new(size);
  struct Loan {
    Stock* const stock = Stock::acquire();
    ~Loan() { Stock::release(stock); }
  };
  struct Span : Loan {
    Span() { mine_ = stock; }
    ~Span() {
      mine_ = &none_;
      Stock::ended = true;
    }
  };
  if (mine_ == &none_) {
    // Objects that end later than the thread's stock borrow one for each block.
    if (Stock::ended) return Loan().stock->allocate(sizeClass(size));
    static thread_local const Span span;
  }
  return static_cast<Stock*>(mine_)->allocate(sizeClass(size));
}

/// Back to the stock that the block came from, whichever thread that serves now, if any.
void Pool::giveBack(void* block) noexcept {
  if (kFromHeap) {
    ::operator delete(block);
    return;
  }
  std::atomic<Free*>& returned = static_cast<Stock*>(chunkOf(block)->owner)->returned;
  Free* const freed = new (block) Free{returned.load(std::memory_order_relaxed)};
  while (!returned.compare_exchange_weak(freed->next, freed, std::memory_order_release, std::memory_order_relaxed)) {
  }
}

}  // namespace quillon
