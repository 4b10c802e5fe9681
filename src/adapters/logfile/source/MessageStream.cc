#include "src/adapters/logfile/source/MessageStream.h"

#include <utility>

namespace quillon {

MessageStream::MessageStream(std::unique_ptr<Splitter> splitter, std::size_t longest, const Joining& joining,
                             std::string path, std::uint64_t number)
    : splitter_(std::move(splitter)), joining_(joining), joiner_(longest), path_(std::move(path)), number_(number) {}

bool MessageStream::next(TimePoint now, Message& message, std::uint64_t& bytes) {
  while (nextLine(message, bytes)) {
    if (!joining_.indented) return true;
    if (!joiner_.add(message, bytes, now, joined_)) continue;
    deliverJoined(message, bytes);
    return true;
  }
  return ended_ && expire(TimePoint::max(), message, bytes);
}

bool MessageStream::expire(TimePoint now, Message& message, std::uint64_t& bytes) {
  if (!joiner_.holds() || now < deadline()) return false;
  joined_ = joiner_.release();
  deliverJoined(message, bytes);
  return true;
}

void MessageStream::deliverJoined(Message& message, std::uint64_t& bytes) const {
  message = {.text = joined_.text, .path = path_, .stream = number_, .position = {}, .cut = joined_.cut};
  bytes = joined_.bytes;
}

TimePoint MessageStream::deadline() const {
  return joiner_.holds() ? joiner_.since() + joining_.wait : TimePoint::max();
}

bool MessageStream::nextLine(Message& line, std::uint64_t& bytes) {
  Frame frame;
  if (!splitter_->next(frame) && !(ended_ && !endedAtLine_ && splitter_->finish(frame))) return false;
  line = {.text = frame.text, .path = path_, .stream = number_, .position = {}, .cut = frame.cut, .roomy = true};
  bytes = frame.bytes;
  return true;
}

}  // namespace quillon
