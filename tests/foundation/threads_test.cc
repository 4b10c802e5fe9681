#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "foundation/bounded_queue.h"
#include "foundation/pool.h"
#include "foundation/strobj.h"

namespace {

using quillon::BoundedQueue;
using quillon::Pool;

#ifdef __SANITIZE_ADDRESS__
constexpr bool kPooled = false;
#else
constexpr bool kPooled = true;
#endif

constexpr std::size_t kBlock = 40;
constexpr int kBlocks = 2000;

/// Some blocks; the last one that holds them gives them back.
class Blocks {
 public:
  void take() {
    for (int i = 0; i < kBlocks; ++i) blocks_.push_back(Pool::allocate(kBlock));
  }
  std::set<void*> addresses() const { return {blocks_.begin(), blocks_.end()}; }
  Blocks() = default;
  Blocks(Blocks&&) = default;
  ~Blocks() {
    for (void* block : blocks_) Pool::deallocate(block, kBlock);
  }

 private:
  std::vector<void*> blocks_;
};

// Whoever gives blocks back, and however late: the next thread that needs some gets them.
TEST(PoolThreads, NothingIsLost) {
  std::set<void*> first;
  std::set<void*> again;
  const auto inThread = [](std::set<void*>& addresses, const auto& keep) {
    std::thread([&] {
      Blocks& blocks = keep();
      blocks.take();
      addresses = blocks.addresses();
    }).join();
  };
  {
    Blocks outlives;
    inThread(first, [&]() -> Blocks& { return outlives; });
    EXPECT_EQ(static_cast<std::size_t>(kBlocks), first.size());
  }
  inThread(again, []() -> Blocks& {  // made before the thread's memory, so it ends after that
    thread_local Blocks late;
    return late;
  });
  EXPECT_TRUE(!kPooled || first == again);
  Blocks here;
  inThread(again, [&]() -> Blocks& { return here; });
  EXPECT_TRUE(!kPooled || first == again);
}

using Texts = std::vector<qlStrobj>;

/// Texts that all threads copy.
const qlStrobj& everyones() {
  static const qlStrobj text = qlStrobj::permanent("everyone's");
  return text;
}

// Blocks, and copies of texts that many have, go round between threads that write to them and let go of them.
TEST(PoolThreads, TextsTravel) {
  constexpr std::size_t kThreads = 3;
  constexpr int kRounds = 300;
  std::vector<std::unique_ptr<BoundedQueue<Texts>>> queues;
  for (std::size_t i = 0; i < kThreads; ++i) {
    queues.push_back(std::make_unique<BoundedQueue<Texts>>(kThreads));
    EXPECT_TRUE(queues[i]->push(Texts(50)));
  }
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&from = *queues[i], &to = *queues[(i + 1) % kThreads]] {
      for (int round = 0; round < kRounds; ++round) {
        std::optional<Texts> texts = from.pop();
        const std::string before = round == 0 ? "" : round % 2 == 1 ? "everyone's0" : "long" + std::string(100, 'g');
        for (qlStrobj& text : *texts) {
          if (text.view() != before) ADD_FAILURE() << text.getString() << " in round " << round;
          text.clear();
          if (round % 2 == 0) {
            text = everyones();
            text << "0";
          } else {
            text = qlStrobj("long") << std::string(100, 'g').c_str();
          }
        }
        if (!to.push(*texts)) ADD_FAILURE();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(QueueThreads, OrderAndBound) {
  BoundedQueue<std::unique_ptr<int>> queue(3);
  std::atomic<int> ahead = 0;
  int most = 0;
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) {
      if (!queue.push(std::make_unique<int>(i))) ADD_FAILURE();
      ++ahead;
    }
    queue.close();
  });
  int expected = 0;
  while (const auto element = queue.pop()) {
    most = std::max(most, --ahead);
    EXPECT_EQ(expected++, **element);
  }
  writer.join();
  EXPECT_EQ(2000, expected);
  EXPECT_LE(most, 3);
}

TEST(QueueThreads, ClosingWakesThoseThatWait) {
  BoundedQueue<std::unique_ptr<int>> full(0);  // has room for one all the same
  BoundedQueue<int> empty(1);
  EXPECT_TRUE(full.push(std::make_unique<int>(1)));
  auto kept = std::make_unique<int>(2);
  std::thread writer([&] { EXPECT_FALSE(full.push(kept)); });
  std::thread reader([&] { EXPECT_FALSE(empty.pop()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // likely they wait; if not, the answers are the same
  full.close();
  empty.close();
  writer.join();
  reader.join();
  EXPECT_TRUE(kept);
  EXPECT_TRUE(full.pop());  // what was in it before
  EXPECT_FALSE(full.pop());
}

}  // namespace
