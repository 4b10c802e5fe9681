#ifndef QUILLON_DELIVERY_CLIENT_FEED_H_
#define QUILLON_DELIVERY_CLIENT_FEED_H_

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "delivery/cache/format.h"

namespace quillon::delivery {

/// What a destination works with: the events for it, in their order, and where it says what became of them. It has a
/// thread of its own, which alone calls this.
class Feed {
 public:
  using Clock = std::chrono::steady_clock;

  struct Events {
    std::vector<Event> events;  ///< Those that pass the destination's filters. Their bytes are valid until the next
                                ///< read(); each is a record, see Record.h.
    std::uint64_t end = 0;      ///< To be given to delivered() when all of them are there.
  };

  virtual ~Feed() = default;

  /// The next events; those of one batch of the cache, which has a megabyte of them, or one large one. False when there
  /// are none at present. Does not wait.
  [[nodiscard]] virtual bool read(Events& events) = 0;

  /// All events below `end`, which read() gave or is less, are at the destination, in the sense that it promises; they
  /// are not read again.
  virtual void delivered(std::uint64_t end) = 0;
  virtual std::uint64_t delivered() const = 0;

  /// Reads again from delivered() on: the connection is lost, and nobody knows what arrived.
  virtual void again() = 0;
  /// Reads again from the event `number` on, or from the oldest that the cache still has: the destination has lost what
  /// it had. Nothing from there on counts as delivered.
  virtual void rewind(std::uint64_t number) = 0;

  /// Waits until there may be more to read, one of `others` is ready, the destination is to stop, or it is `until`.
  /// Fills in the revents of `others`.
  virtual void wait(Clock::time_point until, std::span<pollfd> others = {}) = 0;

  /// The destination is to return now: run() has to end within a moment.
  virtual bool stopping() const = 0;
  /// No more events will come, and once read() gives none and all are delivered it is time to return.
  virtual bool draining() const = 0;

  enum class Level { kInfo, kWarning, kError };
  /// Tells the operator; the destination's name is put before it. A text that was told last is not told again within
  /// ten seconds.
  virtual void report(Level level, std::string_view text) = 0;

  /// Shown as the destination's state, for metrics: connected or not, and what was counted under a name, such as
  /// "reconnects".
  virtual void connected(bool isConnected) = 0;
  virtual void count(std::string_view name, std::uint64_t more = 1) = 0;

  /// Names what comes out of this cache, for receivers that know a repetition by its number: the client's name and the
  /// identity of its cache. Numbers are never used twice under one id.
  virtual const std::string& clientId() const = 0;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_FEED_H_
