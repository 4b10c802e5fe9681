#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "delivery/brokers/record_batch.h"
#include "tests/delivery/support/destination_run.h"
#include "tests/delivery/support/kafka_cluster.h"
#include "tests/support/scratch.h"

namespace quillon::delivery {
namespace {

class Kafka : public testing::Test {
 protected:
  std::string keys(const std::string& more = "") const {
    return "brokers = [" + cluster_.brokers() + "]\ntopic = 'q'\n" + more;
  }
  /// "0x1 1x2 " when event 0 is in the topic once and event 1 twice.
  std::string times() const {
    std::map<int, int> times;
    for (const KafkaCluster::Message& message : cluster_.messagesIn("q")) {
      ++times[std::stoi(message.value.substr(message.value.find("\"n\":\"") + 5))];
    }
    std::string text;
    for (const auto& [n, count] : times) text += std::to_string(n) + "x" + std::to_string(count) + " ";
    return text;
  }
  bool waitReport(const std::string& part) const {
    for (int i = 0; i < 1000; ++i) {
      for (const std::string& report : feed_.reports()) {
        if (report.find(part) != std::string::npos) return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  const KafkaCluster cluster_{3};
  MemoryFeed feed_;
};

TEST_F(Kafka, ProducesAnEventAMessageKeyedBySource) {
  cluster_.createTopic("q", 1);
  addEvents(feed_, 0, 2);
  DestinationRun run(readKafkaDestination, keys("order = 'source'"), feed_);
  ASSERT_TRUE(feed_.waitDelivered(2));
  const auto messages = cluster_.messagesIn("q");
  ASSERT_EQ(2U, messages.size());
  EXPECT_EQ("test/1", messages[0].key);
  EXPECT_EQ(R"({"class":"Test","event_id":0,"slots":{"n":"0"},"source":"test/1","position":"0"})", messages[0].value);
  EXPECT_TRUE(feed_.isConnected());
}

TEST_F(Kafka, MessagesOfASourceTravelTogetherAsTheyAre) {
  cluster_.createTopic("q", 1);
  addEvents(feed_, 0, 300, RecordForm::kRaw);
  DestinationRun run(readKafkaDestination, keys(), feed_);
  ASSERT_TRUE(feed_.waitDelivered(300));
  const auto messages = cluster_.messagesIn("q");
  ASSERT_EQ(2U, messages.size());  // 256, and the rest
  int expected = 0;
  for (const KafkaCluster::Message& message : messages) {
    RecordBatchReader batch(message.value);
    Record record;
    for (std::string_view bytes; batch.next(bytes); ++expected) {
      ASSERT_TRUE(decode(bytes, record));
      EXPECT_EQ(std::to_string(expected), record.text);
    }
    EXPECT_TRUE(batch.isWhole());
  }
  EXPECT_EQ(300, expected);
}

TEST_F(Kafka, DeliversNothingWhileABrokerIsDown) {
  cluster_.createTopic("q", 1);
  cluster_.setLeader("q", 1);
  DestinationRun run(readKafkaDestination, keys(), feed_);
  addEvents(feed_, 0, 2);
  ASSERT_TRUE(feed_.waitDelivered(2));
  cluster_.setDown(1, true);
  addEvents(feed_, 2, 2);
  EXPECT_FALSE(feed_.waitDelivered(3, std::chrono::milliseconds(1500)));
  cluster_.setLeader("q", 2);  // another one takes over
  ASSERT_TRUE(feed_.waitDelivered(4));
  cluster_.setDown(1, false);
  EXPECT_EQ("0x1 1x1 2x1 3x1 ", times());
}

TEST_F(Kafka, TriesAgainWhatMayPass) {
  cluster_.createTopic("q", 1);
  // The first two the library sees to itself; the third it hands back.
  cluster_.failProduce({RD_KAFKA_RESP_ERR_NOT_LEADER_FOR_PARTITION, RD_KAFKA_RESP_ERR_NOT_ENOUGH_REPLICAS,
                        RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED});
  addEvents(feed_, 0, 3);
  DestinationRun run(readKafkaDestination, keys(), feed_);
  ASSERT_TRUE(feed_.waitDelivered(3));
  EXPECT_EQ("0x1 1x1 2x1 ", times());
  EXPECT_TRUE(waitReport("q: Broker: Topic authorization failed; trying again"));
}

TEST_F(Kafka, WhatNoBrokerWillTakeGoesToTheDeadLetters) {
  cluster_.createTopic("q", 1);
  const ScratchDirectory directory;
  const auto dead = directory.path() / "dead";
  addEvents(feed_, 0, 1);
  Record record;
  record.className = "Test";
  const std::string large(20'000, 'x');
  record.values = {{"n", large}};
  std::string bytes;
  encode(record, bytes);
  feed_.add(bytes, RecordForm::kEvent);
  addEvents(feed_, 1, 1);
  DestinationRun run(readKafkaDestination, keys("max_message = 10000\ndead_letters = '" + dead.string() + "'"), feed_);
  ASSERT_TRUE(feed_.waitDelivered(3));
  EXPECT_EQ("0x1 1x1 ", times());
  EXPECT_EQ(1U, feed_.counted("refused"));
  EXPECT_NE(std::string::npos,
            readFile(dead).find("{\"number\":1,\"why\":\"Broker: Message size too large\",\"record\":{"));
}

TEST(KafkaOptions, WhatIsWrongIsTold) {
  struct Case {
    const char *toml, *expected;
  };
  const Case cases[] = {
      {"topic = 't'\nbrokers = 'here'", "a broker must be HOST:PORT, such as \"192.0.2.1:9092\"\n"},
      {"topic = 't'\nbrokers = 'a:1'\nuser = 'u'", "user and password_file need each other\n"},
      {"topic = 't'\nbrokers = 'a:1'\nca = 'c'", "ca means something with tls = true only\n"},
      {"topic = 't'\nbrokers = 'a:1'\nproperties = ['acks']", "a property must be \"NAME=VALUE\": \"acks\"\n"},
  };
  for (const Case& c : cases) {
    std::string faults;
    readDestination(readKafkaDestination, c.toml, &faults);
    EXPECT_EQ(c.expected, faults) << c.toml;
  }
}

TEST(KafkaOptions, WhatTheLibraryRefusesIsToldWhenItRuns) {
  MemoryFeed feed;
  DestinationRun run(readKafkaDestination, "brokers = '127.0.0.1:1'\ntopic = 't'\nproperties = ['no.such=1']", feed);
  for (int i = 0; i < 500 && feed.reports().empty(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_FALSE(feed.reports().empty());
  EXPECT_EQ("No such configuration property: \"no.such\"; trying again", feed.reports().front());
}

}  // namespace
}  // namespace quillon::delivery
