#ifndef QUILLON_DAEMON_SUPERVISOR_H_
#define QUILLON_DAEMON_SUPERVISOR_H_

#include <chrono>
#include <optional>
#include <string>

namespace quillon {

/// Tells the service manager how the program is (sd_notify(3)); without one nothing happens. For one thread.
class Supervisor {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  Supervisor();

  void ready(const std::string& status);
  void reloading();
  void stopping();

  /// Sends the sign of life that a watchdog waits for, when it is time.
  void alive(TimePoint now);
  /// When alive() is to be called; TimePoint::max() without a watchdog.
  TimePoint deadline() const { return next_; }

 private:
  std::optional<std::chrono::steady_clock::duration> interval_;
  TimePoint next_ = TimePoint::max();
};

}  // namespace quillon

#endif  // QUILLON_DAEMON_SUPERVISOR_H_
