#include "src/adapters/logfile/source/MessageReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace quillon {

MessageReader::MessageReader(int descriptor, char delimiter, std::size_t longest)
    : descriptor_(descriptor),
      delimiter_(delimiter),
      longest_(longest),
      buffer_(std::make_unique_for_overwrite<char[]>(room_ + 1)) {}

bool MessageReader::next() {
  piece_ = inPieces_;
  while (true) {
    const char* const start = buffer_.get() + searched_;
    const void* const found = std::memchr(start, delimiter_, end_ - searched_);
    searched_ = found ? static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.get()) : end_;
    if (searched_ - begin_ > longest_) findNul();
    const std::size_t length = (nulFound_ ? nul_ : searched_) - begin_;
    if (length > longest_) {
      piece_ = inPieces_ = true;
      searched_ = begin_ + longest_;
      deliver(longest_, 0);
      return true;
    }
    if (found || (atEnd_ && (end_ > begin_ || inPieces_))) {
      inPieces_ = false;
      deliver(length, found ? 1 : 0);
      return true;
    }
    if (atEnd_ || !fill()) return false;
  }
}

/// Makes the `length` bytes at `begin_` the text, and what is behind `searched_` and so many `delimiters` the next one.
void MessageReader::deliver(std::size_t length, std::size_t delimiters) {
  text_ = {buffer_.get() + begin_, length};
  const std::size_t behind = searched_ + delimiters;
  // The NUL takes the place of the delimiter. Between pieces there is none: each piece is written by its length.
  if (delimiters > 0 || behind == end_) buffer_[begin_ + length] = '\0';
  bytes_ += behind - begin_ + forgotten_;
  begin_ = searched_ = nul_ = behind;
  nulFound_ = false;
  forgotten_ = 0;
}

/// Reads on behind the message at hand, all of which was searched. False when reading fails.
bool MessageReader::fill() {
  if (begin_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    nul_ -= begin_;
    begin_ = 0;
    searched_ = end_;
  }
  if (room_ - end_ < kLeastRead) forgetBehindNul();
  if (room_ - end_ < kLeastRead) grow();
  searched_ = end_;
  ssize_t count;
  do {
    count = read(descriptor_, buffer_.get() + end_, room_ - end_);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    error_ = errno;
    return false;
  }
  atEnd_ = count == 0;
  end_ += static_cast<std::size_t>(count);
  return true;
}

/// Looks for the end of the text in what was searched for the delimiter.
void MessageReader::findNul() {
  if (nulFound_) return;
  const void* const nul = std::memchr(buffer_.get() + nul_, '\0', searched_ - nul_);
  nulFound_ = nul != nullptr;
  nul_ = nulFound_ ? static_cast<std::size_t>(static_cast<const char*>(nul) - buffer_.get()) : searched_;
}

/// A line can go on for ever behind its text.
void MessageReader::forgetBehindNul() {
  findNul();
  if (!nulFound_) return;
  forgotten_ += end_ - nul_;
  end_ = nul_;
}

void MessageReader::grow() {
  const std::size_t room = std::min(2 * room_, longest_ + 2 * kLeastRead);
  auto larger = std::make_unique_for_overwrite<char[]>(room + 1);
  std::memcpy(larger.get(), buffer_.get(), end_);
  buffer_ = std::move(larger);
  room_ = room;
}

}  // namespace quillon
