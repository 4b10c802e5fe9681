#ifndef QUILLON_TESTS_SOURCE_SOURCE_LINES_H_
#define QUILLON_TESTS_SOURCE_SOURCE_LINES_H_

#include <poll.h>

#include <algorithm>
#include <string>
#include <vector>

#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Keeps what a source tells besides messages.
class CollectedNotices : public SourceObserver {
 public:
  void gap(const Gap& gap) override { texts.push_back("gap in " + std::string(gap.path)); }
  void notice(Level /*level*/, std::string_view text) override { texts.emplace_back(text); }
  std::vector<std::string> texts;
};

/// The messages that come until there are `count`, the source ends, or nothing has come for `patience`: "a|b+|", a cut
/// one with a plus sign. Time goes on by `step` each time the source has nothing.
inline std::string linesOf(Source& source, TimePoint& now, std::size_t count,
                           Duration step = std::chrono::milliseconds(1), int patience = 2000) {
  std::string seen;
  Message message;
  for (int idle = 0; count > 0 && !source.ended() && idle < patience;) {
    if (source.next(now, message)) {
      seen += std::string(message.text) + (message.cut ? "+|" : "|");
      --count;
      idle = 0;
      continue;
    }
    pollfd ready{.fd = source.descriptor(), .events = POLLIN, .revents = 0};
    if (poll(&ready, 1, 1) <= 0) ++idle;
    now += step;
  }
  return seen;
}

}  // namespace quillon

#endif  // QUILLON_TESTS_SOURCE_SOURCE_LINES_H_
