#ifndef QUILLON_DAEMON_DELIVERY_METRICS_H_
#define QUILLON_DAEMON_DELIVERY_METRICS_H_

#include <vector>

#include "daemon/Exposition.h"
#include "delivery/client/Client.h"

namespace quillon {

/// Appends what a delivery client shows of itself.
void addDeliveryMetrics(const delivery::Client::Figures& figures, std::vector<prometheus::MetricFamily>& metrics);

}  // namespace quillon

#endif  // QUILLON_DAEMON_DELIVERY_METRICS_H_
