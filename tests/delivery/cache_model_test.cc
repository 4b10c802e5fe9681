// Random sequences of what happens to a cache, judged by a model, and what a loss of power would leave at any point of
// them: QUILLON_IMAGES of these (2000), or as many as go into QUILLON_SOAK_SECONDS, from QUILLON_SEED (1) on, which a
// failure names.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>

#include "delivery/cache/Cache.h"
#include "tests/delivery/support/memory_files.h"

namespace quillon::delivery {
namespace {

using Clock = Cache::Clock;
constexpr int kReaders = 2;

std::uint64_t numberFrom(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// The events of a source are numbered from 1 on; this is what they say. Some fill more than a sector.
std::string eventText(std::uint64_t i) {
  std::mt19937_64 random(i);
  return std::to_string(i) + ' ' +
         std::string(random() % (random() % 8 == 0 ? 1500 : 90), static_cast<char>('a' + i % 26));
}

/// What a test knows for sure at some moment.
struct Known {
  std::uint64_t sent = 0;                         ///< Events that may have gone in.
  std::uint64_t safe = 0;                         ///< Events that are safe.
  std::uint64_t acknowledged[kReaders] = {0, 0};  ///< Events that a reader may have acknowledged.
  std::map<std::uint64_t, std::uint64_t> given;   ///< Which event a number belongs to, of those that were read.
};

class World {
 public:
  World(std::uint64_t seed, Sync sync) : random_(seed), seed_(seed) {
    options_.directory = "d";
    options_.sync = sync;
    options_.syncInterval = std::chrono::milliseconds(50);
    options_.segmentBytes = 3000;
    options_.maxBytes = 24'000;
    options_.replayWindow = std::chrono::milliseconds(random_() % 2 * 100);
    options_.report = [this](const std::string& text) { said_ += text + '\n'; };
  }

  std::string fault;  ///< The first thing that was wrong; empty when nothing was.

  /// Goes on from what a loss of power has left. Returns what the source has to send again from.
  void restore(std::unique_ptr<MemoryFiles> files, const Known& known) {
    files_ = std::move(files);
    known_ = known;
    known_.safe = 0;
    reopen();
    if (!cache_) return;
    if (sent_ < known.safe) complain("safe events are to be sent again from " + std::to_string(sent_));
    if (sent_ > known.sent) complain("the position is beyond what was sent");
    if (options_.sync == Sync::kBatch && cache_->counts().damaged > 0) complain("damage is seen where there is none");
    for (int r = 0; r < kReaders; ++r) drainAfterPowerLoss(r, known.acknowledged[r]);
    if (options_.sync == Sync::kBatch && cache_->counts().damaged > 0) complain("damage is seen where there is none");
  }

  /// Makes files fresh and opens the cache.
  void begin() {
    files_ = std::make_unique<MemoryFiles>();
    reopen();
  }

  void run(int steps, std::function<void(MemoryFiles&, const Known&)> onChange) {
    onChange_ = std::move(onChange);
    for (int i = 0; i < steps && fault.empty(); ++i) {
      now_ += std::chrono::milliseconds(random_() % 40);
      const std::uint64_t what = random_() % 100;
      const int r = static_cast<int>(random_() % kReaders);
      if (what < 45)
        append();
      else if (what < 65)
        readSome(r);
      else if (what < 80)
        acknowledge(r);
      else if (what < 84)
        sync();
      else if (what < 94)
        cache_->tidy(now_), note();
      else if (what < 97)
        kill();
      else
        close();
    }
  }

  /// All that was sent and not acknowledged can be read.
  void finish() {
    for (int r = 0; r < kReaders && fault.empty(); ++r) {
      while (read(r)) acknowledge(r);
      if (expected_[r] != sent_ + 1)
        complain("reader " + std::to_string(r) + " ends before " + std::to_string(expected_[r]));
    }
    close();
  }

  Known known() const { return known_; }

 private:
  void complain(const std::string& text) {
    if (fault.empty()) fault = "seed " + std::to_string(seed_) + ": " + text + '\n' + said_;
  }

  void reopen() {
    // In between no call can tell what is known.
    files_->changed = [this] {
      if (onChange_) onChange_(*files_, known_);
    };
    std::string error;
    cache_ = Cache::open(options_, error, *files_);
    if (!cache_) return complain("cannot be opened: " + error);
    const auto position = cache_->positions().find("s");
    const std::uint64_t before = sent_;
    sent_ = position == cache_->positions().end() ? 0 : std::stoull(position->second);
    const auto tens = cache_->positions().find("tens");
    const std::string text = tens == cache_->positions().end() ? "" : tens->second;
    if (text != tensOf(sent_ / 10))
      complain("positions that do not go together: " + text + " and " + std::to_string(sent_));
    if (isKilled_ && sent_ != before) complain("a killed process has left " + std::to_string(sent_));
    for (int r = 0; r < kReaders; ++r) {
      readers_[r] = cache_->reader("r" + std::to_string(r));
      expected_[r] = known_.acknowledged[r] + 1;
    }
  }

  void append() {
    batch_.clear();
    const std::uint64_t count = random_() % 5;
    for (std::uint64_t i = 1; i <= count; ++i) batch_.add(eventText(sent_ + i), static_cast<std::uint32_t>(sent_ + i));
    batch_.setPosition("s", std::to_string(sent_ + count));
    // One that seldom changes, and goes at times.
    const std::uint64_t tens = (sent_ + count) / 10;
    if (tens != sent_ / 10) batch_.setPosition("tens", tensOf(tens));
    known_.sent = std::max(known_.sent, sent_ + count);
    if (sent_ + count == 0) return;
    const Cache::Result result = cache_->append(batch_, now_);
    if (result == Cache::Result::kTaken)
      sent_ += count;
    else if (result != Cache::Result::kFull)
      complain("cannot append");
    if (cache_->bytes() > options_.maxBytes + 3000) complain("is too large");
    note();
  }

  /// What is safe is known when a call has returned.
  void note() {
    if (options_.sync == Sync::kOff) return;
    if (cache_->safe() == cache_->end()) known_.safe = sent_;
  }

  void sync() {
    if (!cache_->sync(now_)) complain("cannot sync");
    known_.safe = sent_;
  }

  void readSome(int r) {
    while (read(r) && random_() % 4 != 0) {
    }
  }

  bool read(int r) {
    Reader::Events& events = events_[r];
    const Reader::Result result = readers_[r]->read(events);
    if (result == Reader::Result::kFailed) complain("cannot read");
    if (result != Reader::Result::kEvents) return false;
    for (const Event& event : events.events) {
      if (event.bytes != eventText(expected_[r]) || event.kind != expected_[r]) {
        complain("reader " + std::to_string(r) + " expects " + std::to_string(expected_[r]) + " and reads " +
                 std::string(event.bytes.substr(0, 20)));
      }
      ++expected_[r];
      noteNumber(event);
    }
    return true;
  }

  static std::string tensOf(std::uint64_t tens) { return tens % 7 == 0 ? "" : std::to_string(tens); }

  /// A number never stands for two events.
  void noteNumber(const Event& event) {
    if (known_.given.emplace(event.number, event.kind).first->second != event.kind) {
      complain("number " + std::to_string(event.number) + " is given again");
    }
  }

  void acknowledge(int r) {
    known_.acknowledged[r] = expected_[r] - 1;
    readers_[r]->acknowledge(events_[r].end);
  }

  /// After a loss of power events can come twice, but those up to the position come, or were acknowledged.
  void drainAfterPowerLoss(int r, std::uint64_t acknowledged) {
    Reader::Events events;
    std::set<std::uint64_t> arrived;
    while (readers_[r]->read(events) == Reader::Result::kEvents) {
      for (const Event& event : events.events) {
        const std::uint64_t i = event.kind;
        if (event.bytes != eventText(i) || i > known_.sent)
          complain("an event that nobody sent: " + std::string(event.bytes));
        noteNumber(event);
        if (!arrived.insert(i).second && options_.sync == Sync::kBatch) complain("comes twice: " + std::to_string(i));
      }
      readers_[r]->acknowledge(events.end);
    }
    for (std::uint64_t i = acknowledged + 1; i <= sent_; ++i) {
      if (!arrived.contains(i))
        return complain("reader " + std::to_string(r) + " misses " + std::to_string(i) + " of " +
                        std::to_string(sent_));
    }
    known_.acknowledged[r] = sent_;
    expected_[r] = sent_ + 1;
  }

  void kill() {
    files_->isDead = true;
    end();
    files_->isDead = false;
    isKilled_ = true;
    reopen();
  }

  void close() {
    end();
    isKilled_ = true;
    reopen();
    if (fault.empty()) known_.safe = sent_;
  }

  void end() {
    for (auto& reader : readers_) reader.reset();
    cache_.reset();
    for (auto& events : events_) events = {};
  }

  std::mt19937_64 random_;
  const std::uint64_t seed_;
  CacheOptions options_;
  std::string said_;
  std::unique_ptr<MemoryFiles> files_;
  std::function<void(MemoryFiles&, const Known&)> onChange_;
  Known known_;
  bool isKilled_ = false;
  std::uint64_t sent_ = 0;
  std::uint64_t expected_[kReaders] = {1, 1};
  Clock::time_point now_ = Clock::now();
  Batch batch_;
  std::unique_ptr<Cache> cache_;
  Reader::Events events_[kReaders];
  std::unique_ptr<Reader> readers_[kReaders];
};

/// Looks at one image in `every`, and in each of these at what a second loss of power would leave of it.
class PowerLosses {
 public:
  PowerLosses(std::uint64_t seed, Sync sync, std::uint64_t every) : random_(seed), sync_(sync), every_(every) {}

  void look(MemoryFiles& files, const Known& known, int depth) {
    if (!fault.empty() || random_() % every_ != 0) return;
    ++images;
    const std::uint64_t seed = random_();
    World world(seed, sync_);
    const auto again = [&](MemoryFiles& of, const Known& then) {
      // What was safe before stays so, whoever looked at it meanwhile.
      Known both = then;
      both.safe = std::max(both.safe, known.safe);
      both.sent = std::max(both.sent, known.sent);
      both.given.insert(known.given.begin(), known.given.end());
      if (depth < 2 && random_() % 4 == 0) look(of, both, depth + 1);
    };
    std::unique_ptr<MemoryFiles> left = files.afterPowerLoss(random_);
    world.restore(std::move(left), known);
    if (world.fault.empty()) world.run(12, again);
    if (world.fault.empty()) world.finish();
    fault = world.fault;
  }

  std::string fault;
  std::uint64_t images = 0;

 private:
  std::mt19937_64 random_;
  const Sync sync_;
  const std::uint64_t every_;
};

TEST(CacheModel, NothingSafeIsLost) {
  const std::uint64_t wanted = numberFrom("QUILLON_IMAGES", 2000);
  std::uint64_t images = 0;
  std::uint64_t seed = numberFrom("QUILLON_SEED", 1);
  const std::uint64_t first = seed;
  const std::uint64_t seconds = numberFrom("QUILLON_SOAK_SECONDS", 0);
  const Clock::time_point until = Clock::now() + std::chrono::seconds(seconds);
  for (; seconds > 0 ? Clock::now() < until : images < wanted; ++seed) {
    const Sync sync = static_cast<Sync>(seed % 3);
    PowerLosses losses(seed, sync, 7);
    World world(seed, sync);
    world.begin();
    world.run(150, [&](MemoryFiles& files, const Known& known) { losses.look(files, known, 0); });
    world.finish();
    ASSERT_EQ("", world.fault) << "QUILLON_SEED=" << seed;
    ASSERT_EQ("", losses.fault) << "after a loss of power; QUILLON_SEED=" << seed;
    images += losses.images;
  }
  std::printf("%llu sequences, %llu losses of power\n", static_cast<unsigned long long>(seed - first),
              static_cast<unsigned long long>(images));
}

}  // namespace
}  // namespace quillon::delivery
