#ifndef QUILLON_SERVER_METRICS_H_
#define QUILLON_SERVER_METRICS_H_

#include <cstdint>
#include <vector>

#include "daemon/Exposition.h"
#include "delivery/client/Client.h"
#include "server/Intake.h"

namespace quillon {

/// What the server shows of itself at one time.
struct ServerFigures {
  IntakeFigures intake;
  delivery::Client::Figures delivery;
  std::size_t connections = 0;
  std::uint64_t accepted = 0;
  std::uint64_t refused = 0;
  std::size_t sets = 0;
};

std::vector<prometheus::MetricFamily> describeServer(const ServerFigures& figures);

}  // namespace quillon

#endif  // QUILLON_SERVER_METRICS_H_
