#include "server/Metrics.h"

#include "daemon/delivery_metrics.h"

namespace quillon {

using prometheus::MetricFamily;

std::vector<MetricFamily> describeServer(const ServerFigures& figures) {
  const IntakeFigures& intake = figures.intake;
  std::vector<MetricFamily> metrics;
  const auto add = [&metrics](const MetricFamily& family, std::uint64_t value) {
    addMetric(metrics.emplace_back(family), {}, static_cast<double>(value));
  };
  add(gauges("quillon_server_connections", "Connections that are open."), figures.connections);
  add(counters("quillon_server_connections_total", "Connections that were made."), figures.accepted);
  add(counters("quillon_server_refused_total", "Connections that were refused."), figures.refused);
  add(gauges("quillon_server_clients", "Clients that are remembered."), intake.clients);
  add(counters("quillon_server_records_total", "Records that came for the first time."), intake.records);
  add(counters("quillon_server_repeated_total", "Records that came again and were left out."), intake.repeated);
  add(counters("quillon_server_made_total", "Events made of attributes."), intake.made);
  add(gauges("quillon_server_sets", "Sets of class definitions that are known."), figures.sets);
  MetricFamily& aside =
      metrics.emplace_back(counters("quillon_server_put_aside_total", "Records that cannot become events."));
  for (const auto& [why, count] : intake.setAside) addMetric(aside, {{"reason", why}}, static_cast<double>(count));
  MetricFamily& parked =
      metrics.emplace_back(gauges("quillon_server_parked", "Records that wait for class definitions."));
  for (const auto& [set, count] : intake.parked) addMetric(parked, {{"set", set}}, static_cast<double>(count));
  addDeliveryMetrics(figures.delivery, metrics);
  return metrics;
}

}  // namespace quillon
