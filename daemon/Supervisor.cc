#include "daemon/Supervisor.h"

#include <systemd/sd-daemon.h>

#include <chrono>
#include <cstdint>
#include <ctime>

namespace quillon {

Supervisor::Supervisor() {
  std::uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return;
  interval_ = std::chrono::microseconds(microseconds / 2);
  next_ = TimePoint::min();
}

void Supervisor::ready(const std::string& status) { sd_notifyf(0, "READY=1\nSTATUS=%s", status.c_str()); }

void Supervisor::reloading() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld",
             static_cast<long long>(now.tv_sec) * 1'000'000 + static_cast<long long>(now.tv_nsec) / 1000);
}

void Supervisor::stopping() { sd_notify(0, "STOPPING=1"); }

void Supervisor::alive(TimePoint now) {
  if (!interval_ || now < next_) return;
  sd_notify(0, "WATCHDOG=1");
  next_ = now + *interval_;
}

}  // namespace quillon
