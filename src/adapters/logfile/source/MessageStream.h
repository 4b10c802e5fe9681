#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGESTREAM_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGESTREAM_H_

#include <memory>
#include <span>
#include <string>

#include "src/adapters/logfile/source/LineJoiner.h"
#include "src/adapters/logfile/source/Source.h"
#include "src/adapters/logfile/source/Splitter.h"

namespace quillon {

/// The messages of one stream of bytes that cannot be read twice: a pipe, a connection. The owner reads.
class MessageStream {
 public:
  MessageStream(std::unique_ptr<Splitter> splitter, std::size_t longest, const Joining& joining, std::string path,
                std::uint64_t number);

  /// The next message of what was read, and the bytes that it took. False when there is none at present, and for ever
  /// once the stream has ended.
  bool next(TimePoint now, Message& message, std::uint64_t& bytes);
  /// The message that has waited for more lines until its deadline, if there is one. To be called when reading has just
  /// found nothing: who was held up for a while may find that the lines have come in time.
  bool expire(TimePoint now, Message& message, std::uint64_t& bytes);
  /// When expire() has a message; TimePoint::max() when it will not.
  TimePoint deadline() const;

  /// Where to read to, and how much was read.
  std::span<char> room() { return splitter_->room(); }
  void filled(std::size_t count) { splitter_->filled(count); }
  /// Nothing more will be read: what is left is a message.
  void end() { ended_ = true; }
  /// The same, but a line that is not whole is none.
  void endAtLine() { ended_ = endedAtLine_ = true; }

  bool isBroken() const { return splitter_->isBroken(); }
  /// It has ended within a message.
  bool endedShort() const { return splitter_->endedShort(); }
  const std::string& path() const { return path_; }

 private:
  bool nextLine(Message& line, std::uint64_t& bytes);
  void deliverJoined(Message& message, std::uint64_t& bytes) const;

  std::unique_ptr<Splitter> splitter_;
  Joining joining_;
  LineJoiner joiner_;
  JoinedLines joined_;
  std::string path_;
  std::uint64_t number_;
  bool ended_ = false;
  bool endedAtLine_ = false;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_MESSAGESTREAM_H_
