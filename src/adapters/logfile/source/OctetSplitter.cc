#include "src/adapters/logfile/source/OctetSplitter.h"

namespace quillon {

bool OctetSplitter::next(Frame& message) {
  if (broken_ || (length_ == 0 && !readLength())) return false;
  const std::uint64_t there = end_ - begin_ + dropped_;
  if (there >= length_) {
    // The rest of a long message may have come with the beginning of the next one.
    take(message, static_cast<std::size_t>(length_ - dropped_));
    return true;
  }
  if (end_ - begin_ > longest_) dropBehind(longest_);
  return false;
}

bool OctetSplitter::finish(Frame& message) {
  if (broken_) return false;
  endedShort_ |= length_ > 0 || pending() > 0;
  if (length_ == 0 || pending() == 0) return false;
  take(message, end_ - begin_);
  return true;
}

/// Takes the number off what was read. False when it is not whole, or none.
bool OctetSplitter::readLength() {
  std::uint64_t length = 0;
  for (std::size_t i = begin_; i < end_; ++i) {
    const char c = buffer_[i];
    if (c == ' ' && length > 0) {
      length_ = length;
      digits_ = i + 1 - begin_;
      begin_ = i + 1;
      return true;
    }
    if (c < '0' || c > '9' || (c == '0' && length == 0) || i - begin_ == kMostDigits) {
      broken_ = true;
      return false;
    }
    length = 10 * length + static_cast<std::uint64_t>(c - '0');
  }
  return false;
}

/// `length` bytes in the buffer are the message at hand, or its end.
void OctetSplitter::take(Frame& message, std::size_t length) {
  message.text = textOf(length);
  message.cut = length + dropped_ > longest_;
  message.before = {};
  message.bytes = digits_ + length + dropped_;
  begin_ += length;
  length_ = dropped_ = 0;
}

}  // namespace quillon
