#ifndef QUILLON_DELIVERY_BROKERS_KAFKA_OPTIONS_H_
#define QUILLON_DELIVERY_BROKERS_KAFKA_OPTIONS_H_

#include <string>
#include <vector>

#include "config/TomlTable.h"

namespace quillon::delivery {

/// How to reach Kafka: keys that destination and source have in common.
struct KafkaOptions {
  std::vector<std::string> brokers;  ///< "HOST:PORT".
  std::string user, passwordFile;    ///< For SASL; empty: none.
  std::string mechanism = "SCRAM-SHA-512";
  bool tls = false;
  bool verify = true;
  std::string ca, certificate, key;     ///< Files in PEM; empty: the system's authorities, no certificate.
  std::vector<std::string> properties;  ///< "NAME=VALUE", librdkafka's own.

  bool operator==(const KafkaOptions&) const = default;
};
void readKafkaOptions(TomlTable& table, const std::string& directory, KafkaOptions& options);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_BROKERS_KAFKA_OPTIONS_H_
