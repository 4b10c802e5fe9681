#ifndef QUILLON_SERVER_THROTTLE_H_
#define QUILLON_SERVER_THROTTLE_H_

#include <chrono>
#include <map>
#include <string>

namespace quillon {

/// Keeps those who send from filling the log: what was told a moment ago is not told again. For one thread.
class Throttle {
 public:
  /// True when what goes by this name may be told now. There should be few names.
  bool admits(const std::string& name) {
    const auto now = std::chrono::steady_clock::now();
    auto& next = next_[name];
    if (now < next) return false;
    next = now + std::chrono::seconds(10);
    return true;
  }

 private:
  std::map<std::string, std::chrono::steady_clock::time_point> next_;
};

}  // namespace quillon

#endif  // QUILLON_SERVER_THROTTLE_H_
