#ifndef QUILLON_TESTS_DELIVERY_SUPPORT_KAFKA_CLUSTER_H_
#define QUILLON_TESTS_DELIVERY_SUPPORT_KAFKA_CLUSTER_H_

#include <librdkafka/rdkafka.h>
#include <librdkafka/rdkafka_mock.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace quillon::delivery {

/// Brokers on ports of the loopback address, by librdkafka, which can be told to fail. They speak the protocol, and
/// keep what they have in memory.
class KafkaCluster {
 public:
  explicit KafkaCluster(int brokers);
  ~KafkaCluster();
  KafkaCluster(const KafkaCluster&) = delete;
  KafkaCluster& operator=(const KafkaCluster&) = delete;

  /// For the key `brokers`: "'127.0.0.1:1', '127.0.0.1:2'".
  std::string brokers() const;
  void createTopic(const std::string& topic, int partitions) const;
  /// The one that the first partition is written to and read from.
  void setLeader(const std::string& topic, int broker) const;
  void setDown(int broker, bool isDown) const;
  /// The next answers to producers are these.
  void failProduce(std::initializer_list<rd_kafka_resp_err_t> errors) const;

  struct Message {
    std::string key, value;
  };
  /// All of the first `partitions` partitions, one behind the other.
  std::vector<Message> messagesIn(const std::string& topic, int partitions = 1) const;

 private:
  rd_kafka_t* owner_;
  rd_kafka_mock_cluster_t* cluster_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_TESTS_DELIVERY_SUPPORT_KAFKA_CLUSTER_H_
