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

  bool operator==(const FileOptions&) const = default;
};

/// The lines of log files, followed by their paths through rotation.
///
/// A file is told by device, inode and time of birth, and by its text: a fingerprint of the beginning that grows with
/// the file, and the bytes just before the position. So one that has grown goes on, and one that was truncated, written
/// anew or put in the place of another is read from its beginning, after the rest of the old one:
///  - Renamed, wherever to while it is open, else within its directory: it is read to its end, and goes on to be
///    followed while it exists, since its writer may keep it open. Its messages keep the path that it was followed by.
///  - Copied and truncated: the rest is read from the copy, a file in the same directory that has the same text and a
///    name as isRotatedName() tells them. A copy that is itself to be followed is not read as a new file.
///  - Rotated more than once between two looks: the files with such names that were born since the last look are read
///    too, the oldest first, unless they are followed themselves.
///  - Compressed files are not read, by whatever name they are found.
/// What is gone and was not read is told as a Gap; so is a file that was deleted after it was copied, and one whose
/// copy has less than kTailBytes in common with what was read, because that proves little. What came and went between
/// two looks leaves nothing to tell. A file that was cut to a part of what had been read is taken for a new text, and
/// read again.
///
/// It is woken by inotify. Besides that each file is looked at every poll interval where the kernel cannot tell of all
/// changes (network file systems, too few watches), elsewhere every tenth, in turns.
///
/// Memory: below 1 KiB a file, and one buffer that grows to twice the longest line. State: one record for each file
/// that exists, below 1 KiB.
class FileSource : public Source {
 public:
  /// `state` is all that takeChanges() of earlier runs gave, the latest of each key; none at the very first start. What
  /// it says is believed as far as the files bear it out. With `damaged` it is what was left of a state that has been
  /// damaged: even if that is nothing this is not the first start, and FileOptions::fromEnd does not count.
  FileSource(const FileOptions& options, const std::vector<StateRecord>& state, SourceObserver& observer,
             bool damaged = false);
  ~FileSource() override;

  bool next(TimePoint now, Message& message) override;
  int descriptor() const override;
  TimePoint deadline() const override;
  bool mayFollow(const Position& last, TimePoint due) const override;
  /// kStop ends at a position to go on from; deleted files that are still open are read first. kDrain looks at all
  /// files once more and reads them.
  void finish(Finish how) override;
  bool ended() const override;
  void acknowledge(const Position& position) override;
  bool comesAgain(const Position& position) const override;
  std::vector<StateRecord> takeChanges() override;
  SourceCounters counters() const override;

 private:
  class Core;

  std::unique_ptr<Core> core_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILESOURCE_H_
