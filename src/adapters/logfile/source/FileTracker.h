#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILETRACKER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILETRACKER_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "src/adapters/logfile/source/DirectoryListings.h"
#include "src/adapters/logfile/source/DirectoryWatch.h"
#include "src/adapters/logfile/source/FileSource.h"
#include "src/adapters/logfile/source/FileTable.h"
#include "src/adapters/logfile/source/PathScanner.h"

namespace quillon {

/// Finds out what has happened to the files of a source: which are new, have grown, went elsewhere, are others than
/// they were. What is to be read is put into the table's queue.
class FileTracker {
 public:
  FileTracker(const FileOptions& options, FileTable& table, SourceObserver& observer, SourceCounters& counters);

  int descriptor() const { return watch_.descriptor(); }
  TimePoint nextPoll() const { return nextPoll_; }
  /// Takes what the kernel has told and, when it is time, looks at the files.
  void look(TimePoint now);
  /// Looks at all files.
  void lookAtAll(TimePoint now);
  /// Looks at one file, unless look() has just been told all that there was of it. The file may be removed by this.
  void lookAgain(FollowedFile& file, TimePoint now);

  /// The file does not have the text any more that was seen of it: it was truncated or written anew.
  void overwritten(FollowedFile& file, TimePoint now);
  /// The file ends at `size`, before text that was known to be there and not read.
  void shrunk(FollowedFile& file, std::uint64_t size);
  /// Nothing more is to be read of the file.
  void letGo(FollowedFile& file);
  /// The file cannot be read, for the reason in errno.
  void failed(FollowedFile& file);
  /// There is more to be read of the file that came before this one; it has its turn.
  bool predecessorGrew(const FollowedFile& file, TimePoint now);
  /// A file that was rotated away and is at its end will get nothing more, as far as one can tell.
  bool isFinal(const FollowedFile& file, TimePoint now) const;

  /// When the files were last looked at, see fileClock().
  std::int64_t lookedAt() const { return lookedAt_; }

 private:
  /// A path to be followed.
  struct Path {
    std::uint64_t file = 0;     ///< What is there; 0: nothing.
    std::uint64_t former = 0;   ///< What was there last.
    std::int64_t lookedAt = 0;  ///< When.
  };
  /// The text at a path is another one than it was.
  struct Change {
    std::uint64_t file = 0;    ///< What is there now.
    std::uint64_t former = 0;  ///< What came before it, as far as is known.
  };
  /// The text of a file is not where it was; there may be a copy.
  struct Claim {
    std::uint64_t file = 0;
    bool deleted = false;  ///< The file is nowhere; else another text is in it.
  };
  struct Sighting {
    std::string path;
    FileStatus status;
    bool there = false;
    std::uint64_t before = 0;  ///< What was at the path.
  };

  void restore();
  void poll(TimePoint now, bool all);
  bool scan(bool all);
  bool isTurnOf(const FollowedFile& file, bool all) const;
  bool isCovered(const FollowedFile& file) const;

  void check(const std::vector<std::string>& paths, TimePoint now, bool closely,
             const std::vector<std::uint64_t>& away = {});
  void checkName(const std::string& path, bool appeared, std::vector<std::string>& paths, TimePoint now);
  void adopt(const Sighting& sighting, TimePoint now);
  void beginAtEnd(FollowedFile& file, const FileStatus& status);
  void bind(const std::string& path, FollowedFile& file);
  void lookAt(FollowedFile& file, const FileStatus& status, TimePoint now, bool closely);
  bool isOwnText(FollowedFile& file, TimePoint now);
  void lookAtAway(FollowedFile& file, TimePoint now, bool closely);
  void settle(FollowedFile& file, TimePoint now);

  // What rotation does; in FileTracker_rotation.cc.
  bool continueInCopy(FollowedFile& file, TimePoint now);
  bool isContinuation(const std::string& path, const FollowedFile& file, FileStatus& status);
  void findBetween(const Change& change, TimePoint now);
  void adoptGenerations(const std::string& path, Path& entry, TimePoint now);
  bool isGeneration(const std::string& place, const std::string& path, const Path& entry, TimePoint now,
                    FileStatus& status);
  FollowedFile* known(const FileIdentity& identity, TimePoint now);
  void follows(FollowedFile& file, std::uint64_t predecessor);
  bool findElsewhere(FollowedFile& file, FileStatus& status);
  void continueOrLose(const Claim& claim, TimePoint now);
  void settleClaims(TimePoint now);
  void lost(FollowedFile& file, const char* cause);
  bool isAtItsEnd(const FollowedFile& file) const;
  void tellGap(const FollowedFile& file, std::uint64_t from, std::uint64_t to, const char* cause);
  static bool onlyLooksLike(std::uint64_t size, const FollowedFile& former);
  bool passOver(FollowedFile& copy, const FollowedFile& original);
  void rebind(FollowedFile& from, FollowedFile& to);
  FollowedFile* originalOf(const std::string& path) const;

  const FileOptions options_;
  FileTable& table_;
  SourceObserver& observer_;
  SourceCounters& counters_;
  DirectoryWatch watch_;
  PathScanner scanner_;
  std::unordered_map<std::string, Path> paths_;
  DirectoryListings listings_;  ///< Of one look.
  bool claiming_ = false;       ///< All files are being looked at; what is missing is settled together, behind that.
  std::vector<Claim> claims_;
  std::vector<Change> changes_;
  std::uint64_t leaving_ = 0;  ///< A file that has gone elsewhere since the last look, while it is looked at.
  TimePoint nextPoll_ = TimePoint::min();
  std::uint64_t polls_ = 0;
  std::uint64_t lastStream_ = 0;
  std::int64_t lookedAt_ = 0;
  bool rescan_ = true;
  bool toldExhausted_ = false;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILETRACKER_H_
