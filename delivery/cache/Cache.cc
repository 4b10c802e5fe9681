#include "delivery/cache/Cache.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "foundation/checkpoint.h"

namespace quillon::delivery {
namespace {

constexpr std::uint64_t kNumbersAhead = 1 << 24;  ///< Reserved at once, so that this is rare.
constexpr std::uint64_t kMostSegmentBytes = 64 << 20;
constexpr std::uint64_t kMostMoved = kMaxBatchBytes / 2;  ///< Bytes of events that are written a second time.

CacheOptions checked(CacheOptions options) {
  options.segmentBytes =
      std::max<std::uint64_t>(1, std::min({options.segmentBytes, options.maxBytes / 8, kMostSegmentBytes}));
  return options;
}

std::string holderOf(Files& files, const std::string& lock) {
  std::string number;
  if (readWhole(files, lock, number) != 0 || number.size() < 2) return "another process";
  number.pop_back();
  return "process " + number;
}

}  // namespace

std::unique_ptr<Cache> Cache::open(const CacheOptions& options, std::string& error, Files& files) {
  const std::string& directory = options.directory;
  std::string path = directory;
  int failure = files.makeDirectory(directory);
  if (failure == 0) {
    const std::size_t slash = directory.find_last_of('/');
    path = slash == std::string::npos ? "." : directory.substr(0, slash + 1);
    failure = files.syncDirectory(path);
  } else if (failure == EEXIST) {
    failure = 0;
  }
  File lock;
  if (failure == 0) {
    path = directory + "/lock";
    lock = File(files, files.lock(path));
    if (lock.error() == EWOULDBLOCK) {
      error = directory + ": in use by " + holderOf(files, path);
      return nullptr;
    }
    failure = lock.error();
  }
  Ledger::Contents ledger;
  if (failure == 0) {
    path = directory + "/ledger";
    failure = Ledger::read(files, directory, ledger);
  }
  LogIndex index;
  if (failure == 0) failure = loadLog(files, directory, ledger, index, path);
  if (failure != 0) {
    error = path + ": " + std::strerror(failure);
    return nullptr;
  }
  std::unique_ptr<Cache> cache(new Cache(options, files, std::move(lock), ledger, std::move(index)));
  return cache;
}

Cache::Cache(CacheOptions options, Files& files, File lock, const Ledger::Contents& ledger, LogIndex index)
    : options_(checked(std::move(options))),
      files_(files),
      lock_(std::move(lock)),
      ledger_(files, options_.directory, ledger),
      end_(index.end),
      synced_(index.synced),
      next_(index.next),
      positions_(std::move(index.positions)),
      isSetBack_(index.setBack != 0),
      isUnsafe_(synced_ < std::min(end_, ledger.suspect)),
      lastSync_(Clock::now()) {
  segments_.reserve(index.segments.size());
  for (const Segment& segment : index.segments) {
    Kept kept;
    static_cast<Segment&>(kept) = segment;
    kept.isSynced = segment.end <= synced_;
    if (!kept.isSynced) isNewName_ = true;
    bytes_ += kept.bytes;
    segments_.push_back(kept);
  }
  if (ledger.damagedLines > 0) report(std::to_string(ledger.damagedLines) + " damaged lines in the ledger");
  if (!index.havePositions) report("the positions of the sources cannot be read");
  if (index.setBack != 0) {
    report("events from number " + std::to_string(index.setBack) +
           " on did not reach the disk whole; the sources go back to before them");
  }
}

Cache::~Cache() {
  if (synced_ < end_ || isNewName_) static_cast<void>(sync());
  const std::scoped_lock hold(mutex_);
  // When nothing was written, what was missing when the cache was opened still is to be made good by the sources.
  int error = hasBegun_ && synced_ == end_ ? ledger_.setSynced(synced_) : 0;
  if (error == 0) error = ledger_.sync();
  if (error != 0) failed("write", options_.directory + "/ledger", error);
}

std::string Cache::pathOf(std::uint64_t first) const { return options_.directory + '/' + segmentName(first); }

void Cache::report(const std::string& text) {
  if (options_.report) options_.report(options_.directory + ": " + text);
}

/// Returns `error`.
int Cache::failed(const char* what, const std::string& path, int error) {
  ++failures_;
  if (options_.report) options_.report(path + ": cannot " + what + ": " + std::strerror(error));
  return error;
}

Cache::Result Cache::append(const Batch& batch, Clock::time_point now) {
  if (batch.empty()) return Result::kTaken;
  const Result result = tryAppend(batch, now);
  if (result != Result::kTaken || options_.sync != Sync::kInterval) return result;
  if (now - lastSync_ >= options_.syncInterval) static_cast<void>(sync(now));
  return result;
}

Cache::Result Cache::tryAppend(const Batch& batch, Clock::time_point now) {
  std::uint64_t size = batch.bytes();
  for (const auto& [name, value] : batch.positions()) size += name.size() + value.size() + 8;
  if (size > kMaxBatchBytes) return Result::kTooLarge;
  return makeRoom(size) ? put(batch, size, now) : Result::kFull;
}

Cache::Result Cache::put(const Batch& batch, std::uint64_t size, Clock::time_point now) {
  if (active_ && segments_.back().bytes > 0 && segments_.back().bytes + size > options_.segmentBytes) {
    if (options_.sync == Sync::kInterval && !sync(now)) return Result::kFailed;
    close();
    checkpoint("segment-closed");
  }
  if (isUnsafe_ && moveUnsafe() != 0) return Result::kFailed;
  if (reserve(batch.events() + 1) != 0 || (!active_ && startSegment() != 0)) return Result::kFailed;
  BatchHeader header;
  int error = 0;
  if (segments_.back().bytes == 0) {
    Positions all = positions_;
    applyChanges(batch.positions(), all);
    header.hasAllPositions = true;
    error = write(batch, all, end_, header);
  } else {
    error = write(batch, batch.positions(), end_, header);
  }
  if (error == 0 && options_.sync == Sync::kBatch) error = syncSegments();
  if (error != 0) {
    giveUp();
    return Result::kFailed;
  }
  // Until positions that know of what is missing are on the disk, nothing may be behind them.
  const bool isSettling = isSetBack_ && !hasBegun_;
  publish(header);
  applyChanges(batch.positions(), positions_);
  if (isSettling && options_.sync != Sync::kBatch) static_cast<void>(sync(now));
  checkpoint("batch-taken");
  return Result::kTaken;
}

/// Sees to it that the next `count` numbers are never given again, whatever becomes of their events.
int Cache::reserve(std::uint64_t count) {
  const std::scoped_lock hold(mutex_);
  if (next_ + count <= ledger_.contents().numbers) return 0;
  const int error = ledger_.setNumbers(next_ + count + kNumbersAhead);
  checkpoint("numbers-reserved");
  return error == 0 ? 0 : failed("write", options_.directory + "/ledger", error);
}

int Cache::startSegment() {
  // What an earlier process left behind has to be safe before positions are that count it.
  if ((synced_ < end_ || isNewName_) && !(options_.sync == Sync::kOff && hasBegun_)) {
    if (const int error = syncSegments()) return error;
    const std::scoped_lock hold(mutex_);
    synced_ = end_;
    checkpoint("rest-synced");
  }
  return makeSegment(end_);
}

/// The active segment from now on is a new one, behind the event before number `previous`.
int Cache::makeSegment(std::uint64_t previous) {
  const std::string path = pathOf(next_);
  File file(files_, files_.create(path));
  if (!file) {
    if (file.error() == EEXIST) ++next_;
    return failed("make", path, file.error());
  }
  checkpoint("segment-made");
  active_ = std::move(file);
  isNewName_ = true;
  const std::scoped_lock hold(mutex_);
  Kept& segment = segments_.emplace_back();
  segment.begin = next_;
  segment.end = segment.previous = previous;
  return 0;
}

/// Writes to the active segment; nothing is published yet, but the numbers are used up.
int Cache::write(const Batch& batch, const Positions& positions, std::uint64_t previous, BatchHeader& header) {
  header.first = next_;
  header.previous = previous;
  header.synced = synced_;
  const auto pieces = writer_.write(batch, positions, header);
  next_ = header.end();
  checkpoint("batch-begun");
  if (header.bytes() > kMaxBatchBytes) return failed("write", pathOf(segments_.back().begin), EFBIG);
  const int error = writeAll(files_, active_, pieces);
  checkpoint("batch-written");
  return error == 0 ? 0 : failed("write", pathOf(segments_.back().begin), error);
}

/// The batch that was just written is there, for readers too; with Sync::kBatch it is safe.
void Cache::publish(const BatchHeader& header) {
  const std::scoped_lock hold(mutex_);
  hasBegun_ = true;
  Kept& segment = segments_.back();
  segment.bytes += header.bytes();
  segment.end = end_ = header.end();
  segment.hasPositions = segment.hasPositions || header.hasAllPositions;
  bytes_ += header.bytes();
  counts_.events += header.events;
  if (options_.sync == Sync::kBatch) {
    synced_ = end_;
  } else {
    segment.isSynced = false;
  }
}

/// Syncs every segment that may need it, and their names. A file whose sync fails is not asked again: the system may
/// have dropped what it could not write, and then says that all is well.
int Cache::syncSegments() {
  for (Kept& segment : segments_) {
    const bool isActive = active_ && &segment == &segments_.back();
    if (segment.isSynced && !isActive) continue;
    const std::string path = pathOf(segment.begin);
    const File other = isActive ? File() : File(files_, files_.openToRead(path));
    if (!isActive && !other) return failed("open", path, other.error());
    if (const int error = files_.sync(isActive ? active_.get() : other.get())) {
      return syncFailed(path, error);
    }
    segment.isSynced = !isActive;
  }
  checkpoint("batch-synced");
  if (isNewName_) {
    if (const int error = files_.syncDirectory(options_.directory)) {
      return syncFailed(options_.directory, error);
    }
    isNewName_ = false;
    checkpoint("name-synced");
  }
  return 0;
}

/// What was taken and is not synced has to be written again, by the next process if need be.
int Cache::syncFailed(const std::string& path, int error) {
  failed("sync", path, error);
  if (synced_ == end_) return error;
  isUnsafe_ = true;
  const std::scoped_lock hold(mutex_);
  if (const int another = ledger_.setSuspect(end_)) failed("write", options_.directory + "/ledger", another);
  return error;
}

bool Cache::sync(Clock::time_point now) {
  lastSync_ = now;
  if (isUnsafe_) return moveUnsafe() == 0;
  if (syncSegments() != 0) {
    giveUp();
    return false;
  }
  const std::scoped_lock hold(mutex_);
  synced_ = end_;
  return true;
}

/// The events that were taken and cannot be made safe where they are.
int Cache::gatherUnsafe(Batch& batch) {
  for (const Kept& segment : segments_) {
    if (segment.end <= synced_) continue;
    const std::string path = pathOf(segment.begin);
    File file(files_, files_.openToRead(path));
    if (!file) return failed("open", path, file.error());
    SegmentScanner scanner(files_, std::move(file));
    scanner.setLimit(segment.bytes);
    scanner.setNumbers(segment.begin, segment.end);
    SegmentScanner::Found found;
    while (batch.bytes() < kMostMoved && scanner.next(found, synced_)) {
      for (const Event& event : found.events) {
        if (event.number >= synced_) batch.add(event.bytes, event.kind);
      }
      if (!found.isSkipped && !found.isWhole)
        countDamage(found.header.first, found.header.events - found.events.size(), segment.begin);
    }
    if (scanner.error() != 0) return failed("read", path, scanner.error());
  }
  return 0;
}

/// Writes what is not safe into a new segment, in one batch, which disowns the place where it was.
int Cache::moveUnsafe() {
  Batch batch;
  if (const int error = gatherUnsafe(batch)) return error;
  if (batch.bytes() >= kMostMoved) {
    report("events from number " + std::to_string(synced_) + " on can be lost with power");
    const std::scoped_lock hold(mutex_);
    synced_ = end_;
  }
  const std::uint64_t from = synced_;
  if (from == end_) batch.clear();
  if (const int error = reserve(batch.events() + 1)) return error;
  const std::size_t before = segments_.size();
  if (const int error = makeSegment(from)) return error;
  const std::string path = pathOf(segments_.back().begin);
  BatchHeader header;
  header.hasAllPositions = true;
  int error = write(batch, positions_, from, header);
  if (error == 0) error = files_.sync(active_.get());
  if (error == 0) error = files_.syncDirectory(options_.directory);
  if (error != 0) {
    giveUp();
    return failed("move what is not safe to", path, error);
  }
  isNewName_ = isUnsafe_ = false;
  publish(header);
  const std::scoped_lock hold(mutex_);
  for (std::size_t i = 0; i < before; ++i) {
    segments_[i].end = std::min(segments_[i].end, from);
    segments_[i].isSynced = true;
  }
  counts_.events -= header.events;
  synced_ = end_;
  return 0;
}

/// The next batch begins another segment.
void Cache::close() {
  active_ = File();
  segments_.back().isSynced = synced_ == end_;
}

/// Closes the active segment behind what was published; what may stand behind that is disowned by the next batch.
void Cache::giveUp() {
  if (!active_) return;
  static_cast<void>(files_.truncate(active_.get(), segments_.back().bytes));
  close();
  if (segments_.back().bytes > 0) return;
  static_cast<void>(files_.remove(pathOf(segments_.back().begin)));
  const std::scoped_lock hold(mutex_);
  segments_.pop_back();
}

bool Cache::isDelivered(const Kept& segment, const std::map<std::string, std::uint64_t>& cursors) const {
  if (cursors.empty() || cursors.size() < ledger_.contents().cursors.size()) return false;
  return std::ranges::all_of(cursors, [&](const auto& cursor) { return segment.end <= cursor.second; });
}

/// True when `size` bytes may be added.
bool Cache::makeRoom(std::uint64_t size) {
  while (bytes_ > 0 && bytes_ + size > options_.maxBytes) {
    std::unique_lock hold(mutex_);
    const Kept& oldest = segments_.front();
    const bool isDone = isDelivered(oldest, ledger_.contents().cursors);
    if (!heir() && (isDone || options_.whenFull == WhenFull::kDropOldest)) {
      close();  // it goes when there is another
      return true;
    }
    if (!isDone && options_.whenFull == WhenFull::kBlock) return false;
    if (!isDone) dropOldest();
    hold.unlock();
    if (removeOldest() != 0) return false;
  }
  return true;
}

/// Moves the readers that have not read the oldest segment behind it. That this could not be written down keeps no
/// space from being made: what is dropped is lost anyway.
void Cache::dropOldest() {
  const Kept& oldest = segments_.front();
  const auto cursors = ledger_.contents().cursors;
  std::uint64_t most = cursors.empty() ? std::max(oldest.end, oldest.begin) - oldest.begin : 0;
  for (const auto& [name, number] : cursors) {
    if (number >= oldest.end) continue;
    const std::uint64_t dropped = oldest.end - std::max(number, oldest.begin);
    most = std::max(most, dropped);
    counts_.dropped += dropped;
    if (const int error = ledger_.setCursor(name, oldest.end)) failed("write", options_.directory + "/ledger", error);
  }
  if (cursors.empty()) counts_.dropped += most;
  report("is full: " + std::to_string(most) + " events dropped");
}

/// The segment that has the positions when the oldest one is gone; null when there is none.
const Cache::Kept* Cache::heir() const {
  for (std::size_t i = 1; i < segments_.size(); ++i) {
    if (segments_[i].hasPositions && segments_[i].end > segments_[i].begin) return &segments_[i];
  }
  return nullptr;
}

int Cache::removeOldest() {
  const std::string path = pathOf(segments_.front().begin);
  // That events are missing could not be seen any more, and the positions behind them would count.
  if (isSetBack_ && !hasBegun_) {
    const Batch none;
    if (put(none, none.bytes(), lastSync_) != Result::kTaken || synced_ < end_) return EIO;
  }
  // The next one has to have the positions.
  if (synced_ < end_ && synced_ <= heir()->begin && !sync()) return EIO;
  checkpoint("segment-unwanted");
  {
    // Before it goes it has to be known that it was delivered, and that it is not missing. On a disk that is full a
    // segment that was known before to be delivered makes room for that.
    const std::scoped_lock hold(mutex_);
    int error = ledger_.setRemoved(segments_.front().end);
    if (error == 0) error = ledger_.sync();
    if (error != 0) failed("write", options_.directory + "/ledger", error);
    const bool mayGo =
        options_.whenFull == WhenFull::kDropOldest || isDelivered(segments_.front(), ledger_.durableCursors());
    if (error != 0 && !mayGo) return error;
  }
  if (const int error = files_.remove(path); error != 0 && error != ENOENT) return failed("remove", path, error);
  checkpoint("segment-removed");
  const std::scoped_lock hold(mutex_);
  bytes_ -= segments_.front().bytes;
  segments_.erase(segments_.begin());
  told_.erase(told_.begin(), told_.lower_bound(segments_.empty() ? end_ : segments_.front().previous));
  return 0;
}

void Cache::tidy(Clock::time_point now) {
  if (options_.sync == Sync::kInterval && (synced_ < end_ || isUnsafe_) && now - lastSync_ >= options_.syncInterval) {
    static_cast<void>(sync(now));
  }
  std::size_t count = 0;
  {
    const std::scoped_lock hold(mutex_);
    if (const int error = ledger_.sync()) failed("write", options_.directory + "/ledger", error);
    for (std::size_t i = 0; i < segments_.size(); ++i) {
      Kept& segment = segments_[i];
      if (!isDelivered(segment, ledger_.contents().cursors)) {
        segment.delivered.reset();
      } else if (!segment.delivered) {
        segment.delivered = now;
      }
      if (count == i && segment.delivered && now - *segment.delivered >= options_.replayWindow) ++count;
    }
  }
  for (; count > 0; --count) {
    if (!heir() || removeOldest() != 0) return;
  }
}

std::uint64_t Cache::end() const {
  const std::scoped_lock hold(mutex_);
  return end_;
}

std::uint64_t Cache::safe() const {
  const std::scoped_lock hold(mutex_);
  return options_.sync == Sync::kOff ? end_ : synced_;
}

std::unique_ptr<Reader> Cache::reader(const std::string& name) {
  if (!Ledger::isName(name)) return nullptr;
  const std::scoped_lock hold(mutex_);
  const auto& cursors = ledger_.contents().cursors;
  if (!cursors.contains(name)) {
    const std::uint64_t oldest = segments_.empty() ? end_ : segments_.front().previous;
    if (const int error = ledger_.setCursor(name, oldest)) failed("write", options_.directory + "/ledger", error);
  }
  return std::unique_ptr<Reader>(new Reader(*this, name, cursors.at(name)));
}

std::vector<std::string> Cache::readers() const {
  const std::scoped_lock hold(mutex_);
  std::vector<std::string> names;
  for (const auto& cursor : ledger_.contents().cursors) names.push_back(cursor.first);
  return names;
}

void Cache::forget(const std::string& name) {
  const std::scoped_lock hold(mutex_);
  if (const int error = ledger_.forgetCursor(name)) failed("write", options_.directory + "/ledger", error);
}

CacheCounts Cache::counts() const {
  const std::scoped_lock hold(mutex_);
  CacheCounts counts = counts_;
  counts.failures = failures_;
  return counts;
}

std::uint64_t Cache::bytes() const {
  const std::scoped_lock hold(mutex_);
  return bytes_;
}

/// The segment that holds `number` or what comes next.
std::optional<Segment> Cache::find(std::uint64_t number) const {
  for (const Kept& segment : segments_) {
    if (segment.end > number) return segment;
  }
  return std::nullopt;
}

void Cache::countDamage(std::uint64_t first, std::uint64_t count, std::uint64_t segment) {
  const std::scoped_lock hold(mutex_);
  if (count == 0 || !told_.insert(first).second) return;
  counts_.damaged += count;
  report(segmentName(segment) + ": " + std::to_string(count) + " events from number " + std::to_string(first) +
         " on are missing or damaged");
}

}  // namespace quillon::delivery
