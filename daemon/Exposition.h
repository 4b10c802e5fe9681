#ifndef QUILLON_DAEMON_EXPOSITION_H_
#define QUILLON_DAEMON_EXPOSITION_H_

#include <prometheus/metric_family.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace quillon {

using MetricLabels = std::vector<std::pair<std::string, std::string>>;

/// Metrics of one name; add their values with addMetric().
prometheus::MetricFamily counters(const char* name, const char* help);
prometheus::MetricFamily gauges(const char* name, const char* help);
void addMetric(prometheus::MetricFamily& family, const MetricLabels& labels, double value);

/// Answers requests for /metrics by HTTP in the text form of Prometheus, in threads of its own, with the metrics that
/// were published last. publish() is for one thread.
class Exposition {
 public:
  /// Listens at "HOST:PORT". Null when that cannot be, with the reason in `error`.
  static std::unique_ptr<Exposition> listen(const std::string& address, std::string& error);
  ~Exposition();

  void publish(std::vector<prometheus::MetricFamily> metrics);

 private:
  class Server;

  Exposition();

  std::unique_ptr<Server> server_;
};

}  // namespace quillon

#endif  // QUILLON_DAEMON_EXPOSITION_H_
