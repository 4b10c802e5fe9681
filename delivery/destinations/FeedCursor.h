#ifndef QUILLON_DELIVERY_DESTINATIONS_FEEDCURSOR_H_
#define QUILLON_DELIVERY_DESTINATIONS_FEEDCURSOR_H_

#include <cstdint>

#include "delivery/client/Feed.h"

namespace quillon::delivery {

/// The events of a feed one by one, for destinations that make pieces of their own. Refers to the feed for its life.
class FeedCursor {
 public:
  explicit FeedCursor(Feed& feed) : feed_(feed), end_(feed.delivered()) {}

  /// The next event, or null when there is none at present; take() goes behind it. Valid until then.
  const Event* peek() {
    while (at_ == events_.events.size()) {
      if (!feed_.read(events_)) return nullptr;
      at_ = 0;
      end_ = events_.end;
    }
    return &events_.events[at_];
  }
  void take() { ++at_; }

  /// To be given to Feed::delivered() when all that was taken is there.
  std::uint64_t end() const { return at_ == events_.events.size() ? end_ : events_.events[at_].number; }

  /// Forgets what was read and not taken: the feed was told to go back.
  void reset() {
    events_.events.clear();
    at_ = 0;
    end_ = feed_.delivered();
  }

 private:
  Feed& feed_;
  Feed::Events events_;
  std::size_t at_ = 0;
  std::uint64_t end_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_DESTINATIONS_FEEDCURSOR_H_
