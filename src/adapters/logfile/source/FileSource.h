#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILESOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILESOURCE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "src/adapters/logfile/source/LineJoiner.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

struct FileOptions {
  std::vector<std::string> include;  ///< Paths and patterns, as Glob has them.
  std::vector<std::string> exclude;  ///< The same; a pattern without a slash is for names wherever they are.
  bool fromEnd = false;              ///< Of files that are there at the very first start, only what is new is read.
  Duration pollInterval = std::chrono::seconds(1);
  /// How long a file that was rotated away must be quiet before a last line without newline is a line, and before one
  /// that was deleted is let go. Its writer may not have heard of it yet.
  Duration quiet = std::chrono::seconds(5);
  std::size_t longest = 1 << 20;  ///< Of a message, in bytes.
  Joining joining;
  std::size_t mostOpen = 0;  ///< Descriptors; 0: half of what the process may have, 4096 at most.
  bool watch = true;         ///< Use inotify, where it can be.
};

/// The lines of log files, followed by their paths through rotation.
///
/// A file is told by device, inode and time of birth, and by its text: a fingerprint of the beginning that grows with
/// the file, and the bytes just before the position. So one that has grown goes on, and one that was truncated, written
/// anew or put in the place of another is read from its beginning, after the rest of the old one:
///  - Renamed, wherever to while it is open, else within its directory: it is read to its end, and goes on to be
///    followed while it exists, since its writer may keep it open. Its messages keep the path that it was followed by.
///  - Copied and truncated: the rest is read from the copy, a file with the same text and a rotated name
///  (isRotatedName)
///    in the same directory. A copy that is itself to be followed is not read as a new file.
///  - Rotated more than once between two looks: files with rotated names that were born since the last look, and are
///  not
///    followed themselves, are read too, the oldest first.
///  - Compressed files are not read, by whatever name they are found.
/// What is gone and was not read is told as a Gap. What came and went between two looks leaves nothing to tell.
///
/// It is woken by inotify. Besides that each file is looked at every poll interval where the kernel cannot tell of all
/// changes (network file systems, too few watches), elsewhere every tenth, in turns.
///
/// Memory: below 1 KiB a file, and one buffer that grows to twice the longest line. State: one record for each file
/// that exists, below 1 KiB.
class FileSource : public Source {
 public:
  /// `state` is all that takeChanges() of earlier runs gave, the latest of each key; none at the very first start. What
  /// it says is believed as far as the files bear it out.
  FileSource(const FileOptions& options, const std::vector<StateRecord>& state, SourceObserver& observer);
  ~FileSource() override;

  bool next(TimePoint now, Message& message) override;
  int descriptor() const override;
  TimePoint deadline() const override;
  /// kStop ends at a position to go on from; deleted files that are still open are read first. kDrain looks at all
  /// files once more and reads them.
  void finish(Finish how) override;
  bool ended() const override;
  void acknowledge(const Position& position) override;
  std::vector<StateRecord> takeChanges() override;

  /// What is known of a file, for those who operate this.
  struct Status {
    std::string path;        ///< As it is followed,
    std::string place;       ///< and where it was seen last.
    std::uint64_t position;  ///< Bytes that were delivered,
    std::uint64_t size;      ///< of so many that are known.
    bool rotated;
  };
  std::vector<Status> status() const;

 private:
  class Core;

  std::unique_ptr<Core> core_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILESOURCE_H_
