#ifndef QUILLON_DELIVERY_CLIENT_DELIVERYCONFIG_H_
#define QUILLON_DELIVERY_CLIENT_DELIVERYCONFIG_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/TomlTable.h"
#include "delivery/Record.h"
#include "delivery/cache/Cache.h"
#include "delivery/client/Filter.h"
#include "delivery/destinations/Destination.h"

namespace quillon::delivery {

/// A table [destination.NAME].
struct DestinationConfig {
  std::string name;  ///< Also that of its place in the cache.
  std::shared_ptr<const Destination> destination;
  Filter filter;
};

/// The tables [delivery] and [destination.NAME] of a configuration, as plain values with their defaults.
struct DeliveryConfig {
  CacheOptions cache;                           ///< `report` is not the configuration's.
  RecordForm form = RecordForm::kEvent;         ///< What events become before they are sent.
  std::string client;                           ///< Who sends: the host's name when nothing is said.
  std::uint64_t bufferBytes = 16 << 20;         ///< Of batches that wait for the cache.
  std::uint64_t rateLimit = 0;                  ///< Events a second; 0: no limit.
  Filter filter;                                ///< For all destinations, before their own.
  std::vector<DestinationConfig> destinations;  ///< In the order of the file; one at least.
};

/// Takes [delivery] and all [destination.NAME] from a document; nothing when there is no such table. What is wrong
/// becomes faults of `document`. Relative paths belong to `directory`.
std::optional<DeliveryConfig> readDelivery(TomlTable& document, const std::string& directory);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_DELIVERYCONFIG_H_
