#ifndef QUILLON_DELIVERY_BROKERS_NATS_OPTIONS_H_
#define QUILLON_DELIVERY_BROKERS_NATS_OPTIONS_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "config/TomlTable.h"

namespace quillon::delivery {

/// How to reach NATS servers: keys that destination and source have in common.
struct NatsOptions {
  std::vector<std::string> servers;  ///< URLs.
  std::string user, passwordFile, tokenFile;
  std::string credentials;  ///< File with the user's JWT and seed.
  bool tls = false;
  bool verify = true;
  std::string ca, certificate, key;  ///< Files in PEM; empty: the system's authorities, no certificate.

  bool operator==(const NatsOptions&) const = default;
};
void readNatsOptions(TomlTable& table, const std::string& directory, NatsOptions& options);

/// The stream that keeps the messages.
struct NatsStream {
  std::string name;  ///< Made when it is not there; empty: somebody else has made one for the subject.
  std::uint64_t replicas = 1;
  bool isWorkQueue = false;                                                  ///< What was acknowledged goes.
  std::chrono::steady_clock::duration maxAge{0};                             ///< 0: no limit.
  std::uint64_t maxBytes = 0;                                                ///< 0: no limit.
  std::chrono::steady_clock::duration duplicates = std::chrono::minutes(2);  ///< How long message ids are kept.
};
void readNatsStream(TomlTable& table, NatsStream& stream);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_BROKERS_NATS_OPTIONS_H_
