#include "delivery/cache/Cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/delivery/support/memory_files.h"
#include "tests/support/scratch.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;
using Clock = Cache::Clock;

class CacheTest : public testing::Test {
 protected:
  CacheTest() {
    options_.directory = "d";
    options_.segmentBytes = 500;
    options_.report = [this](const std::string& text) { said_ += text + '\n'; };
    open();
  }

  void open() {
    std::string error;
    cache_.reset();
    cache_ = Cache::open(options_, error, files_);
    ASSERT_TRUE(cache_) << error;
  }

  /// Events "1", "2" and so on, `count` batches of one.
  Cache::Result append(int count, Clock::time_point now = Clock::now()) {
    Cache::Result result = Cache::Result::kTaken;
    for (int i = 0; i < count && result == Cache::Result::kTaken; ++i) {
      Batch batch;
      batch.add(std::to_string(sent_ + 1) + std::string(50, ' '));
      batch.setPosition("s", std::to_string(sent_ + 1));
      result = cache_->append(batch, now);
      if (result == Cache::Result::kTaken) ++sent_;
    }
    return result;
  }

  /// "1 2 3", what a reader gives from here on; acknowledged when that is asked for.
  static std::string read(Reader& reader, bool acknowledges) {
    Reader::Events events;
    std::string text;
    while (reader.read(events) == Reader::Result::kEvents) {
      for (const Event& event : events.events) text += std::to_string(std::stoi(std::string(event.bytes))) + ' ';
      if (acknowledges) reader.acknowledge(events.end);
    }
    return text;
  }

  MemoryFiles files_;
  CacheOptions options_;
  std::string said_;
  std::unique_ptr<Cache> cache_;
  int sent_ = 0;
};

TEST_F(CacheTest, EachReaderHasAPlaceOfItsOwn) {
  append(3);
  auto a = cache_->reader("a");
  auto b = cache_->reader("b");
  EXPECT_EQ("1 2 3 ", read(*a, true));
  append(1);
  EXPECT_EQ("4 ", read(*a, false));
  EXPECT_EQ("1 2 3 4 ", read(*b, true));
  a.reset();
  b.reset();
  open();
  EXPECT_EQ("4 ", read(*cache_->reader("a"), false));  // read, and not acknowledged
  EXPECT_EQ("", read(*cache_->reader("b"), false));
  EXPECT_EQ("1 2 3 4 ", read(*cache_->reader("new"), false));
  EXPECT_FALSE(cache_->reader("no name"));
}

TEST_F(CacheTest, WhatIsDeliveredStaysForAWhileAndCanBeReplayed) {
  options_.replayWindow = milliseconds(100);
  open();
  const auto reader = cache_->reader("r");
  append(20);
  const auto other = cache_->reader("slow");
  read(*reader, true);
  const Clock::time_point start = Clock::now();
  const std::uint64_t all = cache_->bytes();
  cache_->tidy(start + milliseconds(1000));
  EXPECT_EQ(all, cache_->bytes());  // the slow one has not read it
  cache_->forget("slow");
  cache_->tidy(start + milliseconds(2000));
  cache_->tidy(start + milliseconds(2099));
  EXPECT_EQ(all, cache_->bytes());
  reader->rewind();
  EXPECT_EQ("1 2 3 ", read(*reader, false).substr(0, 6));
  cache_->tidy(start + milliseconds(2200));
  EXPECT_EQ(all, cache_->bytes());  // wanted again
  read(*reader, true);
  reader->acknowledge(cache_->end());
  cache_->tidy(start + milliseconds(3000));
  cache_->tidy(start + milliseconds(3200));
  EXPECT_LT(cache_->bytes(), all / 2);
  reader->rewind();
  EXPECT_TRUE(read(*reader, true).ends_with("19 20 "));
  EXPECT_EQ(0U, cache_->counts().damaged);
  EXPECT_EQ("", said_);
}

TEST_F(CacheTest, AFullCacheBlocksOrDropsTheOldest) {
  options_.maxBytes = 4000;
  open();
  auto reader = cache_->reader("r");
  EXPECT_EQ(Cache::Result::kFull, append(100));
  const int taken = sent_;
  EXPECT_EQ(Cache::Result::kFull, append(1));
  Reader::Events events;
  for (int i = 0; i < 6; ++i) ASSERT_EQ(Reader::Result::kEvents, reader->read(events));
  reader->acknowledge(events.end);
  EXPECT_EQ(Cache::Result::kTaken, append(1));  // although the replay window is not over
  EXPECT_LE(cache_->bytes(), 4000U);
  reader.reset();

  options_.whenFull = WhenFull::kDropOldest;
  open();
  reader = cache_->reader("r");
  EXPECT_EQ(Cache::Result::kTaken, append(2 * taken));
  EXPECT_LE(cache_->bytes(), 4500U);
  const std::string rest = read(*reader, true);
  const auto arrived = static_cast<std::uint64_t>(std::count(rest.begin(), rest.end(), ' '));
  EXPECT_EQ(static_cast<std::uint64_t>(sent_) - 6, arrived + cache_->counts().dropped);
  EXPECT_TRUE(rest.ends_with(std::to_string(sent_) + ' '));
  EXPECT_EQ(0U, cache_->counts().damaged);
}

TEST_F(CacheTest, SafeMeansWhatWasAskedFor) {
  struct Case {
    Sync sync;
    const char* expected;  ///< Events that are safe after the batch, after half an interval, after it.
  };
  const Case cases[] = {{Sync::kBatch, "1 1 1"}, {Sync::kInterval, "0 0 1"}, {Sync::kOff, "1 1 1"}};
  for (const Case& c : cases) {
    MemoryFiles files;
    options_.sync = c.sync;
    std::string error;
    const auto cache = Cache::open(options_, error, files);
    const Clock::time_point start = Clock::now();
    Batch batch;
    batch.add("x");
    EXPECT_EQ(Cache::Result::kTaken, cache->append(batch, start));
    std::string safe = std::to_string(cache->safe());
    for (const int time : {500, 1100}) {
      cache->tidy(start + milliseconds(time));
      safe += ' ' + std::to_string(cache->safe());
    }
    EXPECT_EQ(c.expected, safe);
  }
}

// What an earlier process did not finish is not there, however many segments it began, and stays away when others
// follow.
TEST_F(CacheTest, WhatWasNeverFinishedStaysAway) {
  options_.sync = Sync::kOff;
  open();
  append(12);
  ASSERT_LE(4U, files_.paths().size());
  const auto left = files_.copy();
  std::vector<std::string> paths = left->paths();
  std::erase_if(paths, [](const std::string& path) { return !path.ends_with(".segment"); });
  for (std::size_t i = 1; i < paths.size(); ++i) {
    std::string& content = left->content(paths[i]);
    for (std::size_t at = 0; (at = content.find("   ", at)) != std::string::npos; at += 50) content[at] = '?';
  }
  for (const char* const expected : {"1 2 ", "1 2 13 "}) {
    std::string error;
    const auto cache = Cache::open(options_, error, *left);
    ASSERT_TRUE(cache) << error;
    const std::string arrived = read(*cache->reader("r"), false);
    EXPECT_EQ(expected, arrived);
    EXPECT_EQ(0U, cache->counts().damaged);
    Batch batch;
    batch.add("13");
    EXPECT_EQ(Cache::Result::kTaken, cache->append(batch));
  }
}

TEST_F(CacheTest, ASegmentGoesOnlyWhenAnotherHasThePositionsForGood) {
  options_.sync = Sync::kOff;
  options_.replayWindow = milliseconds(0);
  open();
  const auto reader = cache_->reader("r");
  append(2);
  EXPECT_TRUE(cache_->sync());
  append(10);
  read(*reader, true);
  cache_->tidy();
  std::mt19937_64 random(1);
  for (int i = 0; i < 300; ++i) {
    std::string error;
    const auto left = files_.afterPowerLoss(random);
    const auto cache = Cache::open(options_, error, *left);
    ASSERT_TRUE(cache) << error;
    ASSERT_TRUE(cache->positions().contains("s"));
    EXPECT_LE(2, std::stoi(cache->positions().at("s")));
  }
}

TEST_F(CacheTest, OneProcessOwnsADirectory) {
  const ScratchDirectory directory;
  CacheOptions options;
  options.directory = directory.path() / "cache";
  std::string error;
  const auto cache = Cache::open(options, error);
  ASSERT_TRUE(cache) << error;
  EXPECT_FALSE(Cache::open(options, error));
  EXPECT_EQ(options.directory + ": in use by process " + std::to_string(getpid()), error);
  options.directory = directory.path() / "no" / "cache";
  EXPECT_FALSE(Cache::open(options, error));
  EXPECT_EQ(options.directory + ": No such file or directory", error);
}

TEST_F(CacheTest, OneThreadWritesAndOthersRead) {
  const ScratchDirectory directory(inMemory());
  CacheOptions options;
  options.directory = directory.path() / "cache";
  options.sync = Sync::kInterval;
  options.maxBytes = 100'000;
  options.replayWindow = milliseconds(0);
  std::string error;
  const auto cache = Cache::open(options, error);
  constexpr int kCount = 20'000;
  std::vector<std::thread> threads;
  for (const char* name : {"a", "b"}) {
    threads.emplace_back([reader = cache->reader(name)] {
      Reader::Events events;
      for (int next = 0; next < kCount;) {
        if (reader->read(events) != Reader::Result::kEvents) {
          std::this_thread::sleep_for(milliseconds(1));
          continue;
        }
        for (const Event& event : events.events) EXPECT_EQ(next++, std::stoi(std::string(event.bytes)));
        reader->acknowledge(events.end);
      }
    });
  }
  for (int i = 0; i < kCount;) {
    Batch batch;
    for (int k = 0; k < 20; ++k) batch.add(std::to_string(i + k));
    if (cache->append(batch) == Cache::Result::kTaken) i += 20;
    cache->tidy();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0U, cache->counts().damaged);
}

}  // namespace
}  // namespace quillon::delivery
