// A small cache with one byte changed, cut at each length, or with a file gone: what is lost is what was there.

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "delivery/cache/Cache.h"
#include "delivery/cache/inspection.h"
#include "tests/delivery/support/memory_files.h"

namespace quillon::delivery {
namespace {

constexpr int kEvents = 24;

/// No two are alike, none is part of another, and all are long enough to be found in a file.
std::string eventText(int i) {
  return "<event " + std::to_string(i) + std::string(static_cast<std::size_t>(i % 5), '=') + '>';
}

class Damage : public testing::Test {
 protected:
  /// Batches of three, two to a segment, but for those of one segment. Closed in good order.
  Damage() {
    options_.directory = "d";
    options_.segmentBytes = 700;
    const auto cache = open(files_);
    const auto reader = cache->reader("r");
    for (int i = 0; i < kEvents; i += 3) {
      Batch batch;
      for (int k = i; k < i + 3; ++k) batch.add(eventText(k));
      batch.setPosition("s", std::to_string(i + 3));
      EXPECT_EQ(Cache::Result::kTaken, cache->append(batch));
    }
  }

  std::unique_ptr<Cache> open(MemoryFiles& files) {
    std::string error;
    options_.report = [this](const std::string& text) { said_ += text + '\n'; };
    auto cache = Cache::open(options_, error, files);
    EXPECT_TRUE(cache) << error;
    return cache;
  }

  /// "1 2 5" when the events 1, 2 and 5 are lost, " damaged N" with what is counted where that is another number, and
  /// what the position is when it is not the last. "twice" would say that an event came twice.
  std::string lossOf(MemoryFiles& files) {
    const auto cache = open(files);
    if (!cache) return "everything";
    const auto reader = cache->reader("r");
    std::multiset<std::string> arrived;
    Reader::Events events;
    for (Reader::Result result; (result = reader->read(events)) != Reader::Result::kNothing;) {
      if (result == Reader::Result::kFailed) return "cannot read";
      for (const Event& event : events.events) arrived.emplace(event.bytes);
      reader->acknowledge(events.end);
    }
    std::string lost;
    std::uint64_t count = 0;
    for (int i = 0; i < kEvents; ++i) {
      if (arrived.erase(eventText(i)) != 1) lost += std::to_string(i) + ' ', ++count;
    }
    if (!arrived.empty()) lost += "invented " + *arrived.begin();
    if (cache->counts().damaged != count) lost += "damaged " + std::to_string(cache->counts().damaged);
    if ((count > 0) == said_.empty()) lost += " told: " + said_;
    said_.clear();
    position_ = cache->positions().contains("s") ? cache->positions().at("s") : "none";
    return lost;
  }

  /// The event that byte `at` of a file belongs to; empty when none.
  static std::string eventAt(const std::string& content, std::size_t at) {
    for (int i = 0; i < kEvents; ++i) {
      const std::size_t found = content.find(eventText(i));
      if (found <= at && at < found + eventText(i).size()) return std::to_string(i) + ' ';
    }
    return "";
  }

  /// The events of a file that are not whole in its first `size` bytes.
  static std::string eventsBehind(const std::string& content, std::size_t size) {
    std::string lost;
    for (int i = 0; i < kEvents; ++i) {
      const std::size_t found = content.find(eventText(i));
      if (found != std::string::npos && found + eventText(i).size() > size) lost += std::to_string(i) + ' ';
    }
    return lost;
  }

  std::vector<std::string> segments() const {
    std::vector<std::string> paths = files_.paths();
    std::erase_if(paths, [](const std::string& path) { return !path.ends_with(".segment"); });
    return paths;
  }

  MemoryFiles files_;
  CacheOptions options_;
  std::string said_, position_;
};

TEST_F(Damage, AChangedByteCostsItsEventAlone) {
  ASSERT_LE(3U, segments().size());
  EXPECT_EQ("", lossOf(*files_.copy()));
  EXPECT_EQ(std::to_string(kEvents), position_);
  for (const std::string& path : segments()) {
    const std::string& content = files_.content(path);
    for (std::size_t at = 0; at < content.size(); ++at) {
      for (const char bits : {'\x01', '\x80', '\xFF'}) {
        const auto files = files_.copy();
        files->content(path)[at] = static_cast<char>(content[at] ^ bits);
        EXPECT_EQ(eventAt(content, at), lossOf(*files)) << path << " at " << at;
        // The positions may be those of a batch before, never of one behind.
        ASSERT_NE("none", position_) << path << " at " << at;
        EXPECT_LE(std::stoi(position_), kEvents);
      }
    }
  }
}

TEST_F(Damage, TheLedgerCanLoseAnyLine) {
  std::string& ledger = files_.content("d/ledger");
  ledger.resize(ledger.size() / 2);  // the lines stand there once
  for (std::size_t at = 0; at < ledger.size(); ++at) {
    const auto files = files_.copy();
    files->content("d/ledger")[at] ^= 0x10;
    const auto cache = open(*files);
    const auto reader = cache->reader("r");
    Reader::Events events;
    int count = 0;
    while (reader->read(events) == Reader::Result::kEvents) count += static_cast<int>(events.events.size());
    EXPECT_EQ(kEvents, count) << at;
  }
}

TEST_F(Damage, ACutSegmentCostsWhatIsBehindTheCut) {
  for (const std::string& path : segments()) {
    const std::string& content = files_.content(path);
    for (std::size_t size = 0; size < content.size(); ++size) {
      const auto files = files_.copy();
      files->content(path).resize(size);
      const std::string lost = lossOf(*files);
      // What is cut within the table of a batch costs the batch.
      const std::string least = eventsBehind(content, size);
      EXPECT_TRUE(lost.ends_with(least)) << path << " at " << size << ": " << lost;
      EXPECT_LE(std::count(lost.begin(), lost.end(), ' '), std::count(least.begin(), least.end(), ' ')) << lost;
    }
  }
}

TEST_F(Damage, AFileThatIsGoneIsMissedAndNothingElse) {
  for (const std::string& path : segments()) {
    const auto files = files_.copy();
    files->erase(path);
    EXPECT_EQ(eventsBehind(files_.content(path), 0), lossOf(*files)) << path;
  }
}

TEST_F(Damage, RepairKeepsWhatCanBeReadAndTheOriginal) {
  const auto repaired = [](MemoryFiles& files) {
    std::vector<Repair> repairs;
    std::string path;
    EXPECT_EQ(0, repair(files, "d", repairs, path)) << path;
    return repairs;
  };
  EXPECT_EQ(0U, repaired(*files_.copy()).size());
  for (const std::string& path : segments()) {
    const std::string& content = files_.content(path);
    for (std::size_t at = 0; at < content.size(); ++at) {
      const auto files = files_.copy();
      files->content(path)[at] = static_cast<char>(content[at] ^ 0x40);
      const std::string damaged = files->content(path);
      const std::string lost = eventAt(content, at);
      const std::vector<Repair> repairs = repaired(*files);
      ASSERT_EQ(1U, repairs.size()) << path << " at " << at;
      EXPECT_EQ(lost.empty() ? 0U : 1U, repairs[0].lost);
      EXPECT_EQ(damaged, files->content(path + ".damaged"));
      EXPECT_EQ(0U, repaired(*files).size());
      // Nothing is missed any more, but for the event itself.
      const std::string left = lossOf(*files);
      EXPECT_EQ(lost.empty() ? "" : lost + "damaged 0 told: ", left) << path << " at " << at;
    }
  }
}

TEST_F(Damage, RepairReadsAroundWhatTheDiskDoesNotGive) {
  const std::string path = segments()[1];
  files_.fault = [](const std::string& call) { return call == "read" ? EIO : 0; };
  std::string where;
  CacheContents contents;
  EXPECT_EQ(EIO, readContents(files_, "d", contents, where));
  // The ledger can be read, and of one segment nothing.
  int reads = 0;
  files_.fault = [&reads](const std::string& call) { return call == "read" && ++reads <= 2 ? EIO : 0; };
  std::vector<Repair> repairs;
  const std::string lost = eventsBehind(files_.content(segments()[0]), 0);
  EXPECT_EQ(0, repair(files_, "d", repairs, where)) << where;
  files_.fault = nullptr;
  EXPECT_TRUE(lossOf(files_).starts_with(lost));
}

TEST_F(Damage, WhatWasAcknowledgedIsNotMissed) {
  {
    const auto cache = open(files_);
    const auto reader = cache->reader("r");
    Reader::Events events;
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Reader::Result::kEvents, reader->read(events));
    reader->acknowledge(events.end);
  }
  const auto files = files_.copy();
  files->content(segments()[0])[60] ^= 1;
  const auto cache = open(*files);
  const auto reader = cache->reader("r");
  Reader::Events events;
  ASSERT_EQ(Reader::Result::kEvents, reader->read(events));
  EXPECT_EQ(eventText(12), events.events.front().bytes);
  EXPECT_EQ(0U, cache->counts().damaged);
}

}  // namespace
}  // namespace quillon::delivery
