#include "foundation/ordered_blocks.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <vector>

namespace quillon {
namespace {

/// Doubles the numbers from 0 to 199; every seventh needs more time, every tenth hands over something in advance.
class Doubler : public BlockWorker {
 public:
  struct Shared {
    int taken = 0;
    int asked = 0;  ///< Times, after the last number was taken.
    int workers = 0;
    std::vector<int> given;
  };
  explicit Doubler(Shared& shared) : shared_(shared) { ++shared_.workers; }

  bool take() override {
    number_ = shared_.taken;
    if (number_ == 200) ++shared_.asked;
    if (number_ < 200) ++shared_.taken;
    return number_ < 200;
  }
  void work(Turn& turn) override {
    volatile int busy = number_ % 7 == 0 ? 30000 : 300;
    while (busy > 0) busy = busy - 1;
    if (number_ % 10 == 0) {
      turn.await();
      shared_.given.push_back(-number_);
    }
    result_ = 2 * number_;
  }
  void give() override { shared_.given.push_back(result_); }

 private:
  Shared& shared_;
  int number_ = 0;
  int result_ = 0;
};

TEST(OrderedBlocks, ThreadsHandOverInOrder) {
  std::vector<int> expected;
  for (int n = 0; n < 200; ++n) {
    if (n % 10 == 0) expected.push_back(-n);
    expected.push_back(2 * n);
  }
  for (std::size_t threads : {1, 2, 7}) {
    Doubler::Shared shared;
    runInOrder(threads, [&shared] { return std::make_unique<Doubler>(shared); });
    EXPECT_EQ(expected, shared.given);
    EXPECT_EQ(1, shared.asked);
    EXPECT_EQ(threads, static_cast<std::size_t>(shared.workers));
  }
}

TEST(OrderedBlocks, FewerThreadsDoToo) {
  Doubler::Shared shared;
  runInOrder(4, [&shared] {
    if (shared.workers == 2) throw std::system_error(EAGAIN, std::generic_category());
    return std::make_unique<Doubler>(shared);
  });
  EXPECT_EQ(220U, shared.given.size());
}

}  // namespace
}  // namespace quillon
