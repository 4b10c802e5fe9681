#include "delivery/brokers/kafka_options.h"

#include "config/address.h"

namespace quillon::delivery {

void readKafkaOptions(TomlTable& table, const std::string& directory, KafkaOptions& options) {
  table.require("brokers");
  if (table.readNames("brokers", options.brokers) && options.brokers.empty()) {
    table.report("brokers", "there must be one broker at least");
  }
  for (const std::string& broker : options.brokers) {
    if (!isAddress(broker) || broker.starts_with(':')) {
      table.report("brokers", "a broker must be HOST:PORT, such as \"192.0.2.1:9092\"");
    }
  }
  table.readName("user", options.user);
  table.readPath("password_file", directory, options.passwordFile);
  table.readWord<std::string>(
      "mechanism", options.mechanism,
      {{"plain", "PLAIN"}, {"scram-sha-256", "SCRAM-SHA-256"}, {"scram-sha-512", "SCRAM-SHA-512"}});
  if (options.user.empty() != options.passwordFile.empty()) {
    table.report(options.user.empty() ? "password_file" : "user", "user and password_file need each other");
  }
  table.read("tls", options.tls);
  table.read("verify", options.verify);
  table.readPath("ca", directory, options.ca);
  table.readPath("certificate", directory, options.certificate);
  table.readPath("key", directory, options.key);
  if (!options.tls) {
    for (const char* const key : {"verify", "ca", "certificate", "key"}) {
      if (table.has(key)) table.report(key, std::string(key) + " means something with tls = true only");
    }
  }
  table.readNames("properties", options.properties);
  for (const std::string& property : options.properties) {
    const std::size_t equals = property.find('=');
    if (equals == 0 || equals == std::string::npos) {
      table.report("properties", "a property must be \"NAME=VALUE\": \"" + property + "\"");
    }
  }
}

}  // namespace quillon::delivery
