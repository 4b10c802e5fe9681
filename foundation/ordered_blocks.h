#ifndef QUILLON_FOUNDATION_ORDERED_BLOCKS_H_
#define QUILLON_FOUNDATION_ORDERED_BLOCKS_H_

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace quillon {

/// Whose turn it is to hand over results. Safe for all threads.
class Turns {
 public:
  /// Waits until the turns of all blocks before `block` are over.
  void await(std::uint64_t block);
  /// Ends the present turn.
  void pass();

 private:
  std::mutex mutex_;
  std::condition_variable passed_;
  std::uint64_t present_ = 0;
};

/// What one thread of runInOrder() does, again and again. Objects of the same run may share what take() uses, and what
/// give() uses, without locks of their own. None of the three may throw.
class BlockWorker {
 public:
  /// The turn of the block at hand, for a worker that must hand over a part of a large result before it has all. Lives
  /// until the end of give().
  class Turn {
   public:
    Turn(Turns& turns, std::uint64_t block) : turns_(turns), block_(block) {}
    /// Waits until it has come; from then on what give() uses may be used.
    void await() { turns_.await(block_); }

   private:
    Turns& turns_;
    const std::uint64_t block_;
  };

  virtual ~BlockWorker() = default;

  /// Gets the next block; one worker at a time. False when there is none, and then none of the workers is asked again.
  virtual bool take() = 0;
  /// Works on the block, at the same time as others do on theirs.
  virtual void work(Turn& turn) = 0;
  /// Hands over the results; one worker at a time, in the order in which the blocks were taken.
  virtual void give() = 0;
};

/// Takes blocks, works on them in up to `threads` threads, this one among them, and hands over the results in order;
/// returns when all are handed over. `make` gives each thread its worker, while no take() is going on; the first
/// worker belongs to this thread, a further one comes with each block until all threads are there. Where the system has
/// no more threads or memory, it goes on with those there are; only for the first one `make` may throw.
///
/// Each worker has one block at a time, so there are never more blocks than threads.
void runInOrder(std::size_t threads, const std::function<std::unique_ptr<BlockWorker>()>& make);

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_ORDERED_BLOCKS_H_
