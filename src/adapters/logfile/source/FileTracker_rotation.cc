// What FileTracker does when a file has gone elsewhere or its text has: finds the rest of it, or tells what is missing.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "src/adapters/logfile/source/FileTracker.h"
#include "src/adapters/logfile/source/glob.h"

namespace quillon {
namespace {

/// A file that was rotated away, read to its end, and quiet for so long before it was deleted, had nothing more to say.
constexpr std::int64_t kLongQuiet = 60'000'000'000;

/// What is renamed while it is looked at is looked at again, so many times.
constexpr int kTries = 10;

Descriptor openFile(const std::string& path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_NOFOLLOW));
}

std::string join(const std::string& directory, const std::string& name) {
  return (directory == "/" ? "" : directory) + '/' + name;
}

/// The digits of a name, as a number modulo 2^64. Names that differ in one number are in the order of that.
std::uint64_t numberIn(const std::string& name) {
  std::uint64_t number = 0;
  for (const char c : name) {
    if (c >= '0' && c <= '9') number = number * 10 + static_cast<std::uint64_t>(c - '0');
  }
  return number;
}

/// When the file was made, as far as that can be known.
std::int64_t bornAt(const FileStatus& status) { return status.identity.born ? status.identity.born : status.changed; }

using Generation = std::pair<std::string, FileStatus>;

/// The oldest first. Files that were rotated within one tick of the clock have the same times: whether rotation counts
/// up or down, the oldest of them has the number next to that of the file before them, which has the name `former`
/// now. Without that the oldest is known, or 1 is taken to be the latest.
void sortByAge(std::vector<Generation>& files, const std::string& former) {
  const auto numberOf = [](const Generation& file) { return numberIn(nameOf(file.first)); };
  const auto age = [](const Generation& file, std::uint64_t distance) {
    return std::tuple(bornAt(file.second), file.second.modified, distance);
  };
  std::ranges::sort(files, {}, [&](const Generation& file) { return age(file, ~numberOf(file)); });
  const std::uint64_t before = former.empty() ? numberOf(files.front()) : numberIn(former);
  std::ranges::sort(files, {}, [&](const Generation& file) {
    return age(file, std::min(numberOf(file) - before, before - numberOf(file)));
  });
}

}  // namespace

void FileTracker::overwritten(FollowedFile& file, TimePoint now) {
  FollowedFile* fresh = nullptr;
  FileStatus status;
  // The text that is there now is of interest if it was written while the file was to be followed.
  if ((!file.isAway() || file.id == leaving_) && file.descriptor && lookAtFile(file.descriptor.get(), status)) {
    table_.updatePlace(file);  // by its path it may not be found any more
    fresh = &table_.add(file.path, file.place, status.identity);
    FileTable::handOver(file, *fresh);
    fresh->grew = now;
    fresh->stream = file.stream;
    if (!file.isAway()) rebind(file, *fresh);
  }
  table_.close(file);
  table_.setIdentity(file, {});  // the text that is there now has it
  continueOrLose({.file = file.id, .deleted = false}, now);
  if (!fresh) return;
  if (const auto entry = paths_.find(fresh->path); entry != paths_.end()) {
    findBetween({.file = fresh->id, .former = entry->second.former}, now);
  }
  lookAt(*fresh, status, now, true);
  listings_.forget();
}

/// All paths that lead to `from` lead to `to`, which is followed by one of them.
void FileTracker::rebind(FollowedFile& from, FollowedFile& to) {
  for (auto& [path, entry] : paths_) {
    if (entry.file != from.id) continue;
    entry.file = to.id;
    entry.former = from.id;
    if (to.paths++ == 0) to.path = path;
    if (--from.paths == 0) break;
  }
  table_.touch(from);
  table_.touch(to);
}

/// The text of the file is not where it was, or the file is not. Goes on in a copy of it, if there is one.
bool FileTracker::continueInCopy(FollowedFile& file, TimePoint now) {
  if (file.isSilent() || file.head.length() == 0) return false;
  std::string found;
  FileStatus best;
  for (const auto& [directory, base] :
       {std::pair(directoryOf(file.place), nameOf(file.place)), std::pair(directoryOf(file.path), nameOf(file.path))}) {
    for (const std::string& name : listings_.rotatedNames(directory, base)) {
      FileStatus status;
      const std::string path = join(directory, name);
      if (!isContinuation(path, file, status)) continue;
      if (!found.empty() && std::tie(status.size, status.modified) <= std::tie(best.size, best.modified)) continue;
      found = path;
      best = status;
    }
  }
  if (found.empty()) return false;
  if (FollowedFile* const copy = table_.findByIdentity(best.identity)) {
    rebind(*copy, file);
    table_.remove(*copy);
  }
  table_.setIdentity(file, best.identity);
  table_.setPlace(file, found);
  file.size = best.size;
  file.settled = false;
  file.unlinked = false;
  file.grew = now;
  table_.enqueue(file);
  return true;
}

bool FileTracker::isContinuation(const std::string& path, const FollowedFile& file, FileStatus& status) {
  const Descriptor copy = openFile(path);
  if (!copy || !lookAtFile(copy.get(), status)) return false;
  const FollowedFile* const other = table_.findByIdentity(status.identity);
  if (other && other->copyOf != file.id) return false;
  // One that was not written to since then cannot have what was written since then; and a short text is no proof when
  // the other file was there first.
  if (status.size < file.seen.offset || status.modified < file.modified) return false;
  if (!other && file.seen.offset < Fingerprint::kMostBytes && status.identity.born < file.identity.born) return false;
  std::uint64_t tail = 0;
  return file.head.matches(copy.get()) &&
         (file.seen.offset == 0 || (readTailHash(copy.get(), file.seen.offset, tail) && tail == file.seen.tail));
}

/// Lets a file that is at its path come after those that were there in the meantime; not before others have got the
/// copies of their texts.
void FileTracker::findBetween(const Change& change, TimePoint now) {
  if (claiming_) return changes_.push_back(change);
  FollowedFile* const file = table_.find(change.file);
  const auto entry = file ? paths_.find(file->path) : paths_.end();
  if (entry == paths_.end()) return;
  entry->second.former = change.former;
  adoptGenerations(file->path, entry->second, now);
  follows(*file, std::exchange(entry->second.former, file->id));
}

/// Takes up the files that stood at the path and were rotated away since it was last looked at, the oldest first.
void FileTracker::adoptGenerations(const std::string& path, Path& entry, TimePoint now) {
  if (entry.lookedAt == 0) return;
  const std::string directory = directoryOf(path);
  std::vector<Generation> found;
  const auto find = [&] {
    found.clear();
    for (const std::string& name : listings_.rotatedNames(directory, nameOf(path))) {
      FileStatus status;
      const std::string place = join(directory, name);
      if (isGeneration(place, path, entry, now, status)) found.emplace_back(place, status);
    }
  };
  find();
  for (int n = 0; n < kTries && !found.empty() && !listings_.isStill(directory); ++n) find();
  const FollowedFile* former = table_.find(entry.former);
  if (found.size() > 1) {
    sortByAge(found, former ? listings_.nameOfInode(directory, former->identity.inode) : "");
  }
  for (const auto& [place, status] : found) {
    if (known(status.identity, now)) continue;  // by now: another one goes on in it
    former = table_.find(entry.former);
    FollowedFile& file = table_.add(path, place, status.identity);
    file.grew = now;
    file.stream = former ? former->stream : ++lastStream_;
    follows(file, entry.former);
    entry.former = file.id;
    lookAt(file, status, now, true);
  }
}

/// A short text may begin like any other; and what was renamed was not copied, as far as one can tell.
bool FileTracker::onlyLooksLike(std::uint64_t size, const FollowedFile& former) {
  return size < kTailBytes && former.isRotated() && !former.gone;
}

/// True when what stands at `place` was once at `path`, and is to be read.
bool FileTracker::isGeneration(const std::string& place, const std::string& path, const Path& entry, TimePoint now,
                               FileStatus& status) {
  if (scanner_.matches(place)) return false;  // is followed on its own
  const Descriptor file = openFile(place);
  if (!file || !lookAtFile(file.get(), status) || bornAt(status) < entry.lookedAt) return false;
  if (known(status.identity, now)) return false;
  std::array<char, 16> room;
  const ssize_t count = pread(file.get(), room.data(), room.size(), 0);
  if (count < 0 || isCompressed({room.data(), static_cast<std::size_t>(count)})) return false;
  if (count == 0) return true;
  // It may be a copy of what was read before; that is remembered, because what was read before will be forgotten.
  FollowedFile* const former = table_.find(entry.former);
  if (former && !former->gone && !table_.open(*former) && former->isAway()) {
    lookAtAway(*former, now, true);  // it may go on here
    if (known(status.identity, now)) return false;
  }
  const bool mayBeCopy =
      former && (former->descriptor || status.size <= former->seen.offset) && !onlyLooksLike(status.size, *former);
  if (mayBeCopy && isCopyOf(file.get(), status.size, *former)) {
    FollowedFile& copy = table_.add(path, place, status.identity);
    copy.size = status.size;
    copy.passedOver = !passOver(copy, *former);
    return false;
  }
  // Or of what is there now and is about to be cut: then it will be where that goes on.
  const Descriptor present(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  return !(present && isBeginningOf(file.get(), status.size, present.get()));
}

/// `file` is read when the predecessor is at its end.
void FileTracker::follows(FollowedFile& file, std::uint64_t predecessor) {
  FollowedFile* const before = table_.find(predecessor);
  if (!before || before->successor == file.id) return;
  if (FollowedFile* const other = table_.find(before->successor)) {
    other->predecessor = 0;
    other->waits = false;
    table_.touch(*other);
    table_.enqueue(*other);
  }
  before->successor = file.id;
  file.predecessor = before->id;
  file.waits = true;
  table_.touch(file);
}

/// The file that is known by this identity. One that had the same number before is deleted now; it may go on in this.
FollowedFile* FileTracker::known(const FileIdentity& identity, TimePoint now) {
  FollowedFile* const before = table_.findByInode(identity);
  if (before && !before->identity.mayBe(identity)) continueOrLose({.file = before->id, .deleted = true}, now);
  return table_.findByIdentity(identity);
}

/// Looks for a closed file that is not in its place any more, in the directories where it was.
bool FileTracker::findElsewhere(FollowedFile& file, FileStatus& status) {
  bool isMoving = true;
  for (int n = 0; isMoving && n < kTries; ++n) {
    isMoving = false;
    for (const std::string& directory : {directoryOf(file.place), directoryOf(file.path)}) {
      const std::string name = listings_.nameOfInode(directory, file.identity.inode);
      if (name.empty()) continue;
      const bool isThere = lookAtFile(join(directory, name), status);
      if (isThere && file.identity.mayBe(status.identity)) {
        table_.setPlace(file, join(directory, name));
        return true;
      }
      isMoving |= !isThere || status.identity.inode != file.identity.inode;
      if (isMoving) listings_.forget();
    }
  }
  return false;
}

/// The text of the file is nowhere. What a copy has of it is read there. Whether it is a copy nobody knows when they
/// have little in common, which may be the beginning of many files; nor what a file had that was deleted.
void FileTracker::continueOrLose(const Claim& claim, TimePoint now) {
  if (claiming_) {
    const auto isSame = [&](const Claim& other) { return other.file == claim.file; };
    if (std::none_of(claims_.begin(), claims_.end(), isSame)) claims_.push_back(claim);
    return;
  }
  FollowedFile& file = *table_.find(claim.file);
  const bool mayHaveMore = !file.isSilent() && !isAtItsEnd(file);
  const std::uint64_t size = file.size;
  if (!continueInCopy(file, now)) return lost(file, claim.deleted ? "deleted" : "overwritten");
  const std::uint64_t same = std::max<std::uint64_t>(file.seen.offset, file.head.length());
  if (!mayHaveMore || (!claim.deleted && same >= kTailBytes)) return;
  tellGap(file, same, size > file.size ? size : same,
          claim.deleted ? "deleted; a copy need not have all of it" : "overwritten; what may be a copy is read");
}

/// Of several files that may go on in a copy, the one has it that it has most in common with. What they do not take may
/// be new.
void FileTracker::settleClaims(TimePoint now) {
  claiming_ = false;
  std::vector<Claim> claims = std::exchange(claims_, {});
  std::erase_if(claims, [this](const Claim& claim) { return !table_.find(claim.file); });
  std::stable_sort(claims.begin(), claims.end(), [this](const Claim& one, const Claim& other) {
    return table_.find(one.file)->seen.offset > table_.find(other.file)->seen.offset;
  });
  for (const Claim& claim : claims) continueOrLose(claim, now);
  for (const Change& change : std::exchange(changes_, {})) findBetween(change, now);
}

/// What is left of the file cannot be read.
void FileTracker::lost(FollowedFile& file, const char* cause) {
  if (!file.isSilent() && !isAtItsEnd(file))
    tellGap(file, file.read.offset, std::max(file.size, file.seen.offset), cause);
  letGo(file);
}

bool FileTracker::isAtItsEnd(const FollowedFile& file) const {
  return file.isRotated() && file.isDrained() && file.modified < lookedAt_ - kLongQuiet && file.successor != 0;
}

void FileTracker::shrunk(FollowedFile& file, std::uint64_t size) {
  if (file.size > size && !file.isSilent()) tellGap(file, size, file.size, "truncated");
  file.size = size;
}

/// What stands between these places is missing, and what may have been written behind it.
void FileTracker::tellGap(const FollowedFile& file, std::uint64_t from, std::uint64_t to, const char* cause) {
  ++counters_.gaps;
  observer_.gap({.path = file.path, .from = from, .to = std::max(from, to), .open = true, .cause = cause});
}

/// When a copy has nothing that was not read of the original, which goes, only what comes behind that is its own.
bool FileTracker::passOver(FollowedFile& copy, const FollowedFile& original) {
  if (copy.size > original.seen.offset || !table_.open(copy)) return false;
  const int file = copy.descriptor.get();
  Mark end{.offset = copy.size};
  if (!isCopyOf(file, copy.size, original) || !readTailHash(file, end.offset, end.tail)) return false;
  if (!copy.head.matchAndGrow(file, end.offset)) return false;
  copy.acknowledged = copy.read = copy.seen = end;
  copy.copyOf = 0;
  table_.touch(copy);
  return true;
}

void FileTracker::letGo(FollowedFile& file) {
  table_.close(file);
  file.gone = true;
  table_.touch(file);
  if (std::exchange(file.copied, false)) {
    table_.forEach([&](FollowedFile& copy) {
      if (copy.copyOf == file.id) static_cast<void>(passOver(copy, file));
    });
  }
  if (FollowedFile* const next = table_.find(file.successor)) table_.enqueue(*next);
}

/// The file that one with this name may be a rotated copy of, among those that stand in the same directory to be
/// followed, or stood there last; perhaps one that has just gone.
FollowedFile* FileTracker::originalOf(const std::string& path) const {
  const std::string name = nameOf(path);
  const std::string directory = path.substr(0, path.size() - name.size());
  const std::string ending = name.substr(std::min(name.rfind('.'), name.size()));
  for (std::size_t length = name.size() - 1; length > 0; --length) {
    for (const std::string& base : {name.substr(0, length), name.substr(0, length) + ending}) {
      if (!isRotatedName(base, name)) continue;
      const auto entry = paths_.find(directory + base);
      if (entry == paths_.end()) continue;
      FollowedFile* file = table_.find(entry->second.file);
      if (!file) file = table_.find(entry->second.former);
      for (; file; file = table_.find(file->predecessor)) {
        if (!file->passedOver && file->copyOf == 0 && file->seen.offset > 0) return file;
      }
    }
  }
  return nullptr;
}

}  // namespace quillon
