#include "src/adapters/logfile/source/LineSplitter.h"

#include <cstring>

namespace quillon {

bool LineSplitter::next(Frame& line) {
  const char* const start = buffer_.get() + begin_ + searched_;
  const void* const found = std::memchr(start, '\n', static_cast<std::size_t>(buffer_.get() + end_ - start));
  if (found) {
    take(line, static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.get()), 1);
    return true;
  }
  if (end_ - begin_ > longest_) dropBehind(longest_);
  searched_ = end_ - begin_;
  return false;
}

bool LineSplitter::finish(Frame& line) {
  if (pending() == 0) return false;
  take(line, end_, 0);
  return true;
}

void LineSplitter::take(Frame& line, std::size_t end, std::size_t delimiter) {
  const std::size_t length = end - begin_;
  line.text = textOf(length);
  line.cut = length + dropped_ > longest_;
  line.bytes = length + delimiter + dropped_;
  begin_ = end + delimiter;
  line.before = last(begin_);
  searched_ = 0;
  dropped_ = 0;
}

}  // namespace quillon
