#ifndef QUILLON_DELIVERY_DESTINATIONS_DESTINATIONS_H_
#define QUILLON_DELIVERY_DESTINATIONS_DESTINATIONS_H_

#include "config/TomlTable.h"
#include "delivery/destinations/Destination.h"

namespace quillon::delivery {

/// Takes the key "type" of a table [destination.NAME]: `reader` is what reads the others. It stays as it is, after a
/// fault, where there is no such type in this build.
void readDestinationType(TomlTable& table, ReadDestination& reader);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_DESTINATIONS_DESTINATIONS_H_
