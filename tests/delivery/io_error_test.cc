// The n-th call of the system fails, for every n until none is left: once, for a while, with each error. Nothing that
// was taken is lost, now or by a loss of power then, it is told, and the cache goes on by itself.

#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <set>
#include <string>

#include "delivery/cache/Cache.h"
#include "tests/delivery/support/memory_files.h"

namespace quillon::delivery {
namespace {

struct Trouble {
  const char* call;  ///< That fails; all when empty.
  int error;
  int times;
  bool isShort;  ///< Every write takes half of what it is given.
};

/// One run of a cache that is opened three times, with one failure.
class Sequence {
 public:
  Sequence(Sync sync, const Trouble& trouble, int at) {
    options_.directory = "d";
    options_.sync = sync;
    options_.syncInterval = std::chrono::milliseconds(2);
    options_.segmentBytes = 600;
    options_.replayWindow = std::chrono::milliseconds(0);
    options_.report = [this](const std::string& text) { said_ += text + '\n'; };
    files_.writesAreShort = trouble.isShort;
    isShortTrouble_ = trouble.times == 1;
    files_.fault = [this, trouble, at](const std::string& call) {
      if (*trouble.call && call != trouble.call) return 0;
      const int n = ++calls_;
      return n >= at && n < at + trouble.times ? trouble.error : 0;
    };
  }

  /// What was wrong; empty when nothing was.
  std::string run() {
    for (int session = 0; session < 3 && fault_.empty(); ++session) {
      open();
      for (int i = 0; i < 5 && fault_.empty(); ++i) append();
      readSome();
      cache_->tidy(now_ += std::chrono::milliseconds(5));
      // A process that ends while its disk takes neither a sync nor a note that there was none is more than the cache
      // is made for: the next one would be told by the system that all is well.
      for (int tries = 0; !isShortTrouble_ && !cache_->sync(now_) && tries < 50;) ++tries;
      files_.isDead = session == 1;  // as if it were killed
      reader_.reset();
      cache_.reset();
      files_.isDead = false;
      powerLoss();
    }
    open();
    while (readSome()) {
    }
    reader_.reset();
    cache_.reset();
    for (int i = 1; i <= sent_; ++i) {
      if (!arrived_.contains(i)) complain("event " + std::to_string(i) + " is lost");
    }
    return fault_;
  }

  bool hasFailed(int at) const { return calls_ >= at; }
  bool wasTold() const { return !said_.empty(); }

 private:
  void complain(const std::string& what) {
    if (fault_.empty()) fault_ = what + '\n' + said_;
  }

  void open() {
    std::string error;
    for (int tries = 0; !(cache_ = Cache::open(options_, error, files_)); ++tries) {
      said_ += error + '\n';
      if (tries > 50) std::abort();
    }
    reader_ = cache_->reader("r");
    position();
  }

  void position() {
    const auto& positions = cache_->positions();
    const int position = positions.contains("s") ? std::stoi(positions.at("s")) : 0;
    if (position < safe_) complain("the position goes back to " + std::to_string(position));
    sent_ = position;
  }

  void append() {
    Batch batch;
    for (int k = 1; k <= 2; ++k) batch.add(std::to_string(sent_ + k) + std::string(70, '.'));
    batch.setPosition("s", std::to_string(sent_ + 2));
    for (int tries = 0; cache_->append(batch, now_ += std::chrono::milliseconds(1)) != Cache::Result::kTaken; ++tries) {
      if (said_.empty()) complain("a failure that is not told");
      if (tries > 50) return complain("does not go on");
    }
    sent_ += 2;
    if (options_.sync != Sync::kOff && cache_->safe() == cache_->end()) safe_ = sent_;
  }

  bool readSome() {
    Reader::Events events;
    for (int tries = 0; tries < 50; ++tries) {
      const Reader::Result result = reader_->read(events);
      if (result == Reader::Result::kFailed) continue;
      if (result == Reader::Result::kNothing) return false;
      for (const Event& event : events.events) arrived_.insert(std::stoi(std::string(event.bytes)));
      reader_->acknowledge(events.end);
      return true;
    }
    complain("cannot be read");
    return false;
  }

  /// What a loss of power leaves has all that was safe, and the positions go with it.
  void powerLoss() {
    for (int i = 0; i < 2; ++i) {
      const auto left = files_.afterPowerLoss(random_);
      std::string error;
      const auto cache = Cache::open(options_, error, *left);
      if (!cache) return complain("after a loss of power: " + error);
      const auto& positions = cache->positions();
      const int position = positions.contains("s") ? std::stoi(positions.at("s")) : 0;
      if (position < safe_)
        complain("a loss of power leaves " + std::to_string(position) + " of " + std::to_string(safe_));
      std::set<int> there = arrived_;
      const auto reader = cache->reader("r");
      Reader::Events events;
      while (reader->read(events) == Reader::Result::kEvents) {
        for (const Event& event : events.events) there.insert(std::stoi(std::string(event.bytes)));
      }
      for (int k = 1; k <= position; ++k) {
        if (!there.contains(k))
          complain("a loss of power costs " + std::to_string(k) + " of " + std::to_string(position));
      }
    }
  }

  CacheOptions options_;
  MemoryFiles files_;
  std::mt19937_64 random_{1};
  int calls_ = 0;
  bool isShortTrouble_ = false;
  std::string said_, fault_;
  Cache::Clock::time_point now_ = Cache::Clock::now();
  std::unique_ptr<Cache> cache_;
  std::unique_ptr<Reader> reader_;
  int sent_ = 0, safe_ = 0;
  std::set<int> arrived_;
};

class IoErrors : public testing::TestWithParam<Sync> {};

TEST_P(IoErrors, CostNothing) {
  const Trouble troubles[] = {
      {"", EIO, 1, false},          {"", ENOSPC, 1, false},
      {"", EIO, 7, false},          {"", ENOSPC, 40, false},
      {"write", EINTR, 3, true},    {"write", ENOSPC, 3, true},
      {"read", EINTR, 3, false},    {"sync", EIO, 1, false},
      {"sync", EIO, 3, false},      {"syncDirectory", EIO, 2, false},
      {"create", EMFILE, 5, false}, {"remove", EROFS, 2, false},
  };
  int runs = 0;
  for (const Trouble& trouble : troubles) {
    for (int at = 1;; ++at, ++runs) {
      Sequence run(GetParam(), trouble, at);
      ASSERT_EQ("", run.run()) << trouble.call << ' ' << trouble.error << ' ' << trouble.times << ", call " << at;
      if (!run.hasFailed(at)) break;
      EXPECT_TRUE(run.wasTold() || trouble.error == EINTR) << trouble.call << ' ' << at;
    }
  }
  EXPECT_LT(500, runs);
}

INSTANTIATE_TEST_SUITE_P(EachSync, IoErrors, testing::Values(Sync::kBatch, Sync::kInterval, Sync::kOff));

}  // namespace
}  // namespace quillon::delivery
