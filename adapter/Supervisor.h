#ifndef QUILLON_ADAPTER_SUPERVISOR_H_
#define QUILLON_ADAPTER_SUPERVISOR_H_

#include <optional>
#include <string>

#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Tells the service manager how the adapter is (sd_notify(3)); without one nothing happens. For one thread.
class Supervisor {
 public:
  Supervisor();

  void ready(const std::string& status);
  void reloading();
  void stopping();

  /// Sends the sign of life that a watchdog waits for, when it is time.
  void alive(TimePoint now);
  /// When alive() is to be called; TimePoint::max() without a watchdog.
  TimePoint deadline() const { return next_; }

 private:
  std::optional<Duration> interval_;
  TimePoint next_ = TimePoint::max();
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_SUPERVISOR_H_
