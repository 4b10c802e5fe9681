#include "adapter/Metrics.h"

#include <utility>

#include "daemon/Exposition.h"
#include "daemon/delivery_metrics.h"

namespace quillon {
namespace {

using prometheus::MetricFamily;

/// One figure that every source has.
struct SourceMetric {
  const char* name;
  const char* help;
  MetricFamily (*family)(const char* name, const char* help);
  double (*value)(const SourceFigures& figures);
};

template <auto member>
double counter(const SourceFigures& figures) {
  return static_cast<double>(figures.counters.*member);
}

const SourceMetric kSourceMetrics[] = {
    {"quillon_messages_total", "Messages read.", counters, counter<&SourceCounters::messages>},
    {"quillon_message_bytes_total", "Bytes of messages read.", counters, counter<&SourceCounters::bytes>},
    {"quillon_unmatched_total", "Messages that no format binds.", counters,
     [](const SourceFigures& f) { return static_cast<double>(f.unmatched); }},
    {"quillon_given_up_total", "Tries of a format that were given up at the limit of attempts.", counters,
     [](const SourceFigures& f) { return static_cast<double>(f.givenUp); }},
    {"quillon_cut_total", "Messages cut at max_message.", counters, counter<&SourceCounters::cut>},
    {"quillon_gaps_total", "Times that text was lost before it could be read.", counters,
     counter<&SourceCounters::gaps>},
    {"quillon_refused_total", "Connections refused or ended for what they sent.", counters,
     counter<&SourceCounters::refused>},
    {"quillon_overrun_total", "Datagrams that the system dropped because they came too fast.", counters,
     counter<&SourceCounters::overrun>},
    {"quillon_watching", "Files followed or connections open.", gauges, counter<&SourceCounters::watching>},
    {"quillon_lag_bytes", "Bytes of files that wait to be read.", gauges, counter<&SourceCounters::lag>},
    {"quillon_lag_seconds", "For how long bytes have been waiting without a break.", gauges,
     [](const SourceFigures& f) { return f.lagSeconds; }},
};

std::vector<MetricFamily> describe(const AdapterFigures& figures) {
  std::vector<MetricFamily> families;
  for (const SourceMetric& metric : kSourceMetrics) {
    MetricFamily& made = families.emplace_back(metric.family(metric.name, metric.help));
    for (const SourceFigures& source : figures.sources)
      addMetric(made, {{"source", source.name}}, metric.value(source));
  }
  MetricFamily& events = families.emplace_back(counters("quillon_events_total", "Events by class."));
  for (const SourceFigures& source : figures.sources) {
    for (const auto& [name, count] : source.events) {
      addMetric(events, {{"source", source.name}, {"class", name}}, static_cast<double>(count));
    }
  }
  const std::pair<MetricFamily, std::uint64_t> singles[] = {
      {counters("quillon_output_bytes_total", "Bytes of events written."), figures.outputBytes},
      {counters("quillon_output_errors_total", "Writes of events that failed and were tried again."),
       figures.outputErrors},
      {counters("quillon_reloads_total", "Configurations taken over while running."), figures.reloads},
      {counters("quillon_reload_failures_total", "Configurations refused while running."), figures.failedReloads},
  };
  for (const auto& [made, value] : singles) addMetric(families.emplace_back(made), {}, static_cast<double>(value));
  if (figures.delivery) addDeliveryMetrics(*figures.delivery, families);
  return families;
}

}  // namespace

Metrics::Metrics(std::unique_ptr<Exposition> exposition) : exposition_(std::move(exposition)) {}

Metrics::~Metrics() = default;

std::unique_ptr<Metrics> Metrics::listen(const std::string& address, std::string& error) {
  auto exposition = Exposition::listen(address, error);
  return exposition ? std::unique_ptr<Metrics>(new Metrics(std::move(exposition))) : nullptr;
}

void Metrics::publish(const AdapterFigures& figures) { exposition_->publish(describe(figures)); }

}  // namespace quillon
