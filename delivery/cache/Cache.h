#ifndef QUILLON_DELIVERY_CACHE_CACHE_H_
#define QUILLON_DELIVERY_CACHE_CACHE_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "delivery/cache/Files.h"
#include "delivery/cache/Ledger.h"
#include "delivery/cache/LogIndex.h"
#include "delivery/cache/format.h"

namespace quillon::delivery {

class Reader;

/// When events are on the disk, and so what a loss of power costs. A process that is killed, at any instant, costs
/// nothing that append() has taken, in all three cases.
enum class Sync {
  /// append() returns when the batch is on the disk: nothing it has taken is lost.
  kBatch,
  /// The disk is waited for once in an interval, and when a segment is full. What came since then can be lost, and if
  /// so the positions are those
  /// before it: a source that can go back sends it again.
  kInterval,
  /// The system writes when it likes. The same as above, but nobody knows how far back.
  kOff,
};

enum class WhenFull {
  kBlock,       ///< append() takes nothing until readers have acknowledged enough.
  kDropOldest,  ///< The oldest segment goes, and what no reader had of it is counted.
};

struct CacheOptions {
  std::string directory;  ///< Made when it is not there; the one above it has to be.
  Sync sync = Sync::kBatch;
  std::chrono::milliseconds syncInterval{1000};
  std::uint64_t maxBytes =
      1 << 30;  ///< Of all segments. A batch that is larger than this goes in when nothing else waits.
  WhenFull whenFull = WhenFull::kBlock;
  /// How long segments stay that all readers have acknowledged, as long as there is room for them.
  std::chrono::milliseconds replayWindow{120'000};
  std::uint64_t segmentBytes =
      64 << 20;  ///< A segment is closed at this size, or at an eighth of `maxBytes`; 64 MiB at most.
  /// Told what has gone wrong and what it costs, a line each. Called by the thread that was at work, whose call into
  /// the cache is still under way: it must not call the cache.
  std::function<void(const std::string&)> report;
};

struct CacheCounts {
  std::uint64_t events = 0;    ///< Appended since the cache was opened.
  std::uint64_t damaged = 0;   ///< Numbers of events that readers found missing or damaged.
  std::uint64_t dropped = 0;   ///< Left out for a reader because the cache was full; for two readers it counts twice.
  std::uint64_t failures = 0;  ///< Of the system, to do what it was asked for.
};

/// Events on their way, kept on the disk until every reader has acknowledged them, with the positions of the sources
/// that they came from. At least once: an event that append() has taken is read by every reader, and again after a
/// crash when it was not acknowledged yet. format.h has the layout on the disk.
///
/// One process at a time owns a directory. append(), sync() and tidy() are for one thread at a time, each Reader for
/// one of its own; they do not wait for one another but for moments. The cache has no thread: call tidy() now and then.
class Cache {
 public:
  using Clock = std::chrono::steady_clock;

  /// Null when it cannot be opened, with the reason in `error`. Writes nothing but its lock. Takes time for the
  /// segments that were not known to be on the disk: for one of them, except after a crash with Sync::kOff.
  [[nodiscard]] static std::unique_ptr<Cache> open(const CacheOptions& options, std::string& error,
                                                   Files& files = Files::real());
  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;
  /// Syncs what is not on the disk yet, whatever the options say. After its readers.
  ~Cache();

  enum class Result {
    kTaken,
    kFull,      ///< Nothing was taken; try again when readers have acknowledged more.
    kFailed,    ///< Nothing was taken, for a reason that was reported; try again later.
    kTooLarge,  ///< Of more than kMaxBatchBytes: nothing was taken and never will be.
  };
  /// Takes the batch, whole or not at all. Its events have the numbers up to end().
  [[nodiscard]] Result append(const Batch& batch, Clock::time_point now = Clock::now());

  /// Waits until everything is on the disk; false when that failed, which was reported. The file is then given up, and
  /// the next call writes what was not safe into another.
  bool sync(Clock::time_point now = Clock::now());

  /// Does what time asks for: syncs after an interval, removes segments. A call a second will do.
  void tidy(Clock::time_point now = Clock::now());

  /// Number behind the last event.
  std::uint64_t end() const;
  /// All events below are safe, in the sense of the option `sync`. Never goes back.
  std::uint64_t safe() const;
  /// What the sources need to go on, as of the last batch.
  const Positions& positions() const { return positions_; }

  /// The reader `name`, which goes on behind what it has acknowledged, in whatever process; a new one begins with the
  /// oldest event there is. Null when that is no name (see Ledger::isName). One object at a time for a name.
  [[nodiscard]] std::unique_ptr<Reader> reader(const std::string& name);
  /// The names of all readers. Nothing goes before each of them has it.
  std::vector<std::string> readers() const;
  /// A reader that will not come back.
  void forget(const std::string& name);

  CacheCounts counts() const;
  /// Of all segments.
  std::uint64_t bytes() const;

 private:
  friend class Reader;
  struct Kept : Segment {
    std::optional<Clock::time_point> delivered;  ///< When it was first seen that nobody wants it any more.
    bool isSynced = false;
  };

  Cache(CacheOptions options, Files& files, File lock, const Ledger::Contents& ledger, LogIndex index);

  std::string pathOf(std::uint64_t first) const;
  void report(const std::string& text);
  int failed(const char* what, const std::string& path, int error);

  // The writer's; the mutex is taken where readers look.
  Result tryAppend(const Batch& batch, Clock::time_point now);
  Result put(const Batch& batch, std::uint64_t size, Clock::time_point now);
  int reserve(std::uint64_t count);
  int startSegment();
  int makeSegment(std::uint64_t previous);
  int write(const Batch& batch, const Positions& positions, std::uint64_t previous, BatchHeader& header);
  void publish(const BatchHeader& header);
  int syncSegments();
  int syncFailed(const std::string& path, int error);
  int moveUnsafe();
  int gatherUnsafe(Batch& batch);
  void close();
  void giveUp();
  bool makeRoom(std::uint64_t size);
  bool isDelivered(const Kept& segment, const std::map<std::string, std::uint64_t>& cursors) const;
  void dropOldest();
  const Kept* heir() const;
  int removeOldest();

  // The readers', under the mutex.
  std::optional<Segment> find(std::uint64_t number) const;
  void countDamage(std::uint64_t first, std::uint64_t count, std::uint64_t segment);

  const CacheOptions options_;
  Files& files_;
  File lock_;

  mutable std::mutex mutex_;  ///< For what follows up to the blank line; the writer reads its own without.
  Ledger ledger_;
  std::vector<Kept> segments_;
  std::uint64_t bytes_ = 0;  ///< Of all segments.
  std::uint64_t end_;
  std::uint64_t synced_;
  std::set<std::uint64_t> told_;  ///< First numbers of damage that was counted.
  CacheCounts counts_;
  std::atomic<std::uint64_t> failures_ = 0;

  std::uint64_t next_;  ///< Number that the next event gets.
  Positions positions_;
  File active_;             ///< The last segment, when it is open to be written to.
  bool isSetBack_;          ///< Events are missing that the positions do not count.
  bool hasBegun_ = false;   ///< A batch was written since the cache was opened.
  bool isNewName_ = false;  ///< The name of the active segment is not known to be on the disk.
  bool isUnsafe_ = false;   ///< What is not synced cannot be any more and has to be written again.
  Clock::time_point lastSync_;
  BatchWriter writer_;
};

/// Reads the events of a cache in their order, each batch of the cache by itself. For one thread at a time, and not
/// longer than its cache.
class Reader {
 public:
  struct Events {
    std::vector<Event> events;  ///< Their bytes are valid until the next read().
    std::uint64_t end = 0;      ///< To be acknowledged when they are delivered.
  };
  enum class Result {
    kEvents,
    kNothing,  ///< There are none at the moment.
    kFailed,   ///< The disk does not give them, which was reported; the next call tries again.
  };

  /// The next events; at least one with kEvents. What is missing or damaged before them was counted and reported.
  [[nodiscard]] Result read(Events& events);

  /// All events below `number` are taken care of. Kept through a crash, and through a loss of power since the last
  /// Cache::tidy(); what is not comes again.
  void acknowledge(std::uint64_t number);
  std::uint64_t acknowledged() const { return acknowledged_; }

  /// Goes back, for a receiver that has lost what it had acknowledged: read() goes on at the event `number`, or at the
  /// oldest there is, and nothing from there on counts as acknowledged. What has not been read does not count less.
  void rewind(std::uint64_t number = 0);

 private:
  friend class Cache;
  Reader(Cache& cache, std::string name, std::uint64_t number);

  std::optional<Segment> findNext();
  int open(const Segment& segment);
  void take(const Segment& segment, Events& events);
  void miss(std::uint64_t end, const Segment& segment);

  Cache& cache_;
  const std::string name_;
  std::uint64_t acknowledged_;
  std::uint64_t read_;  ///< All below were given out or cannot be.
  std::uint64_t lastGiven_;
  std::optional<SegmentScanner> scanner_;
  std::uint64_t segment_ = UINT64_MAX;  ///< That the scanner reads.
  SegmentScanner::Found found_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CACHE_CACHE_H_
