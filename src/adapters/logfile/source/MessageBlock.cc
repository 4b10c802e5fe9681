#include "src/adapters/logfile/source/MessageBlock.h"

#include <cstring>

namespace quillon {
namespace {

/// Where `c` stands first, or `end`.
const char* find(const char* begin, const char* end, char c) {
  const void* const found = std::memchr(begin, c, static_cast<std::size_t>(end - begin));
  return found ? static_cast<const char*>(found) : end;
}

}  // namespace

MessageCursor::MessageCursor(const MessageBlock& block, char delimiter)
    : next_(block.text().data()),
      end_(next_ + block.text().size()),
      delimiter_(delimiter),
      holdsNul_(delimiter != '\0' && find(next_, end_, '\0') != end_) {}

bool MessageCursor::next() {
  if (next_ == end_) return false;
  const char* const delimiter = find(next_, end_, delimiter_);
  const char* const end = holdsNul_ ? find(next_, delimiter, '\0') : delimiter;
  message_ = {next_, static_cast<std::size_t>(end - next_)};
  next_ = delimiter == end_ ? end_ : delimiter + 1;
  return true;
}

}  // namespace quillon
