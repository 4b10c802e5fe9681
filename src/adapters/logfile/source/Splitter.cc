#include "src/adapters/logfile/source/Splitter.h"

#include <algorithm>
#include <cstring>

namespace quillon {

Splitter::Splitter(std::size_t longest, std::size_t firstRoom, std::size_t before)
    : longest_(longest),
      firstRoom_(std::max(firstRoom, before + 2 * kLeastRead)),
      before_(before),
      room_(firstRoom_),
      buffer_(std::make_unique_for_overwrite<char[]>(room_)) {}

std::span<char> Splitter::room() {
  if (room_ - end_ < kLeastRead && begin_ > before_) {
    const std::size_t start = begin_ - before_;
    std::memmove(buffer_.get(), buffer_.get() + start, end_ - start);
    begin_ -= start;
    end_ -= start;
  }
  if (room_ - end_ < kLeastRead) {
    auto larger = std::make_unique_for_overwrite<char[]>(2 * room_);
    std::memcpy(larger.get(), buffer_.get(), end_);
    buffer_ = std::move(larger);
    room_ *= 2;
  }
  return {buffer_.get() + end_, room_ - end_};
}

void Splitter::restart() {
  if (room_ > firstRoom_) {  // one long message is no reason to keep its room for ever
    room_ = firstRoom_;
    buffer_ = std::make_unique_for_overwrite<char[]>(room_);
  }
  begin_ = end_ = 0;
  dropped_ = 0;
}

std::string_view Splitter::last(std::size_t end) const {
  const std::size_t count = std::min(before_, end);
  return {buffer_.get() + end - count, count};
}

void Splitter::dropBehind(std::size_t kept) {
  const std::size_t target = begin_ + kept;
  if (end_ - target <= before_ + kLeastRead) return;  // not worth it yet
  std::memmove(buffer_.get() + target, buffer_.get() + end_ - before_, before_);
  dropped_ += end_ - before_ - target;
  end_ = target + before_;
}

}  // namespace quillon
