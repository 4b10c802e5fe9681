#ifndef QUILLON_DELIVERY_DESTINATIONS_BACKOFF_H_
#define QUILLON_DELIVERY_DESTINATIONS_BACKOFF_H_

#include <algorithm>
#include <random>

#include "delivery/client/Feed.h"

namespace quillon::delivery {

/// How long to wait after each failure in a row: twice as long as before, up to a most, and then somewhere between half
/// of that and all of it by chance, so that many who lost one server do not come back to it at the same moment.
class Backoff {
 public:
  using Duration = Feed::Clock::duration;

  Backoff(Duration least, Duration most) : least_(least), most_(most), next_(least) {}

  Duration next() {
    const Duration whole = std::min(next_, most_);
    next_ = whole * 2;
    return std::uniform_int_distribution<Duration::rep>(whole.count() / 2, whole.count())(random_) * Duration(1);
  }
  /// Things went well.
  void reset() { next_ = least_; }

 private:
  const Duration least_, most_;
  Duration next_;
  std::minstd_rand random_{std::random_device{}()};
};

/// Does nothing until then, or until the feed says that it is time to return. Unlike Feed::wait() it is deaf to new
/// events.
void pause(const Feed& feed, Feed::Clock::time_point until);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_DESTINATIONS_BACKOFF_H_
