#include "daemon/delivery_metrics.h"

namespace quillon {
namespace {

using prometheus::MetricFamily;
using Figures = delivery::Client::Figures;

/// One figure of the client, or that every destination has.
template <class Of>
struct Metric {
  const char* name;
  const char* help;
  MetricFamily (*family)(const char* name, const char* help);
  double (*value)(const Of& figures);
};

template <auto member, class Of>
double value(const Of& figures) {
  return static_cast<double>(figures.*member);
}

const Metric<Figures> kMetrics[] = {
    {"quillon_delivery_taken_total", "Events taken in.", counters, value<&Figures::taken>},
    {"quillon_delivery_filtered_total", "Events that no destination wants.", counters, value<&Figures::filtered>},
    {"quillon_delivery_rate_limited_total", "Events above the rate limit.", counters, value<&Figures::rateLimited>},
    {"quillon_cache_damaged_total", "Events found missing or damaged in the cache.", counters,
     value<&Figures::damaged>},
    {"quillon_cache_dropped_total", "Events dropped because the cache was full, for each destination.", counters,
     value<&Figures::dropped>},
    {"quillon_cache_failures_total", "Times that the system did not do what the cache asked for.", counters,
     value<&Figures::failures>},
    {"quillon_cache_bytes", "Bytes of the cache on the disk.", gauges, value<&Figures::cacheBytes>},
    {"quillon_delivery_buffered_bytes", "Bytes that wait for the cache.", gauges, value<&Figures::buffered>},
};

const Metric<Figures::Destination> kDestinationMetrics[] = {
    {"quillon_destination_connected", "1 while the destination can be reached.", gauges,
     value<&Figures::Destination::isConnected>},
    {"quillon_destination_delivered_total", "Events that are at the destination.", counters,
     value<&Figures::Destination::delivered>},
    {"quillon_destination_filtered_total", "Events that did not pass its filters.", counters,
     value<&Figures::Destination::filtered>},
    {"quillon_destination_waiting", "Events that wait in the cache for it, at most.", gauges,
     value<&Figures::Destination::waiting>},
};

}  // namespace

void addDeliveryMetrics(const Figures& figures, std::vector<MetricFamily>& metrics) {
  for (const auto& metric : kMetrics) {
    addMetric(metrics.emplace_back(metric.family(metric.name, metric.help)), {}, metric.value(figures));
  }
  for (const auto& metric : kDestinationMetrics) {
    MetricFamily& family = metrics.emplace_back(metric.family(metric.name, metric.help));
    for (const auto& one : figures.destinations) addMetric(family, {{"destination", one.name}}, metric.value(one));
  }
  MetricFamily& counts =
      metrics.emplace_back(counters("quillon_destination_count_total", "What a destination counts of its own."));
  for (const auto& one : figures.destinations) {
    for (const auto& [what, count] : one.counts) {
      addMetric(counts, {{"destination", one.name}, {"what", what}}, static_cast<double>(count));
    }
  }
}

}  // namespace quillon
