#include "tests/delivery/support/kafka_cluster.h"

#include <chrono>
#include <cstdlib>
#include <sstream>

namespace quillon::delivery {
namespace {

constexpr std::int16_t kProduceRequest = 0;

/// Has no brokers but for what is in `bootstrap`.
rd_kafka_t* makeClient(rd_kafka_type_t type, const std::string& bootstrap = "") {
  rd_kafka_conf_t* const config = rd_kafka_conf_new();
  char why[256];
  if (!bootstrap.empty()) rd_kafka_conf_set(config, "bootstrap.servers", bootstrap.c_str(), why, sizeof why);
  if (type == RD_KAFKA_CONSUMER) {
    rd_kafka_conf_set(config, "group.id", "reader", why, sizeof why);
    rd_kafka_conf_set(config, "enable.partition.eof", "true", why, sizeof why);
    rd_kafka_conf_set(config, "isolation.level", "read_uncommitted", why, sizeof why);
  }
  rd_kafka_conf_set_log_cb(config, nullptr);
  rd_kafka_t* const client = rd_kafka_new(type, config, why, sizeof why);
  if (!client) std::abort();
  return client;
}

}  // namespace

KafkaCluster::KafkaCluster(int brokers)
    : owner_(makeClient(RD_KAFKA_PRODUCER)), cluster_(rd_kafka_mock_cluster_new(owner_, brokers)) {}

KafkaCluster::~KafkaCluster() {
  rd_kafka_mock_cluster_destroy(cluster_);
  rd_kafka_destroy(owner_);
}

std::string KafkaCluster::brokers() const {
  std::istringstream all(rd_kafka_mock_cluster_bootstraps(cluster_));
  std::string keys;
  for (std::string one; std::getline(all, one, ',');) keys += (keys.empty() ? "'" : ", '") + one + "'";
  return keys;
}

void KafkaCluster::createTopic(const std::string& topic, int partitions) const {
  rd_kafka_mock_topic_create(cluster_, topic.c_str(), partitions, 1);
}

void KafkaCluster::setLeader(const std::string& topic, int broker) const {
  rd_kafka_mock_partition_set_leader(cluster_, topic.c_str(), 0, broker);
}

void KafkaCluster::setDown(int broker, bool isDown) const {
  isDown ? rd_kafka_mock_broker_set_down(cluster_, broker) : rd_kafka_mock_broker_set_up(cluster_, broker);
}

void KafkaCluster::failProduce(std::initializer_list<rd_kafka_resp_err_t> errors) const {
  rd_kafka_mock_push_request_errors_array(cluster_, kProduceRequest, errors.size(), errors.begin());
}

std::vector<KafkaCluster::Message> KafkaCluster::messagesIn(const std::string& topic, int partitions) const {
  rd_kafka_t* const consumer = makeClient(RD_KAFKA_CONSUMER, rd_kafka_mock_cluster_bootstraps(cluster_));
  rd_kafka_poll_set_consumer(consumer);
  rd_kafka_topic_partition_list_t* const all = rd_kafka_topic_partition_list_new(partitions);
  for (int n = 0; n < partitions; ++n) {
    rd_kafka_topic_partition_list_add(all, topic.c_str(), n)->offset = RD_KAFKA_OFFSET_BEGINNING;
  }
  rd_kafka_assign(consumer, all);
  rd_kafka_topic_partition_list_destroy(all);
  std::vector<Message> messages;
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (int ended = 0; ended < partitions && std::chrono::steady_clock::now() < until;) {
    rd_kafka_message_t* const message = rd_kafka_consumer_poll(consumer, 100);
    if (!message) continue;
    const auto text = [](const void* data, std::size_t size) {
      return std::string(data ? static_cast<const char*>(data) : "", size);
    };
    if (message->err == RD_KAFKA_RESP_ERR__PARTITION_EOF) ++ended;
    if (!message->err) messages.push_back({text(message->key, message->key_len), text(message->payload, message->len)});
    rd_kafka_message_destroy(message);
  }
  rd_kafka_consumer_close(consumer);
  rd_kafka_destroy(consumer);
  return messages;
}

}  // namespace quillon::delivery
