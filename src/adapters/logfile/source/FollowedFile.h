#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FOLLOWEDFILE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FOLLOWEDFILE_H_

#include <array>
#include <cstdint>
#include <list>
#include <optional>
#include <string>

#include "foundation/descriptor.h"
#include "src/adapters/logfile/source/FileIdentity.h"
#include "src/adapters/logfile/source/LineJoiner.h"
#include "src/adapters/logfile/source/Source.h"
#include "src/adapters/logfile/source/fingerprint.h"

namespace quillon {

/// A place in a file, and the hash of the bytes before it.
struct Mark {
  std::uint64_t offset = 0;
  std::uint64_t tail = 0;
};

/// What is known of a file. It is one text that grows: a file whose text was replaced is another FollowedFile, even
/// when the file system calls it the same. Names may change.
struct FollowedFile {
  std::uint64_t id = 0;      ///< As in Position::file; for ever, also after a restart.
  std::uint64_t stream = 0;  ///< As in Message::stream.
  std::string path;          ///< The path that it was followed by.
  std::string place;         ///< Where it was seen last; a path without a symbolic link at its end.
  FileIdentity identity;
  Fingerprint head;

  /// @name What was looked at
  /// @{
  std::uint64_t size = 0;
  std::int64_t modified = 0;
  std::int64_t changed = 0;
  bool settled = false;  ///< The times were old enough that any later change must show in them.
  /// @}

  /// @name How far it was read. Always acknowledged <= read <= seen.
  /// @{
  Mark acknowledged;  ///< What is kept for a restart.
  Mark read;          ///< Behind the last whole line: here the next one begins,
  Mark seen;          ///< and between here and there is no newline.
  /// Where `read` was when a turn of reading ended: the last one, one of the last few, and less and less recent ones.
  std::array<Mark, 8> passed;
  /// @}

  /// @name Succession: a file that took the place of another one is read when that is at its end
  /// @{
  std::uint64_t predecessor = 0;      ///< 0: none. Kept when it was read: a restart may have to read the rest again.
  bool waits = false;                 ///< The predecessor is to be read first.
  std::uint64_t successor = 0;        ///< Waits for this one, or did.
  std::optional<Position> inherited;  ///< Of the predecessor: holds when anything of this file is acknowledged.
  /// @}

  bool renamed = false;      ///< Its name is one that a file gets when it is rotated.
  int paths = 0;             ///< Paths to be followed that lead here now; with 0 it is rotated or moved away.
  std::uint64_t copyOf = 0;  ///< A copy of that file, to be read only where that one is cut off.
  bool copied = false;       ///< Others are copies of this one, or were.
  bool passedOver = false;   ///< Is compressed, or a copy of what was read, and is not read.
  bool unlinked = false;     ///< Has no name any more.
  bool gone = false;         ///< There is nothing more to be read; only what was read is still to be acknowledged.
  bool unreadable = false;   ///< Reading failed, and this was told.

  Descriptor descriptor;                           ///< None while it is closed for others.
  std::list<FollowedFile*>::iterator openPlace{};  ///< In the table's list of open ones, while it is open.
  bool queued = false;                             ///< Waits for its turn to be read.
  bool changedState = false;                       ///< What is kept for a restart is to be written.
  TimePoint grew;                                  ///< When it was last found longer than before.
  LineJoiner joiner{0};

  bool isAway() const { return paths == 0; }
  /// Another file stands, or will stand, where this one was written.
  bool isRotated() const { return isAway() || renamed; }
  /// Its text is not delivered at all.
  bool isSilent() const { return gone || passedOver || copyOf != 0; }
  /// Nothing is to be read or acknowledged any more.
  bool isDone() const { return gone && acknowledged.offset >= read.offset && !joiner.holds(); }
  /// All that is known to be there was delivered, and no line is left unfinished.
  bool isDrained() const { return isSilent() || unreadable || (seen.offset == read.offset && seen.offset >= size); }

  /// A turn of reading has ended.
  void pass();

  /// True when `file`, open on the file that this was, still has the text that was seen of it. The fingerprint grows.
  bool hasSameText(int file, const FileStatus& status);
};

/// True when `file`, which has `size` bytes, begins with all that was seen of `original`; or, when it is shorter, or
/// the original is open and has not changed, when it is a beginning of the original. Where the original has been cut in
/// the meantime, the latest place that was passed and lies in the shorter `file` tells, if it is in the second half of
/// it.
bool isCopyOf(int file, std::uint64_t size, const FollowedFile& original);

/// True when the `size` bytes of `file` are the beginning of `other` too, as far as fingerprint and tail tell.
bool isBeginningOf(int file, std::uint64_t size, int other);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FOLLOWEDFILE_H_
