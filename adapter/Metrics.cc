#include "adapter/Metrics.h"

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

#include <exception>
#include <mutex>
#include <utility>

namespace quillon {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

MetricFamily family(const char* name, const char* help, MetricType type) { return {name, help, type, {}}; }

void add(MetricFamily& family, std::vector<ClientMetric::Label> labels, double value) {
  ClientMetric metric;
  metric.label = std::move(labels);
  (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
  family.metric.push_back(std::move(metric));
}

/// One figure that every source has.
struct SourceMetric {
  const char* name;
  const char* help;
  MetricType type;
  double (*value)(const SourceFigures& figures);
};

constexpr auto kCounter = MetricType::Counter;
constexpr auto kGauge = MetricType::Gauge;

template <auto member>
double counter(const SourceFigures& figures) {
  return static_cast<double>(figures.counters.*member);
}

const SourceMetric kSourceMetrics[] = {
    {"quillon_messages_total", "Messages read.", kCounter, counter<&SourceCounters::messages>},
    {"quillon_message_bytes_total", "Bytes of messages read.", kCounter, counter<&SourceCounters::bytes>},
    {"quillon_unmatched_total", "Messages that no format binds.", kCounter,
     [](const SourceFigures& f) { return static_cast<double>(f.unmatched); }},
    {"quillon_given_up_total", "Tries of a format that were given up at the limit of attempts.", kCounter,
     [](const SourceFigures& f) { return static_cast<double>(f.givenUp); }},
    {"quillon_cut_total", "Messages cut at max_message.", kCounter, counter<&SourceCounters::cut>},
    {"quillon_gaps_total", "Times that text was lost before it could be read.", kCounter,
     counter<&SourceCounters::gaps>},
    {"quillon_refused_total", "Connections refused or ended for what they sent.", kCounter,
     counter<&SourceCounters::refused>},
    {"quillon_overrun_total", "Datagrams that the system dropped because they came too fast.", kCounter,
     counter<&SourceCounters::overrun>},
    {"quillon_watching", "Files followed or connections open.", kGauge, counter<&SourceCounters::watching>},
    {"quillon_lag_bytes", "Bytes of files that wait to be read.", kGauge, counter<&SourceCounters::lag>},
    {"quillon_lag_seconds", "For how long bytes have been waiting without a break.", kGauge,
     [](const SourceFigures& f) { return f.lagSeconds; }},
};

std::vector<MetricFamily> describe(const AdapterFigures& figures) {
  std::vector<MetricFamily> families;
  for (const SourceMetric& metric : kSourceMetrics) {
    MetricFamily& made = families.emplace_back(family(metric.name, metric.help, metric.type));
    for (const SourceFigures& source : figures.sources) add(made, {{"source", source.name}}, metric.value(source));
  }
  MetricFamily& events = families.emplace_back(family("quillon_events_total", "Events by class.", kCounter));
  for (const SourceFigures& source : figures.sources) {
    for (const auto& [name, count] : source.events) {
      add(events, {{"source", source.name}, {"class", name}}, static_cast<double>(count));
    }
  }
  const std::pair<MetricFamily, std::uint64_t> singles[] = {
      {family("quillon_output_bytes_total", "Bytes of events written.", kCounter), figures.outputBytes},
      {family("quillon_output_errors_total", "Writes of events that failed and were tried again.", kCounter),
       figures.outputErrors},
      {family("quillon_reloads_total", "Configurations taken over while running.", kCounter), figures.reloads},
      {family("quillon_reload_failures_total", "Configurations refused while running.", kCounter),
       figures.failedReloads},
  };
  for (const auto& [made, value] : singles) add(families.emplace_back(made), {}, static_cast<double>(value));
  return families;
}

}  // namespace

class Metrics::Server : public prometheus::Collectable {
 public:
  std::vector<MetricFamily> Collect() const override {
    const std::lock_guard lock(mutex_);
    return describe(figures_);
  }

  void publish(AdapterFigures figures) {
    const std::lock_guard lock(mutex_);
    figures_ = std::move(figures);
  }

  std::shared_ptr<Server> self{this, [](Server*) {}};  ///< What the exposer refers to weakly.
  std::unique_ptr<prometheus::Exposer> exposer;

 private:
  mutable std::mutex mutex_;
  AdapterFigures figures_;
};

Metrics::Metrics() : server_(std::make_unique<Server>()) {}

Metrics::~Metrics() { server_->exposer.reset(); }

std::unique_ptr<Metrics> Metrics::listen(const std::string& address, std::string& error) {
  std::unique_ptr<Metrics> metrics(new Metrics);
  try {
    metrics->server_->exposer = std::make_unique<prometheus::Exposer>(address, 1);
  } catch (const std::exception& problem) {  // the library knows no other way
    error = "cannot answer at " + address + ": " + problem.what();
    return nullptr;
  }
  metrics->server_->exposer->RegisterCollectable(metrics->server_->self);
  return metrics;
}

void Metrics::publish(AdapterFigures figures) { server_->publish(std::move(figures)); }

}  // namespace quillon
