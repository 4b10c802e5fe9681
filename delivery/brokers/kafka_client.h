#ifndef QUILLON_DELIVERY_BROKERS_KAFKA_CLIENT_H_
#define QUILLON_DELIVERY_BROKERS_KAFKA_CLIENT_H_

#include <librdkafka/rdkafka.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "delivery/brokers/kafka_options.h"

namespace quillon::delivery {

/// Frees what librdkafka gives.
struct KafkaFree {
  void operator()(rd_kafka_conf_t* it) const { rd_kafka_conf_destroy(it); }
  void operator()(rd_kafka_topic_t* it) const { rd_kafka_topic_destroy(it); }
  void operator()(rd_kafka_queue_t* it) const { rd_kafka_queue_destroy(it); }
  void operator()(rd_kafka_message_t* it) const { rd_kafka_message_destroy(it); }
  void operator()(rd_kafka_topic_partition_list_t* it) const { rd_kafka_topic_partition_list_destroy(it); }
};
template <class T>
using KafkaPtr = std::unique_ptr<T, KafkaFree>;

/// librdkafka's configuration for these: the properties of the configuration first, then what it says in its own keys,
/// then `fixed`. Null, with the reason in `error`, when one is refused or a file cannot be read.
KafkaPtr<rd_kafka_conf_t> makeKafkaConfig(const KafkaOptions& options, const std::string& clientId,
                                          const std::vector<std::pair<std::string, std::string>>& fixed,
                                          std::string& error);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_BROKERS_KAFKA_CLIENT_H_
