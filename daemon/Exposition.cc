#include "daemon/Exposition.h"

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>

#include <exception>
#include <mutex>

namespace quillon {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

MetricFamily counters(const char* name, const char* help) { return {name, help, MetricType::Counter, {}}; }

MetricFamily gauges(const char* name, const char* help) { return {name, help, MetricType::Gauge, {}}; }

void addMetric(MetricFamily& family, const MetricLabels& labels, double value) {
  ClientMetric metric;
  metric.label.reserve(labels.size());
  for (const auto& [name, text] : labels) metric.label.push_back({name, text});
  (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
  family.metric.push_back(std::move(metric));
}

class Exposition::Server : public prometheus::Collectable {
 public:
  std::vector<MetricFamily> Collect() const override {
    const std::scoped_lock lock(mutex_);
    return metrics_;
  }

  void publish(std::vector<MetricFamily> metrics) {
    const std::scoped_lock lock(mutex_);
    metrics_ = std::move(metrics);
  }

  std::shared_ptr<Server> self{this, [](Server*) {}};  ///< What the exposer refers to weakly.
  std::unique_ptr<prometheus::Exposer> exposer;

 private:
  mutable std::mutex mutex_;
  std::vector<MetricFamily> metrics_;
};

Exposition::Exposition() : server_(std::make_unique<Server>()) {}

Exposition::~Exposition() { server_->exposer.reset(); }

std::unique_ptr<Exposition> Exposition::listen(const std::string& address, std::string& error) {
  std::unique_ptr<Exposition> made(new Exposition);
  try {
    made->server_->exposer = std::make_unique<prometheus::Exposer>(address, 1);
  } catch (const std::exception& problem) {  // the library knows no other way
    error = "cannot answer at " + address + ": " + problem.what();
    return nullptr;
  }
  made->server_->exposer->RegisterCollectable(made->server_->self);
  return made;
}

void Exposition::publish(std::vector<MetricFamily> metrics) { server_->publish(std::move(metrics)); }

}  // namespace quillon
