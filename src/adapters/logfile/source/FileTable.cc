#include "src/adapters/logfile/source/FileTable.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "src/adapters/logfile/source/FileRecord.h"
#include "src/adapters/logfile/source/glob.h"

namespace quillon {
namespace {

constexpr char kSourceKey[] = "source";
constexpr std::string_view kFilePrefix = "file/";

FileRecord recordOf(const FollowedFile& file) {
  return {.id = file.id,
          .path = file.path,
          .place = file.place,
          .identity = file.identity,
          .headLength = file.head.length(),
          .headHash = file.head.hash(),
          .offset = file.acknowledged.offset,
          .tail = file.acknowledged.tail,
          .size = file.size,
          .modified = file.modified,
          .predecessor = file.predecessor,
          .copyOf = file.copyOf,
          .away = file.isAway(),
          .passedOver = file.passedOver,
          .gone = file.gone};
}

}  // namespace

void FileTable::restore(const std::vector<StateRecord>& state, bool damaged, SourceObserver& observer) {
  firstRun_ = state.empty() && !damaged;
  for (const StateRecord& record : state) {
    std::string error;
    if (record.key == kSourceKey) {
      const auto source = decodeFileSourceRecord(record.value, error);
      if (source) {
        restoredLookedAt_ = source->lookedAt;
        lastId_ = std::max(lastId_, source->lastId);
      }
    } else if (record.key.starts_with(kFilePrefix)) {
      if (const auto kept = decodeFileRecord(record.value, error)) {
        FollowedFile& file = create(kept->id, kept->path, kept->place, kept->identity);
        lastId_ = std::max(lastId_, kept->id);
        file.head = Fingerprint(kept->headLength, kept->headHash);
        file.acknowledged = file.read = file.seen = {.offset = kept->offset, .tail = kept->tail};
        file.size = kept->size;
        file.modified = kept->modified;
        file.predecessor = kept->predecessor;
        file.waits = kept->predecessor != 0;
        file.copyOf = kept->copyOf;
        file.passedOver = kept->passedOver;
        file.gone = kept->gone;
        file.paths = kept->away ? 0 : 1;
      }
    } else {
      error = "is of no use here";
    }
    if (!error.empty()) {
      observer.notice(SourceObserver::Level::kError, "what was kept as " + record.key + " " + error);
    }
  }
  touched_.clear();
  forEach([this](FollowedFile& file) {
    file.changedState = false;
    if (FollowedFile* const before = find(file.predecessor)) before->successor = file.id;
    if (FollowedFile* const original = find(file.copyOf)) original->copied = true;
  });
}

FollowedFile& FileTable::add(const std::string& path, const std::string& place, const FileIdentity& identity) {
  return create(++lastId_, path, place, identity);
}

FollowedFile& FileTable::create(std::uint64_t id, const std::string& path, const std::string& place,
                                const FileIdentity& identity) {
  FollowedFile& file = *(files_[id] = std::make_unique<FollowedFile>());
  file.id = id;
  file.path = path;
  file.identity = identity;
  file.joiner = LineJoiner(longest_);
  byInode_.emplace(inodeKey(identity), &file);
  setPlace(file, place);
  touch(file);
  return file;
}

void FileTable::remove(FollowedFile& file) {
  close(file);
  unlinkInode(file);
  const auto place = byPlace_.find(file.place);
  if (place != byPlace_.end() && place->second == &file) byPlace_.erase(place);
  touched_.push_back(file.id);  // found to be gone when the changes are taken
  files_.erase(file.id);
}

FollowedFile* FileTable::find(std::uint64_t id) const {
  const auto found = files_.find(id);
  return found == files_.end() ? nullptr : found->second.get();
}

FollowedFile* FileTable::findByIdentity(const FileIdentity& identity) const {
  const auto [first, last] = byInode_.equal_range(inodeKey(identity));
  for (auto i = first; i != last; ++i) {
    if (!i->second->gone && i->second->identity.mayBe(identity)) return i->second;
  }
  return nullptr;
}

FollowedFile* FileTable::findByInode(const FileIdentity& identity) const {
  return findByIdentity({.device = identity.device, .inode = identity.inode});
}

FollowedFile* FileTable::findByPlace(const std::string& place) const {
  const auto found = byPlace_.find(place);
  return found == byPlace_.end() ? nullptr : found->second;
}

void FileTable::forEach(const std::function<void(FollowedFile&)>& visit) {
  std::vector<std::uint64_t> ids;  // the visitor may add and remove files
  ids.reserve(files_.size());
  for (const auto& entry : files_) ids.push_back(entry.first);
  for (const std::uint64_t id : ids) {
    if (FollowedFile* const file = find(id)) visit(*file);
  }
}

std::uint64_t FileTable::waiting() const {
  std::uint64_t bytes = 0;
  for (const auto& entry : files_) {
    const FollowedFile& file = *entry.second;
    if (!file.isSilent() && file.size > file.read.offset) bytes += file.size - file.read.offset;
  }
  return bytes;
}

void FileTable::setIdentity(FollowedFile& file, const FileIdentity& identity) {
  unlinkInode(file);
  file.identity = identity;
  byInode_.emplace(inodeKey(identity), &file);
  touch(file);
}

void FileTable::unlinkInode(const FollowedFile& file) {
  const auto [first, last] = byInode_.equal_range(inodeKey(file.identity));
  const auto found = std::find_if(first, last, [&](const auto& entry) { return entry.second == &file; });
  if (found != last) byInode_.erase(found);
}

void FileTable::setPlace(FollowedFile& file, const std::string& place) {
  const auto old = byPlace_.find(file.place);
  if (old != byPlace_.end() && old->second == &file) byPlace_.erase(old);
  if (file.place != place) touch(file);
  file.place = place;
  file.renamed = isRotatedName(nameOf(file.path), nameOf(place));
  byPlace_[place] = &file;
}

bool FileTable::open(FollowedFile& file) {
  if (file.descriptor) {
    open_.splice(open_.end(), open_, file.openPlace);
    return true;
  }
  while (!open_.empty() && open_.size() >= mostOpen_) close(*open_.front());
  while (true) {
    file.descriptor = Descriptor(::open(file.place.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.descriptor || (errno != EMFILE && errno != ENFILE) || open_.empty()) break;
    close(*open_.front());
  }
  if (!file.descriptor) return false;
  FileStatus status;
  if (!lookAtFile(file.descriptor.get(), status) || !file.identity.mayBe(status.identity)) {
    file.descriptor = Descriptor();
    errno = ESTALE;
    return false;
  }
  open_.push_back(&file);
  file.openPlace = std::prev(open_.end());
  return true;
}

void FileTable::close(FollowedFile& file) {
  if (!file.descriptor) return;
  updatePlace(file);
  file.descriptor = Descriptor();
  open_.erase(file.openPlace);
}

void FileTable::handOver(FollowedFile& from, FollowedFile& to) {
  to.descriptor = std::exchange(from.descriptor, Descriptor());
  to.openPlace = from.openPlace;
  *to.openPlace = &to;
}

void FileTable::updatePlace(FollowedFile& file) {
  FileStatus status;
  if (!file.descriptor || !lookAtFile(file.descriptor.get(), status)) return;
  file.unlinked = !status.linked;
  if (file.unlinked) return;
  std::array<char, 4096> room;
  const std::string link = "/proc/self/fd/" + std::to_string(file.descriptor.get());
  const ssize_t count = readlink(link.c_str(), room.data(), room.size());
  if (count <= 0 || static_cast<std::size_t>(count) == room.size()) return;
  const std::string place(room.data(), static_cast<std::size_t>(count));
  // One of several names may have been removed; then this is the one that was.
  if (lookAtFile(place, status) && file.identity.mayBe(status.identity)) setPlace(file, place);
}

void FileTable::touch(FollowedFile& file) {
  if (!std::exchange(file.changedState, true)) touched_.push_back(file.id);
}

std::vector<StateRecord> FileTable::takeChanges(std::int64_t lookedAt) {
  std::vector<StateRecord> changes;
  if (touched_.empty() && started_) return changes;
  started_ = true;
  changes.push_back({kSourceKey, encode(FileSourceRecord{.lookedAt = lookedAt, .lastId = lastId_})});
  const std::vector<std::uint64_t> touched = std::exchange(touched_, {});
  for (const std::uint64_t id : touched) {
    FollowedFile* file = find(id);
    if (file && file->isDone()) {
      remove(*file);
      file = nullptr;
    }
    if (file) file->changedState = false;
    changes.push_back({std::string(kFilePrefix) + std::to_string(id), file ? encode(recordOf(*file)) : ""});
  }
  touched_.clear();  // what was just removed
  return changes;
}

void FileTable::enqueue(FollowedFile& file) {
  if (!file.isSilent() && !std::exchange(file.queued, true)) queue_.push_back(file.id);
}

void FileTable::clearQueue() {
  while (takeQueued()) {
  }
}

FollowedFile* FileTable::takeQueued() {
  while (!queue_.empty()) {
    FollowedFile* const file = find(queue_.front());
    queue_.pop_front();
    if (!file) continue;
    file->queued = false;
    return file;
  }
  return nullptr;
}

}  // namespace quillon
