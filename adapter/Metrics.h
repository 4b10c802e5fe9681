#ifndef QUILLON_ADAPTER_METRICS_H_
#define QUILLON_ADAPTER_METRICS_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "adapter/SourceRunner.h"
#include "delivery/client/Client.h"

namespace quillon {

class Exposition;

/// What the adapter shows of itself at one time.
struct AdapterFigures {
  std::vector<SourceFigures> sources;
  std::uint64_t outputBytes = 0;
  std::uint64_t outputErrors = 0;
  std::uint64_t reloads = 0;
  std::uint64_t failedReloads = 0;
  std::optional<delivery::Client::Figures> delivery;  ///< With destinations.
};

/// Answers requests for /metrics by HTTP in the text form of Prometheus, in threads of its own, with the figures that
/// were published last. publish() is for one thread.
class Metrics {
 public:
  /// Listens at "HOST:PORT". Null when that cannot be, with the reason in `error`.
  static std::unique_ptr<Metrics> listen(const std::string& address, std::string& error);
  ~Metrics();

  void publish(const AdapterFigures& figures);

 private:
  explicit Metrics(std::unique_ptr<Exposition> exposition);

  const std::unique_ptr<Exposition> exposition_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_METRICS_H_
