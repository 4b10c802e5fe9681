#include "delivery/destinations/Backoff.h"

#include <thread>

namespace quillon::delivery {

void pause(const Feed& feed, Feed::Clock::time_point until) {
  constexpr std::chrono::milliseconds kStep(50);
  while (!feed.stopping()) {
    const auto now = Feed::Clock::now();
    if (now >= until) return;
    std::this_thread::sleep_until(std::min(until, now + kStep));
  }
}

}  // namespace quillon::delivery
