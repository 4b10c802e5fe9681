#ifndef QUILLON_SERVER_SERVERCONFIG_H_
#define QUILLON_SERVER_SERVERCONFIG_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/TomlTable.h"
#include "daemon/Log.h"
#include "delivery/client/DeliveryConfig.h"
#include "delivery/transport/Tls.h"

namespace quillon {

/// What quillon-server(5) describes, as plain values with their defaults. Paths are absolute.

/// A table [listen.NAME].
struct ListenerConfig {
  enum class Type { kTcp, kTls, kUnix };

  std::string name;
  Type type = Type::kTcp;
  std::string address;       ///< HOST:PORT, or the path of a Unix socket.
  unsigned mode = 0660;      ///< Of a Unix socket.
  delivery::TlsOptions tls;  ///< Its `ca` is whose certificates clients must have; empty: they need none.
  std::string tokenFile;     ///< A token a line; empty: clients need none.
};

struct ServerConfig {
  std::string metrics;  ///< "HOST:PORT" for Prometheus, a loopback address; empty: none.
  LogConfig log;
  std::uint64_t mostBatch = 16 << 20;  ///< Bytes of a batch, and so of what is held for a client.
  std::uint64_t connections = 1000;    ///< At a time.
  std::uint64_t clients = 10'000;      ///< That are remembered.
  std::chrono::milliseconds patience{30'000};
  std::vector<ListenerConfig> listeners;

  std::vector<std::string> definitions;   ///< Files of class definitions, and directories of them.
  std::string codeset;                    ///< Of their names and texts; empty: they are taken as they are.
  std::string parked;                     ///< The directory of what waits for definitions, or cannot become an event.
  std::uint64_t parkedBytes = 256 << 20;  ///< For each set of definitions.
  std::uint64_t parkedSets = 64;

  delivery::DeliveryConfig delivery;

  /// Attributes and messages go on as they came.
  bool passesOn() const { return delivery.form != delivery::RecordForm::kEvent; }
};

/// Reads the file `path`. All that is wrong is told in `faults`, in the order of the file; then there is no result.
/// Whether other files exist that it names is not looked at.
std::optional<ServerConfig> readServerConfig(const std::string& path, std::vector<ConfigFault>& faults);

}  // namespace quillon

#endif  // QUILLON_SERVER_SERVERCONFIG_H_
