#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEREADER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEREADER_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "src/adapters/logfile/source/MessageBlock.h"

namespace quillon {

/// Takes a stream of bytes apart into messages, each ended by a delimiter or by the end of the stream, and hands them
/// out in blocks. A block holds as many messages as the stream has ready, up to its size: what comes slowly is not
/// waited for. One thread at a time. Serves tools that read one stream to its end and may wait for it; for sources that
/// never wait and follow many streams there is LineSplitter.
///
/// A message that is longer than a limit, or for which there is no memory, comes in pieces: nothing can bind it, but
/// none of it is lost. What stands behind the first NUL byte of a message does not count and takes no room.
class MessageReader {
 public:
  /// In bytes. Three times as much, the most that a message can grow to when it is converted to UTF-8, still is a
  /// length that a qlStrobj can have.
  static constexpr std::size_t kLongest = 350'000'000;
  /// Of a block, in bytes; a longer message has a block of its own.
  static constexpr std::size_t kBlock = 131072;

  /// Reads from `descriptor`, which stays the caller's. Waits where that has nothing to read, until `wakeup`, unless
  /// it is -1, can be read.
  MessageReader(int descriptor, char delimiter, std::size_t longest = kLongest, int wakeup = -1);

  /// Fills `block` with what comes next. False at the end of the stream, when woken up, and when reading fails; the
  /// latter two lose an unfinished message. Throws std::bad_alloc when there is no memory for a block at all.
  bool fill(MessageBlock& block);

  /// The bytes of the stream up to the end of the latest block.
  std::uint64_t bytes() const { return bytes_; }
  /// The errno of the read that failed; 0 when none has.
  int error() const { return error_; }

 private:
  bool fillWithMessages(MessageBlock& block);
  bool fillWithPiece(MessageBlock& block);
  void read(MessageBlock& block);
  bool isReady(int milliseconds);
  bool skipBehindNul(MessageBlock& block);
  bool grow(MessageBlock& block) const;
  void deliver(MessageBlock& block, std::size_t size, std::size_t delimiters);

  const int descriptor_;
  const int wakeup_;
  const char delimiter_;
  const std::size_t longest_;
  const std::size_t room_;  ///< Of a block, unless a message needs more.

  bool reading_ = true;  ///< False at the end, after a failure, and when woken up.
  bool atEnd_ = false;
  int error_ = 0;
  bool inPieces_ = false;      ///< The next bytes belong to a message that is too long.
  std::string carried_;        ///< What was read behind the end of the latest block.
  std::uint64_t dropped_ = 0;  ///< Bytes of the message at hand that stand behind its NUL byte.
  std::uint64_t bytes_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEREADER_H_
