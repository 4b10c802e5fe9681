#ifndef QUILLON_DELIVERY_DESTINATIONS_CONNECTOR_H_
#define QUILLON_DELIVERY_DESTINATIONS_CONNECTOR_H_

#include <optional>
#include <string>

#include "config/TomlTable.h"
#include "delivery/client/Feed.h"
#include "delivery/transport/Stream.h"

namespace quillon::delivery {

/// A server that a destination connects to.
struct Endpoint {
  std::string address;  ///< HOST:PORT.
  bool isTls = false;
  TlsOptions tls;
  std::string serverName;  ///< That the certificate has to be for.
};

/// Takes the keys address, tls, ca, certificate, key, server_name and verify from a table.
void readEndpoint(TomlTable& table, const std::string& directory, Endpoint& endpoint);

/// Connects, with TLS where that is asked for; gives up at `deadline` and when the feed says that it is time to return.
/// Why there is no connection; empty when there is one.
std::string connect(const Endpoint& endpoint, Feed& feed, Feed::Clock::time_point deadline,
                    std::optional<Stream>& stream);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_DESTINATIONS_CONNECTOR_H_
