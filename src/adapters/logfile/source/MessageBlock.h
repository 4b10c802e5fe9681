#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEBLOCK_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEBLOCK_H_

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace quillon {

/// A run of bytes of one stream: whole messages with their delimiters, or a piece of a message that is too long.
/// MessageReader fills it; whoever has it may read it while the reader fills others, also in another thread.
class MessageBlock {
 public:
  enum class Kind { kMessages, kPiece, kLastPiece };

  /// So many bytes behind the text can be read, whatever they hold: a copy may be made in strides.
  static constexpr std::size_t kSlack = 64;

  /// The messages; of a piece all bytes but the delimiter.
  std::string_view text() const { return {bytes_.get(), size_}; }
  Kind kind() const { return kind_; }

 private:
  friend class MessageReader;

  struct Free {
    void operator()(char* bytes) const { std::free(bytes); }
  };

  /// Makes room for `room` bytes and the slack, and keeps the text. False when there is no memory for that.
  bool resize(std::size_t room) {
    auto* const bytes = static_cast<char*>(std::realloc(bytes_.get(), room + kSlack));
    if (!bytes) return false;
    static_cast<void>(bytes_.release());
    bytes_.reset(bytes);
    room_ = room;
    return true;
  }
  char* end() { return bytes_.get() + size_; }
  std::size_t left() const { return room_ - size_; }

  std::unique_ptr<char, Free> bytes_;
  std::size_t room_ = 0;
  std::size_t size_ = 0;
  Kind kind_ = Kind::kMessages;
};

/// The messages of a block, one after the other.
class MessageCursor {
 public:
  MessageCursor(const MessageBlock& block, char delimiter);

  /// Moves on to the next message; false behind the last one.
  bool next();

  /// The message without its delimiter. Its text ends at its first NUL byte: what stands behind that is passed over.
  std::string_view message() const { return message_; }

 private:
  const char* next_;
  const char* const end_;
  const char delimiter_;
  const bool holdsNul_;
  std::string_view message_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGEBLOCK_H_
