#include "src/adapters/logfile/source/Splitter.h"

#include <algorithm>
#include <cstring>

#include "foundation/utf8.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

std::string_view withoutCutCharacter(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(3, text.size()); ++length) {
    const std::string_view end = text.substr(text.size() - length);
    const auto lead = static_cast<unsigned char>(end[0]);
    if (lead >= 0x80 && lead < 0xC0) continue;
    // Bytes that could not have become a character, whatever came behind them, stay as they stand.
    const Utf8Sequence sequence = firstSequence(end);
    const bool isCut = !sequence.wellFormed && sequence.length == length && lead >= 0xC2 && lead <= 0xF4;
    return text.substr(0, text.size() - (isCut ? length : 0));
  }
  return text;
}

Splitter::Splitter(std::size_t longest, std::size_t firstRoom, std::size_t before)
    : longest_(longest),
      firstRoom_(std::max(firstRoom, before + 2 * kLeastRead)),
      before_(before),
      room_(firstRoom_),
      buffer_(std::make_unique_for_overwrite<char[]>(room_ + Message::kSlack)) {}

std::span<char> Splitter::room() {
  if (room_ - end_ < kLeastRead && begin_ > before_) {
    const std::size_t start = begin_ - before_;
    std::memmove(buffer_.get(), buffer_.get() + start, end_ - start);
    begin_ -= start;
    end_ -= start;
  }
  if (room_ - end_ < kLeastRead) {
    auto larger = std::make_unique_for_overwrite<char[]>(2 * room_ + Message::kSlack);
    std::memcpy(larger.get(), buffer_.get(), end_);
    buffer_ = std::move(larger);
    room_ *= 2;
  }
  return {buffer_.get() + end_, std::min(room_ - end_, kMostRead)};
}

std::string_view Splitter::textOf(std::size_t length) const {
  const std::string_view text(buffer_.get() + begin_, std::min(length, longest_));
  return length + dropped_ > longest_ ? withoutCutCharacter(text) : text;
}

void Splitter::restart() {
  if (room_ > firstRoom_) {  // one long message is no reason to keep its room for ever
    room_ = firstRoom_;
    buffer_ = std::make_unique_for_overwrite<char[]>(room_ + Message::kSlack);
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
