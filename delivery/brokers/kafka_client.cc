#include "delivery/brokers/kafka_client.h"

#include <fstream>

namespace quillon::delivery {
namespace {

class ConfigWriter {
 public:
  ConfigWriter(rd_kafka_conf_t* config, std::string& error) : config_(config), error_(error) {}

  void set(const std::string& name, const std::string& value) {
    char why[256];
    if (rd_kafka_conf_set(config_, name.c_str(), value.c_str(), why, sizeof why) != RD_KAFKA_CONF_OK &&
        error_.empty()) {
      error_ = why;
    }
  }
  void setUnlessEmpty(const std::string& name, const std::string& value) {
    if (!value.empty()) set(name, value);
  }
  /// A secret that is the first line of a file.
  void setFrom(const std::string& name, const std::string& path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line) && error_.empty()) error_ = "cannot read " + path;
    line.erase(line.find_last_not_of(" \t\r") + 1);
    set(name, line);
  }

 private:
  rd_kafka_conf_t* const config_;
  std::string& error_;
};

}  // namespace

KafkaPtr<rd_kafka_conf_t> makeKafkaConfig(const KafkaOptions& options, const std::string& clientId,
                                          const std::vector<std::pair<std::string, std::string>>& fixed,
                                          std::string& error) {
  KafkaPtr<rd_kafka_conf_t> config(rd_kafka_conf_new());
  error.clear();
  ConfigWriter writer(config.get(), error);
  for (const std::string& property : options.properties) {
    const std::size_t equals = property.find('=');
    writer.set(property.substr(0, equals), property.substr(equals + 1));
  }
  std::string brokers;
  for (const std::string& broker : options.brokers) (brokers += brokers.empty() ? "" : ",") += broker;
  writer.set("bootstrap.servers", brokers);
  writer.set("client.id", clientId);
  const bool isSasl = !options.user.empty();
  if (options.tls || isSasl) {
    writer.set("security.protocol", std::string(isSasl ? "sasl_" : "") + (options.tls ? "ssl" : "plaintext"));
  }
  if (isSasl) {
    writer.set("sasl.mechanisms", options.mechanism);
    writer.set("sasl.username", options.user);
    writer.setFrom("sasl.password", options.passwordFile);
  }
  if (options.tls) {
    writer.set("enable.ssl.certificate.verification", options.verify ? "true" : "false");
    writer.set("ssl.endpoint.identification.algorithm", options.verify ? "https" : "none");
    writer.setUnlessEmpty("ssl.ca.location", options.ca);
    writer.setUnlessEmpty("ssl.certificate.location", options.certificate);
    writer.setUnlessEmpty("ssl.key.location", options.key);
  }
  for (const auto& [name, value] : fixed) writer.set(name, value);
  if (!error.empty()) config.reset();
  return config;
}

}  // namespace quillon::delivery
