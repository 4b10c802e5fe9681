#include "src/adapters/logfile/source/FileTracker.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <utility>

#include "src/adapters/logfile/source/glob.h"

namespace quillon {
namespace {

/// Files whose changes are told are looked at every so many polls, all the same.
constexpr std::uint64_t kTurns = 10;
/// Later than so many nanoseconds after a change, another one shows in the times of a file.
constexpr std::int64_t kTimesSettle = 2'000'000'000;

/// The path without a symbolic link at its end.
std::string placeOf(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return path;
  const std::unique_ptr<char, decltype(&std::free)> place(realpath(path.c_str(), nullptr), &std::free);
  return place ? place.get() : path;
}

bool isUnchanged(const FollowedFile& file, const FileStatus& status) {
  return file.settled && file.size == status.size && file.modified == status.modified && file.changed == status.changed;
}

}  // namespace

FileTracker::FileTracker(const FileOptions& options, FileTable& table, SourceObserver& observer,
                         SourceCounters& counters)
    : options_(options),
      table_(table),
      observer_(observer),
      counters_(counters),
      watch_(options.watch),
      scanner_(options.include, options.exclude) {
  restore();
}

/// Goes on with the files of an earlier run, as if they had been looked at when that run last did.
void FileTracker::restore() {
  lookedAt_ = table_.restoredLookedAt();
  std::unordered_map<std::string, std::uint64_t> streams;
  table_.forEach([&](FollowedFile& file) {
    if (file.gone) {
      tellGap(file, file.read.offset, file.size, "deleted, and what was read of it was not taken care of");
    }
    if (file.gone || !scanner_.matches(file.path)) {  // the latter is not to be followed any more
      table_.remove(file);
      return;
    }
    const auto [stream, isNew] = streams.try_emplace(file.path, lastStream_ + 1);
    if (isNew) ++lastStream_;
    file.stream = stream->second;
    Path& entry = paths_[!file.isAway() && scanner_.matches(file.place) ? file.place : file.path];
    entry.lookedAt = lookedAt_;
    if (file.isAway()) {
      if (!file.isSilent()) entry.former = std::max(entry.former, file.id);
    } else if (entry.file == 0) {
      entry.file = file.id;
    } else {
      file.paths = 0;
    }
  });
}

void FileTracker::look(TimePoint now) {
  std::set<std::string> named;
  std::set<std::string> appeared;
  const bool complete = watch_.read([&](const DirectoryWatch::Event& event) {
    rescan_ |= event.directory;
    named.insert(event.path);
    if (event.appeared) appeared.insert(event.path);
  });
  if (!complete) rescan_ = true;
  if (!complete || now >= nextPoll_) poll(now, !complete || polls_ == 0);
  if (named.empty()) return;
  std::vector<std::string> paths;
  for (const std::string& path : named) checkName(path, appeared.contains(path), paths, now);
  std::sort(paths.begin(), paths.end());
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
  check(paths, now, true);
}

void FileTracker::lookAgain(FollowedFile& file, TimePoint now) {
  if (isCovered(file)) return;
  if (file.isAway()) {
    lookAtAway(file, now, false);
  } else {
    check({file.path}, now, false);
  }
}

void FileTracker::lookAtAll(TimePoint now) {
  watch_.read([](const DirectoryWatch::Event&) {});
  rescan_ = true;
  poll(now, true);
}

/// Something has happened to what has this name, or had it. Adds to `paths` what is to be checked for it.
void FileTracker::checkName(const std::string& path, bool appeared, std::vector<std::string>& paths, TimePoint now) {
  if (paths_.contains(path) || scanner_.matches(path)) {
    // If it is gone already, it was there since the last look, and is looked for as what was rotated.
    if (appeared) paths_.try_emplace(path, Path{.lookedAt = lookedAt_});
    paths.push_back(path);
    return;
  }
  FollowedFile* file = table_.findByPlace(path);
  FileStatus status;
  if (appeared && lookAtFile(path, status)) {
    file = known(status.identity, now);
    if (file && file->isAway()) table_.setPlace(*file, path);
  }
  if (!file) return;
  if (file->isAway()) {
    lookAtAway(*file, now, true);
  } else {
    paths.push_back(file->path);
  }
}

void FileTracker::poll(TimePoint now, bool all) {
  const std::int64_t started = fileClock();
  if (lookedAt_ == 0) lookedAt_ = started;
  std::vector<std::string> paths;
  if (scan(all)) {
    for (const std::string& path : scanner_.paths()) {
      if (!paths_.contains(path)) paths.push_back(path);
    }
    std::erase_if(paths_, [this](const auto& entry) {
      return entry.second.file == 0 && !table_.find(entry.second.former) && !scanner_.paths().contains(entry.first);
    });
    for (const auto& [path, entry] : paths_) {
      if (entry.file == 0) paths.push_back(path);
    }
  }
  for (const auto& [path, entry] : paths_) {
    const FollowedFile* const file = table_.find(entry.file);
    if (file && isTurnOf(*file, all)) paths.push_back(path);
  }
  std::sort(paths.begin(), paths.end());
  std::vector<std::uint64_t> away;
  table_.forEach([&](FollowedFile& file) {
    if (file.isAway() && isTurnOf(file, all)) away.push_back(file.id);
  });
  check(paths, now, all, away);
  table_.forEach([&](FollowedFile& file) { settle(file, now); });
  listings_.forget();
  lookedAt_ = started;
  ++polls_;
  nextPoll_ = now + options_.pollInterval;
}

/// Finds out which paths there are, if that can have changed. False when it has not.
bool FileTracker::scan(bool all) {
  const auto look = [&](const std::string& directory) {
    return all || polls_ % kTurns == 0 || !watch_.covers(directory);
  };
  if (!rescan_ && !scanner_.hasChanged(look)) return false;
  rescan_ = false;
  bool exhausted = false;
  scanner_.scan([&](const std::string& directory) {
    // What happened before the watch was there is found by another scan.
    rescan_ |= watch_.watch(directory, exhausted);
  });
  std::set<std::string> directories = scanner_.directories();
  table_.forEach([&](FollowedFile& file) {
    const std::string directory = directoryOf(file.place);
    if (directories.contains(directory)) return;
    watch_.watch(directory, exhausted);
    directories.insert(directory);
  });
  watch_.keepOnly(directories);
  if (exhausted && !std::exchange(toldExhausted_, true)) {
    observer_.notice(SourceObserver::Level::kWarning,
                     "no inotify watches are left (fs.inotify.max_user_watches); some files are only looked at every "
                     "poll interval");
  }
  return true;
}

bool FileTracker::isTurnOf(const FollowedFile& file, bool all) const {
  return all || !file.settled || (file.id + polls_) % kTurns == 0 || !isCovered(file);
}

bool FileTracker::isCovered(const FollowedFile& file) const { return watch_.covers(directoryOf(file.place)); }

/// Looks at paths to be followed, and at files that are `away`. Files that only changed their names, and copies in
/// which one goes on, must be known as such before a new file is believed in, so this goes step by step for all of
/// them.
void FileTracker::check(const std::vector<std::string>& paths, TimePoint now, bool closely,
                        const std::vector<std::uint64_t>& away) {
  const std::int64_t started = fileClock();
  std::vector<Sighting> others;
  listings_.forget();
  claiming_ = true;
  for (const std::string& path : paths) {
    Sighting sighting{.path = path, .status = {}};
    sighting.there = scanner_.matches(path) && lookAtFile(path, sighting.status);
    const auto entry = paths_.find(path);
    sighting.before = entry == paths_.end() ? 0 : entry->second.file;
    FollowedFile* const file = table_.find(sighting.before);
    if (file && sighting.there && file->identity.mayBe(sighting.status.identity)) {
      if (!file->descriptor && !isUnchanged(*file, sighting.status)) table_.setPlace(*file, placeOf(path));
      lookAt(*file, sighting.status, now, closely);
    } else {
      others.push_back(std::move(sighting));
    }
  }

  std::vector<std::uint64_t> left;
  for (const Sighting& sighting : others) {
    FollowedFile* const file = table_.find(sighting.before);
    if (!file) continue;
    paths_[sighting.path].file = 0;
    paths_[sighting.path].former = file->id;
    if (--file->paths == 0) left.push_back(file->id);
  }
  std::vector<const Sighting*> moved;
  for (const Sighting& sighting : others) {
    FollowedFile* const file = sighting.there ? table_.findByIdentity(sighting.status.identity) : nullptr;
    if (!file) continue;
    bind(sighting.path, *file);
    moved.push_back(&sighting);
  }
  for (const Sighting* const sighting : moved) {
    FollowedFile* const file = table_.find(paths_[sighting->path].file);
    if (file) lookAt(*file, sighting->status, now, true);
  }
  for (const std::uint64_t id : left) {
    FollowedFile* const file = table_.find(id);
    if (!file || !file->isAway()) continue;
    table_.touch(*file);
    leaving_ = id;
    lookAtAway(*file, now, true);
    leaving_ = 0;
  }
  for (const std::uint64_t id : away) {
    FollowedFile* const file = table_.find(id);
    if (file && file->isAway()) lookAtAway(*file, now, closely);
  }
  settleClaims(now);
  for (const Sighting& sighting : others) {
    // What was there before it, since all files were looked at, was rotated away already.
    Path& entry = paths_.try_emplace(sighting.path, Path{.lookedAt = lookedAt_}).first->second;
    const bool isBound = entry.file != 0;
    if (isBound) entry.former = sighting.before;  // what came back here waits for none of those
    adoptGenerations(sighting.path, entry, now);
    if (isBound) entry.former = entry.file;
    if (sighting.there && !isBound) adopt(sighting, now);
  }
  for (const std::string& path : paths) {
    if (const auto entry = paths_.find(path); entry != paths_.end()) entry->second.lookedAt = started;
  }
  listings_.forget();
}

void FileTracker::bind(const std::string& path, FollowedFile& file) {
  Path& entry = paths_[path];
  entry.file = entry.former = file.id;
  ++file.paths;
  table_.setPlace(file, placeOf(path));
  table_.touch(file);
}

/// A new file is at a path.
void FileTracker::adopt(const Sighting& sighting, TimePoint now) {
  if (FollowedFile* const other = known(sighting.status.identity, now)) {
    // It may have been rotated away in the meantime, and been found where it is now.
    FileStatus status;
    rescan_ = true;
    if (lookAtFile(sighting.path, status) && other->identity.mayBe(status.identity)) bind(sighting.path, *other);
    return;
  }
  const FollowedFile* const former = table_.find(paths_[sighting.path].former);
  FollowedFile& file = table_.add(sighting.path, placeOf(sighting.path), sighting.status.identity);
  file.grew = now;
  file.stream = former && former->isRotated() ? former->stream : ++lastStream_;
  if (former && former->isRotated()) follows(file, former->id);
  bind(sighting.path, file);
  if (options_.fromEnd && table_.isFirstRun() && polls_ == 0) beginAtEnd(file, sighting.status);
  lookAt(file, sighting.status, now, true);
}

/// Puts the position behind the last whole line that is there.
void FileTracker::beginAtEnd(FollowedFile& file, const FileStatus& status) {
  if (!table_.open(file)) return;
  std::array<char, 4096> room;
  const std::uint64_t least = status.size - std::min<std::uint64_t>(status.size, options_.longest);
  std::uint64_t offset = status.size;
  for (std::uint64_t end = status.size; end > least;) {
    const std::uint64_t start = end - std::min<std::uint64_t>(end - least, room.size());
    const ssize_t count = pread(file.descriptor.get(), room.data(), end - start, static_cast<off_t>(start));
    const void* const newline = count > 0 ? memrchr(room.data(), '\n', static_cast<std::size_t>(count)) : nullptr;
    if (newline) offset = start + static_cast<std::uint64_t>(static_cast<const char*>(newline) - room.data()) + 1;
    if (newline || count <= 0) break;
    end = start;
    if (end == 0) offset = 0;
  }
  Mark mark{.offset = offset};
  if (!readTailHash(file.descriptor.get(), offset, mark.tail) ||
      !file.head.matchAndGrow(file.descriptor.get(), offset)) {
    return;
  }
  file.acknowledged = file.read = file.seen = mark;
}

/// Compares a file with what is known of it.
void FileTracker::lookAt(FollowedFile& file, const FileStatus& status, TimePoint now, bool closely) {
  if (file.gone) return;
  file.unlinked = !status.linked;
  if (!closely && isUnchanged(file, status)) return;
  FileStatus current;
  if (!table_.open(file)) return failed(file);
  if (!lookAtFile(file.descriptor.get(), current)) return;
  if (!file.hasSameText(file.descriptor.get(), current)) return overwritten(file, now);
  file.unreadable = false;
  // What was empty may have had text in the meantime, which was then copied and truncated.
  if (file.seen.offset == 0 && !file.isAway() && file.modified != 0 && file.modified != current.modified) {
    findBetween({.file = file.id, .former = file.waits ? file.predecessor : 0}, now);
    if (!table_.open(file)) return failed(file);  // those may have taken its descriptor
  }
  // As long as nothing was read, the beginning is all that it can be told by.
  if (file.seen.offset == 0) {
    if (!file.head.matchAndGrow(file.descriptor.get(), current.size)) return;
    table_.touch(file);
  }
  if (current.size < file.size) shrunk(file, current.size);
  file.size = current.size;
  file.modified = current.modified;
  file.changed = current.changed;
  file.settled = fileClock() - std::max(file.modified, file.changed) > kTimesSettle;
  if (current.size > file.seen.offset && isOwnText(file, now)) {
    file.grew = now;
    table_.enqueue(file);
  }
}

void FileTracker::failed(FollowedFile& file) {
  if (errno == ENOENT || errno == ESTALE) return;  // it has just gone elsewhere; the next look will see
  if (std::exchange(file.unreadable, true)) return;
  observer_.notice(SourceObserver::Level::kError, file.place + ": " + std::strerror(errno));
  if (FollowedFile* const next = table_.find(file.successor)) table_.enqueue(*next);
}

/// False when the text is not to be read: it is compressed, or a copy of another file. The file may be removed by this.
bool FileTracker::isOwnText(FollowedFile& file, TimePoint now) {
  if (file.passedOver) return false;
  if (file.seen.offset == 0 && file.copyOf == 0) {
    std::array<char, 16> room;
    const ssize_t count = pread(file.descriptor.get(), room.data(), room.size(), 0);
    file.passedOver = count > 0 && isCompressed({room.data(), static_cast<std::size_t>(count)});
    if (file.passedOver) {
      observer_.notice(SourceObserver::Level::kInfo, file.place + ": is compressed and not read");
      table_.touch(file);
      return false;
    }
    FollowedFile* const original = originalOf(file.place);
    if (original == &file) return true;
    if (original && !onlyLooksLike(file.size, *original)) {
      file.copyOf = original->id;
      original->copied = true;
    }
  }
  if (file.copyOf == 0) return true;

  // The original is looked at first: when it has been truncated, this may be where it goes on.
  const std::uint64_t id = file.id;
  FollowedFile* original = table_.find(file.copyOf);
  FileStatus status;
  if (original && !original->gone && table_.open(*original) && lookAtFile(original->descriptor.get(), status) &&
      !original->hasSameText(original->descriptor.get(), status)) {
    overwritten(*original, now);
    if (!table_.find(id) || file.seen.offset > 0) return false;
    original = table_.find(file.copyOf);
  }
  if (original && !original->gone && table_.open(file) && isCopyOf(file.descriptor.get(), file.size, *original)) {
    table_.touch(file);
    return false;
  }
  file.copyOf = 0;
  table_.touch(file);
  if (original && original->gone && passOver(file, *original)) return false;
  return table_.open(file);
}

/// A file that no path to be followed leads to.
void FileTracker::lookAtAway(FollowedFile& file, TimePoint now, bool closely) {
  FileStatus status;
  if (file.gone) return;
  if (file.descriptor) {
    if (lookAtFile(file.descriptor.get(), status)) lookAt(file, status, now, closely);
  } else if ((lookAtFile(file.place, status) && file.identity.mayBe(status.identity)) || findElsewhere(file, status)) {
    lookAt(file, status, now, closely);
  } else {
    continueOrLose({.file = file.id, .deleted = true}, now);
  }
}

/// A writer may go on with a file that was renamed before it turns to the new one. What it wrote there came first.
bool FileTracker::predecessorGrew(const FollowedFile& file, TimePoint now) {
  const std::uint64_t id = file.predecessor;
  FollowedFile* before = table_.find(id);
  FileStatus status;
  if (before && before->descriptor && lookAtFile(before->descriptor.get(), status) && status.size > before->size) {
    lookAt(*before, status, now, false);
    before = table_.find(id);
  }
  return before && before->queued && !before->isSilent();
}

bool FileTracker::isFinal(const FollowedFile& file, TimePoint now) const {
  return file.isRotated() && now - file.grew >= options_.quiet;
}

/// Brings to its end what has waited for long enough.
void FileTracker::settle(FollowedFile& file, TimePoint now) {
  if (!file.gone && isFinal(file, now)) {
    if (file.seen.offset > file.read.offset) table_.enqueue(file);
    if (file.unlinked && file.isDrained()) letGo(file);
  }
  if (file.isDone()) table_.remove(file);
}

}  // namespace quillon
