#include "foundation/ordered_blocks.h"

#include <exception>
#include <thread>
#include <utility>
#include <vector>

namespace quillon {
namespace {

class Run {
 public:
  Run(std::size_t threads, const std::function<std::unique_ptr<BlockWorker>()>& make) : most_(threads), make_(make) {}

  void work(BlockWorker& worker) {
    std::uint64_t block;
    while (take(worker, block)) {
      BlockWorker::Turn turn(turns_, block);
      worker.work(turn);
      turn.await();
      worker.give();
      turns_.pass();
    }
  }

  /// After the work of this thread: there are no new threads any more.
  void join() {
    for (std::thread& thread : threads_) thread.join();
  }

 private:
  bool take(BlockWorker& worker, std::uint64_t& block) {
    const std::lock_guard lock(taking_);
    ended_ = ended_ || !worker.take();
    if (ended_) return false;
    block = taken_++;
    if (threads_.size() + 1 < most_) addThread();
    return true;
  }

  void addThread() {
    try {
      threads_.reserve(most_);
      threads_.emplace_back([this, worker = std::shared_ptr<BlockWorker>(make_())] { work(*worker); });
    } catch (const std::exception&) {
      most_ = 0;  // too few threads or too little memory: it goes on with those there are
    }
  }

  Turns turns_;
  std::mutex taking_;  ///< Guards what follows, and all take().
  std::uint64_t taken_ = 0;
  bool ended_ = false;
  std::size_t most_;  ///< Threads that there may be.
  const std::function<std::unique_ptr<BlockWorker>()>& make_;
  std::vector<std::thread> threads_;
};

}  // namespace

void Turns::await(std::uint64_t block) {
  std::unique_lock lock(mutex_);
  passed_.wait(lock, [this, block] { return present_ == block; });
}

void Turns::pass() {
  {
    const std::lock_guard lock(mutex_);
    ++present_;
  }
  passed_.notify_all();
}

void runInOrder(std::size_t threads, const std::function<std::unique_ptr<BlockWorker>()>& make) {
  const std::unique_ptr<BlockWorker> worker = make();
  Run run(threads, make);
  run.work(*worker);
  run.join();
}

}  // namespace quillon
