#ifndef QUILLON_DELIVERY_CLIENT_RATELIMIT_H_
#define QUILLON_DELIVERY_CLIENT_RATELIMIT_H_

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace quillon::delivery {

/// Lets so many events a second pass, and after a pause up to those of one second at once. The generic cell rate
/// algorithm of ITU-T I.371: the only state is when the next event would be due if all came evenly. For any number of
/// threads.
class RateLimit {
 public:
  using Clock = std::chrono::steady_clock;

  /// 0: no limit.
  explicit RateLimit(std::uint64_t perSecond) : perSecond_(perSecond) {}

  bool passes(Clock::time_point now) {
    if (perSecond_ == 0) return true;
    constexpr std::int64_t kSecond = 1'000'000'000;
    const std::int64_t time = std::chrono::nanoseconds(now.time_since_epoch()).count();
    const std::int64_t step = std::max<std::int64_t>(1, kSecond / static_cast<std::int64_t>(perSecond_));
    std::int64_t due = due_.load(std::memory_order_relaxed);
    std::int64_t next = 0;
    do {
      next = std::max(due, time) + step;
      if (next - time > kSecond) return false;
    } while (!due_.compare_exchange_weak(due, next, std::memory_order_relaxed));
    return true;
  }

 private:
  const std::uint64_t perSecond_;
  std::atomic<std::int64_t> due_{0};  ///< Nanoseconds of the clock.
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_RATELIMIT_H_
