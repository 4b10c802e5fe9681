#include "src/adapters/logfile/source/FileSource.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "src/adapters/logfile/source/FileReader.h"
#include "src/adapters/logfile/source/FileTable.h"
#include "src/adapters/logfile/source/FileTracker.h"

namespace quillon {
namespace {

std::size_t defaultMostOpen() {
  constexpr rlim_t kMost = 4096;
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 256;
  return static_cast<std::size_t>(std::clamp<rlim_t>(limit.rlim_cur / 2, 8, kMost));
}

}  // namespace

/// The table of files, who finds out about them and who reads them, and the messages that this gives.
class FileSource::Core {
 public:
  Core(const FileOptions& options, const std::vector<StateRecord>& state, bool damaged, SourceObserver& observer,
       SourceCounters& counters, ReadAllowance& allowance)
      : options_(options),
        table_(options.mostOpen ? options.mostOpen : defaultMostOpen(), options.longest),
        tracker_(options, restored(table_, state, damaged, observer), observer, counters),
        allowance_(allowance),
        reader_(tracker_, allowance, options.longest) {}

  /// The next message and the bytes that it took.
  bool next(TimePoint now, Message& message, std::uint64_t& bytes);
  TimePoint deadline() const { return std::min({tracker_.nextPoll(), nextRelease_, allowance_.resumeAt()}); }
  void finish(Finish how);
  void acknowledge(const Position& position);
  bool mayFollow(std::uint64_t id, TimePoint due) const;

  bool ended_ = false;

  const FileOptions options_;
  FileTable table_;
  FileTracker tracker_;

 private:
  static FileTable& restored(FileTable& table, const std::vector<StateRecord>& state, bool damaged,
                             SourceObserver& observer) {
    table.restore(state, damaged, observer);
    return table;
  }

  bool deliver(const Frame& line, TimePoint now, Message& message, std::uint64_t& bytes);
  bool deliverJoined(const FollowedFile& file, Message& message, std::uint64_t& bytes);
  bool beginTurn(FollowedFile& file, TimePoint now);
  bool mayBegin(FollowedFile& file, TimePoint now);
  void endTurn(std::uint64_t id, bool more);
  bool hasMore(std::uint64_t id, TimePoint now);
  bool release(TimePoint now, Message& message, std::uint64_t& bytes);
  void beginToStop(TimePoint now);
  void beginToDrain(TimePoint now);
  void end();

  ReadAllowance& allowance_;
  FileReader reader_;
  JoinedLines joined_;               ///< The message delivered last.
  std::set<std::uint64_t> holding_;  ///< Files whose joiner may hold a message.
  TimePoint nextRelease_ = TimePoint::max();
  TimePoint lookedAt_ = TimePoint::min();
  bool stopping_ = false;     ///< Only what would be lost is read,
  bool draining_ = false;     ///< or everything.
  bool allLookedAt_ = false;  ///< For the last time.
};

bool FileSource::Core::next(TimePoint now, Message& message, std::uint64_t& bytes) {
  allowance_.begin();
  bool looked = false;
  while (!ended_) {
    if (FollowedFile* const file = reader_.file()) {
      const std::uint64_t id = file->id;
      Frame line;
      bool more = false;
      if (reader_.next(line, now, more)) {
        if (deliver(line, now, message, bytes)) return true;
      } else if (reader_.file()) {
        return false;
      } else {
        endTurn(id, more);
        looked = false;
      }
      continue;
    }
    if (allowance_.isUsedUp(now)) return false;
    const bool finishing = draining_ || stopping_;
    if (finishing && !allLookedAt_) {
      draining_ ? beginToDrain(now) : beginToStop(now);
    } else if (!finishing && !std::exchange(looked, true)) {
      tracker_.look(now);
      lookedAt_ = now;
    }
    if (release(now, message, bytes)) return true;
    if (FollowedFile* const file = table_.takeQueued()) {
      beginTurn(*file, now);
    } else if (!finishing) {
      return false;
    } else if (holding_.empty()) {
      end();
    }
  }
  return false;
}

bool FileSource::Core::beginTurn(FollowedFile& file, TimePoint now) {
  if (file.isSilent() || (stopping_ ? !file.unlinked : !mayBegin(file, now))) return false;
  if (!table_.open(file)) {
    tracker_.failed(file);
    return false;
  }
  const std::uint64_t id = file.id;
  bool more = false;
  if (reader_.begin(file, draining_ || stopping_ || tracker_.isFinal(file, now), now, more)) return true;
  endTurn(id, more);
  return false;
}

/// False while a predecessor is to be read first; that will give the file its turn again.
bool FileSource::Core::mayBegin(FollowedFile& file, TimePoint now) {
  if (file.predecessor == 0) return true;
  if (tracker_.predecessorGrew(file, now)) return false;
  if (!file.waits) return true;
  FollowedFile* const before = table_.find(file.predecessor);
  if (before && (!before->isDrained() || !mayBegin(*before, now))) return false;
  file.waits = false;
  if (before && before->joiner.holds() && !file.joiner.holds()) {
    file.joiner.takeOver(before->joiner, now);
    file.inherited = file.joiner.position();
    holding_.insert(file.id);
  }
  return true;
}

void FileSource::Core::endTurn(std::uint64_t id, bool more) {
  FollowedFile* const file = table_.find(id);
  if (!file) return;
  if (more) {
    table_.enqueue(*file);
  } else if (FollowedFile* const next = table_.find(file->successor); next && file->isDrained()) {
    table_.enqueue(*next);
  }
}

bool FileSource::Core::deliver(const Frame& line, TimePoint now, Message& message, std::uint64_t& bytes) {
  FollowedFile& file = *reader_.file();
  message = {.text = line.text,
             .path = file.path,
             .stream = file.stream,
             .position = {.file = file.id, .offset = file.read.offset, .tail = file.read.tail},
             .cut = line.cut,
             .roomy = true};
  bytes = line.bytes;
  if (!options_.joining.indented) return true;
  const bool complete = file.joiner.add(message, bytes, now, joined_);
  holding_.insert(file.id);
  nextRelease_ = std::min(nextRelease_, now + options_.joining.wait);
  return complete && deliverJoined(file, message, bytes);
}

bool FileSource::Core::deliverJoined(const FollowedFile& file, Message& message, std::uint64_t& bytes) {
  message = {
      .text = joined_.text, .path = file.path, .stream = file.stream, .position = joined_.position, .cut = joined_.cut};
  bytes = joined_.bytes;
  return true;
}

/// True when more lines of the file's stream are there. Looks at the file once more: whoever was held up for longer
/// than a message waits must not take that for a pause of the writer.
bool FileSource::Core::hasMore(std::uint64_t id, TimePoint now) {
  FollowedFile* file = table_.find(id);
  if (!file->queued && !file->waits) tracker_.lookAgain(*file, now);
  file = table_.find(id);
  if (!file || file->queued) return true;
  const FollowedFile* const next = table_.find(file->successor);
  return next && next->queued;
}

bool FileSource::Core::mayFollow(std::uint64_t id, TimePoint due) const {
  const FollowedFile* const file = table_.find(id);
  if (lookedAt_ < due) return true;
  if (!file) return false;
  const FollowedFile* const next = table_.find(file->successor);
  return file->queued || file->waits || reader_.file() == file || (next && next->queued);
}

/// Delivers a message that has waited long enough for more lines. All that the kernel has told was looked at before.
bool FileSource::Core::release(TimePoint now, Message& message, std::uint64_t& bytes) {
  const bool last = allLookedAt_ && !table_.hasQueued();
  if (holding_.empty() || (now < nextRelease_ && !last)) return false;
  nextRelease_ = TimePoint::max();
  for (auto i = holding_.begin(); i != holding_.end();) {
    FollowedFile* const file = table_.find(*i);
    if (!file || !file->joiner.holds() || (stopping_ && !file->unlinked)) {
      i = holding_.erase(i);
      continue;
    }
    const TimePoint due = file->joiner.since() + options_.joining.wait;
    if (last || (now >= due && !hasMore(*i, now))) {
      joined_ = file->joiner.release();
      nextRelease_ = now;  // there may be another one
      return deliverJoined(*file, message, bytes);
    }
    nextRelease_ = std::min(nextRelease_, std::max(due, now));
    ++i;
  }
  return false;
}

void FileSource::Core::finish(Finish how) {
  if (how == Finish::kDrain) {
    draining_ = true;
    return;
  }
  stopping_ = true;
  reader_.stop();
}

/// Looks at the files once more, so that all that are there are known after a restart. They keep their text themselves,
/// but for those that were deleted and exist only as long as they are open.
void FileSource::Core::beginToStop(TimePoint now) {
  allLookedAt_ = true;
  tracker_.lookAtAll(now);
  table_.clearQueue();
  table_.forEach([this](FollowedFile& file) {
    table_.updatePlace(file);
    table_.touch(file);  // size and fingerprint may have grown
    if (file.unlinked) table_.enqueue(file);
  });
}

void FileSource::Core::beginToDrain(TimePoint now) {
  allLookedAt_ = true;
  tracker_.lookAtAll(now);
  table_.forEach([this](FollowedFile& file) {
    if (!file.isDrained()) table_.enqueue(file);
  });
}

/// Everything has been read that had to be.
void FileSource::Core::end() {
  ended_ = true;
  table_.forEach([this](FollowedFile& file) {
    if (file.unlinked && file.isDrained()) tracker_.letGo(file);
  });
}

void FileSource::Core::acknowledge(const Position& position) {
  FollowedFile* const file = table_.find(position.file);
  if (!file) return;
  if (const std::optional<Position> inherited = std::exchange(file->inherited, std::nullopt)) acknowledge(*inherited);
  if (position.offset <= file->acknowledged.offset) return;
  file->acknowledged = {.offset = position.offset, .tail = position.tail};
  table_.touch(*file);
}

FileSource::FileSource(const FileOptions& options, const std::vector<StateRecord>& state, SourceObserver& observer,
                       bool damaged)
    : core_(std::make_unique<Core>(options, state, damaged, observer, counters_, allowance_)) {}

FileSource::~FileSource() = default;

bool FileSource::next(TimePoint now, Message& message) {
  std::uint64_t bytes = 0;
  if (!core_->next(now, message, bytes)) return false;
  count(message, bytes);
  return true;
}

int FileSource::descriptor() const { return core_->tracker_.descriptor(); }

TimePoint FileSource::deadline() const { return core_->deadline(); }

bool FileSource::mayFollow(const Position& last, TimePoint due) const { return core_->mayFollow(last.file, due); }

void FileSource::finish(Finish how) { core_->finish(how); }

bool FileSource::ended() const { return core_->ended_; }

void FileSource::acknowledge(const Position& position) { core_->acknowledge(position); }

bool FileSource::comesAgain(const Position& position) const {
  const FollowedFile* const file = core_->table_.find(position.file);
  return file && !file->unlinked && !file->gone;
}

std::vector<StateRecord> FileSource::takeChanges() { return core_->table_.takeChanges(core_->tracker_.lookedAt()); }

SourceCounters FileSource::counters() const {
  SourceCounters counters = counters_;
  counters.lag = core_->table_.waiting();
  counters.watching = core_->table_.size();
  return counters;
}

}  // namespace quillon
