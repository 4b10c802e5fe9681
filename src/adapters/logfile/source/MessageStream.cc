#include "src/adapters/logfile/source/MessageStream.h"

#include <utility>

namespace quillon {

MessageStream::MessageStream(std::unique_ptr<Splitter> splitter, std::size_t longest, const Joining& joining,
                             std::string path, std::uint64_t number)
    : splitter_(std::move(splitter)), joining_(joining), joiner_(longest), path_(std::move(path)), number_(number) {}

bool MessageStream::next(TimePoint now, Message& message, std::uint64_t& bytes) {
  bool complete = false;
  while (!complete) {
    if (nextLine(message, bytes)) {
      if (!joining_.indented) return true;
      complete = joiner_.add(message, bytes, now, joined_);
    } else if (joiner_.holds() && (ended_ || now >= deadline())) {
      joined_ = joiner_.release();
      complete = true;
    } else {
      return false;
    }
  }
  message = {.text = joined_.text, .path = path_, .stream = number_, .position = {}, .cut = joined_.cut};
  bytes = joined_.bytes;
  return true;
}

TimePoint MessageStream::deadline() const {
  return joiner_.holds() ? joiner_.since() + joining_.wait : TimePoint::max();
}

bool MessageStream::nextLine(Message& line, std::uint64_t& bytes) {
  Frame frame;
  if (!splitter_->next(frame) && !(ended_ && splitter_->finish(frame))) return false;
  line = {.text = frame.text, .path = path_, .stream = number_, .position = {}, .cut = frame.cut};
  bytes = frame.bytes;
  return true;
}

}  // namespace quillon
