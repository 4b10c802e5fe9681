#include "src/adapters/logfile/source/MessageReader.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace quillon {
namespace {

/// At once: what is read behind a long message is copied into the next block.
constexpr std::size_t kMostRead = 1'048'576;

/// The place of the last `c` of `text` at or behind `from`; npos when there is none.
std::size_t findLast(std::string_view text, char c, std::size_t from) {
  const void* const found = memrchr(text.data() + from, c, text.size() - from);
  return found ? static_cast<std::size_t>(static_cast<const char*>(found) - text.data()) : std::string_view::npos;
}

}  // namespace

MessageReader::MessageReader(int descriptor, char delimiter, std::size_t longest, int wakeup)
    : descriptor_(descriptor),
      wakeup_(wakeup),
      delimiter_(delimiter),
      longest_(longest),
      room_(std::min(kBlock, longest + 1)) {}

bool MessageReader::fill(MessageBlock& block) {
  const std::size_t room = std::max(room_, carried_.size());
  if (block.room_ != room && !block.resize(room)) throw std::bad_alloc();
  std::memcpy(block.bytes_.get(), carried_.data(), carried_.size());
  block.size_ = carried_.size();
  carried_.clear();
  return inPieces_ ? fillWithPiece(block) : fillWithMessages(block);
}

bool MessageReader::fillWithMessages(MessageBlock& block) {
  block.kind_ = MessageBlock::Kind::kMessages;
  std::size_t searched = 0;
  std::size_t whole = 0;  // bytes of whole messages
  while (true) {
    const std::size_t delimiter = findLast(block.text(), delimiter_, searched);
    if (delimiter != std::string_view::npos) whole = delimiter + 1;
    searched = block.size_;
    if (!reading_ || (whole > 0 && (block.left() <= room_ / 8 || !isReady(0)))) break;
    if (block.left() > 0) {
      read(block);
    } else if (skipBehindNul(block)) {
      searched = 0;
    } else if (!grow(block)) {
      inPieces_ = true;
      block.kind_ = MessageBlock::Kind::kPiece;
      whole = block.size_;
      break;
    }
  }
  if (atEnd_) whole = block.size_;  // the last message may lack its delimiter
  deliver(block, whole, 0);
  return whole > 0;
}

bool MessageReader::fillWithPiece(MessageBlock& block) {
  std::size_t searched = 0;
  std::size_t delimiter;
  while ((delimiter = block.text().find(delimiter_, searched)) == std::string_view::npos) {
    searched = block.size_;
    if (!reading_ || block.left() == 0) break;
    read(block);
  }
  const bool ended = delimiter != std::string_view::npos;
  inPieces_ = !ended && reading_;
  block.kind_ = inPieces_ ? MessageBlock::Kind::kPiece : MessageBlock::Kind::kLastPiece;
  deliver(block, ended ? delimiter : block.size_, ended ? 1 : 0);
  return true;
}

/// Reads something into the room that is left, or learns that there is no more.
void MessageReader::read(MessageBlock& block) {
  if (!isReady(-1)) return;
  const ssize_t count = ::read(descriptor_, block.end(), std::min(block.left(), kMostRead));
  if (count > 0) {
    block.size_ += static_cast<std::size_t>(count);
  } else if (count == 0) {
    reading_ = false;
    atEnd_ = true;
  } else if (errno != EINTR && errno != EAGAIN) {  // which may be said in spite of poll()
    reading_ = false;
    error_ = errno;
  }
}

/// True when reading will not wait, at the latest after so many milliseconds; -1 waits for that. Looks whether reading
/// is to end, too.
bool MessageReader::isReady(int milliseconds) {
  pollfd events[] = {{.fd = descriptor_, .events = POLLIN, .revents = 0},
                     {.fd = wakeup_, .events = POLLIN, .revents = 0}};
  if (poll(events, 2, milliseconds) < 0) return false;
  if (events[1].revents != 0) reading_ = false;
  return reading_ && events[0].revents != 0;
}

/// A line can go on for ever behind its text: reads on to its end and keeps nothing of that. False when `block`, which
/// is full of one message, has no NUL byte.
bool MessageReader::skipBehindNul(MessageBlock& block) {
  const std::size_t nul = block.text().find('\0');
  if (nul == std::string_view::npos) return false;
  const std::size_t kept = nul + (nul + 1 < block.size_ ? 1 : 0);  // with it: an empty text, too, is a message
  while (true) {
    const std::size_t delimiter = std::min(block.text().find(delimiter_, kept), block.size_);
    dropped_ += delimiter - kept;
    block.size_ -= delimiter - kept;
    std::memmove(block.bytes_.get() + kept, block.bytes_.get() + delimiter, block.size_ - kept);
    if (block.size_ > kept || !reading_) return true;
    read(block);
  }
}

/// Makes `block` larger. False when it is as large as the longest message, or when there is no memory for more.
bool MessageReader::grow(MessageBlock& block) const {
  return block.room_ <= longest_ && block.resize(std::min(2 * block.room_, longest_ + 1));
}

/// Makes the first `size` bytes the text of `block`, and what stands behind so many `delimiters` the start of the next.
void MessageReader::deliver(MessageBlock& block, std::size_t size, std::size_t delimiters) {
  const std::size_t behind = size + delimiters;
  carried_.assign(block.bytes_.get() + behind, block.size_ - behind);
  block.size_ = size;
  bytes_ += behind + dropped_;
  dropped_ = 0;
}

}  // namespace quillon
