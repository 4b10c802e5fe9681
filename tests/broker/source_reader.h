#ifndef QUILLON_TESTS_BROKER_SOURCE_READER_H_
#define QUILLON_TESTS_BROKER_SOURCE_READER_H_

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Keeps what a source has to tell.
class Notices : public SourceObserver {
 public:
  void gap(const Gap& /*gap*/) override {}
  void notice(Level /*level*/, std::string_view text) override { texts.emplace_back(text); }
  std::vector<std::string> texts;
};

struct ReadMessage {
  std::string text, source, place;
  Position position;
};

/// Reads up to `most` messages, as the adapter's loop does, or what comes within `limit`.
inline std::vector<ReadMessage> readMessages(Source& source, std::size_t most,
                                             std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  std::vector<ReadMessage> read;
  Message message;
  const TimePoint until = std::chrono::steady_clock::now() + limit;
  while (read.size() < most && !source.ended()) {
    const TimePoint now = std::chrono::steady_clock::now();
    if (now >= until) break;
    if (source.next(now, message)) {
      const Origin origin = source.origin(message.position).value_or(Origin{});
      read.push_back(
          {std::string(message.text), std::string(origin.source), std::string(origin.position), message.position});
      continue;
    }
    const auto left = std::min(until, source.deadline()) - std::chrono::steady_clock::now();
    pollfd waiting{source.descriptor(), POLLIN, 0};
    poll(&waiting, 1, static_cast<int>(std::max<std::int64_t>(0, left / std::chrono::milliseconds(1))));
  }
  return read;
}

/// "0 1 2 ", of the texts.
inline std::string textsOf(const std::vector<ReadMessage>& messages) {
  std::string text;
  for (const ReadMessage& message : messages) text += message.text + " ";
  return text;
}

}  // namespace quillon

#endif  // QUILLON_TESTS_BROKER_SOURCE_READER_H_
