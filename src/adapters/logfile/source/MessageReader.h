#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEREADER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEREADER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace quillon {

/// Takes a stream of bytes apart into messages, each ended by a delimiter or by the end of the stream. Needs no more
/// memory than a fixed buffer or, where that is larger, twice the longest message.
///
/// A message that is longer than a limit comes in pieces: nothing can bind it, but none of it is lost.
class MessageReader {
 public:
  /// In bytes. Three times as much, the most that a message can grow to when it is converted to UTF-8, still is a
  /// length that a qlStrobj can have.
  static constexpr std::size_t kLongest = 350'000'000;

  /// Reads from `descriptor`, which stays the caller's.
  MessageReader(int descriptor, char delimiter, std::size_t longest = kLongest);

  /// Moves on to the next message or piece. False at the end of the stream, and when reading fails, which also loses
  /// an unfinished message.
  bool next();

  /// The message or piece without its delimiter, valid until next(). A NUL byte stands behind a message. There may be
  /// more NUL bytes in it: it is understood to end at the first.
  std::string_view text() const { return text_; }
  /// True when text() is one piece of a message that is too long, and true when it is the last of these.
  bool isPiece() const { return piece_; }
  bool isLastPiece() const { return piece_ && !inPieces_; }

  /// The bytes of the stream up to the end of text() and its delimiter.
  std::uint64_t bytes() const { return bytes_; }
  /// The errno of the read that failed; 0 when none has.
  int error() const { return error_; }

 private:
  static constexpr std::size_t kLeastRead = 32768;

  bool fill();
  void findNul();
  void forgetBehindNul();
  void grow();
  void deliver(std::size_t length, std::size_t delimiters);

  const int descriptor_;
  const char delimiter_;
  const std::size_t longest_;

  std::size_t room_ = 4 * kLeastRead;
  std::unique_ptr<char[]> buffer_;  ///< `room_` bytes and one for the NUL behind the last message.
  std::size_t begin_ = 0;           ///< Where the message at hand begins,
  std::size_t searched_ = 0;        ///< from where its delimiter is still to be looked for,
  std::size_t end_ = 0;             ///< and where the bytes end that were read.
  bool atEnd_ = false;
  int error_ = 0;

  std::size_t nul_ = 0;          ///< The message's first NUL byte, or from where it is still to be looked for.
  bool nulFound_ = false;        ///< What stands behind it need not be kept,
  std::uint64_t forgotten_ = 0;  ///< and so many bytes were not.

  std::string_view text_;
  bool piece_ = false;
  bool inPieces_ = false;  ///< The message of which text() is a piece goes on.
  std::uint64_t bytes_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEREADER_H_
