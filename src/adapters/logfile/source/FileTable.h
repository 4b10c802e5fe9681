#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILETABLE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILETABLE_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "src/adapters/logfile/source/FollowedFile.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Owns the files that a source knows, finds them by what they are known by, keeps the number of open ones within
/// bounds, and says what of them is to be kept for a restart.
class FileTable {
 public:
  /// `mostOpen` files are open at a time; `longest` is that of a message.
  FileTable(std::size_t mostOpen, std::size_t longest) : mostOpen_(mostOpen), longest_(longest) {}

  /// Takes up what an earlier run kept. What cannot be understood is told, and the rest holds. With `damaged` there was
  /// more of it once.
  void restore(const std::vector<StateRecord>& state, bool damaged, SourceObserver& observer);
  /// Nothing was kept by an earlier run.
  bool isFirstRun() const { return firstRun_; }
  /// When the earlier run last looked at its files; see fileClock().
  std::int64_t restoredLookedAt() const { return restoredLookedAt_; }

  FollowedFile& add(const std::string& path, const std::string& place, const FileIdentity& identity);
  /// The file is of no interest any more.
  void remove(FollowedFile& file);

  /// Null when there is none.
  FollowedFile* find(std::uint64_t id) const;
  FollowedFile* findByIdentity(const FileIdentity& identity) const;
  /// One that had the number which another file has now.
  FollowedFile* findByInode(const FileIdentity& identity) const;
  FollowedFile* findByPlace(const std::string& place) const;
  void forEach(const std::function<void(FollowedFile&)>& visit);
  std::size_t size() const { return files_.size(); }
  /// Bytes that are known to be in the files and were not read.
  std::uint64_t waiting() const;

  void setIdentity(FollowedFile& file, const FileIdentity& identity);
  void setPlace(FollowedFile& file, const std::string& place);

  /// Sees to it that the file is open, by its place; the one that was not used for the longest time is closed for it.
  /// False with errno when it cannot be opened, ESTALE when another file is there.
  [[nodiscard]] bool open(FollowedFile& file);
  void close(FollowedFile& file);
  /// Gives the descriptor of `from`, which is open, to `to`, which is not.
  static void handOver(FollowedFile& from, FollowedFile& to);
  /// Finds out where a file that is open is now, if it is anywhere.
  void updatePlace(FollowedFile& file);

  /// What is to be kept of the file has changed.
  void touch(FollowedFile& file);
  /// What is to be kept, of all that has changed. `lookedAt` is when the files were last looked at.
  std::vector<StateRecord> takeChanges(std::int64_t lookedAt);

  /// @name Files with something to read, each once
  /// @{
  void enqueue(FollowedFile& file);
  FollowedFile* takeQueued();
  void clearQueue();
  bool hasQueued() const { return !queue_.empty(); }
  /// @}

 private:
  FollowedFile& create(std::uint64_t id, const std::string& path, const std::string& place,
                       const FileIdentity& identity);
  static std::uint64_t inodeKey(const FileIdentity& identity) { return identity.inode * 31 + identity.device; }
  void unlinkInode(const FollowedFile& file);

  const std::size_t mostOpen_;
  const std::size_t longest_;
  std::unordered_map<std::uint64_t, std::unique_ptr<FollowedFile>> files_;
  std::unordered_multimap<std::uint64_t, FollowedFile*> byInode_;
  std::unordered_map<std::string, FollowedFile*> byPlace_;
  std::list<FollowedFile*> open_;  ///< The one used last is at the end.
  std::deque<std::uint64_t> queue_;
  std::vector<std::uint64_t> touched_;
  std::uint64_t lastId_ = 0;
  bool firstRun_ = true;
  bool started_ = false;  ///< That there was a first run is kept.
  std::int64_t restoredLookedAt_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILETABLE_H_
