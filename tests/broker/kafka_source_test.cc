#include "src/adapters/logfile/broker/KafkaSource.h"

#include <gtest/gtest.h>

#include "tests/broker/source_reader.h"
#include "tests/delivery/support/destination_run.h"
#include "tests/delivery/support/kafka_cluster.h"

namespace quillon {
namespace {

using delivery::addEvents;
using delivery::DestinationRun;
using delivery::MemoryFeed;
using delivery::RecordForm;

class KafkaSourceTest : public testing::Test {
 protected:
  KafkaSourceTest() { cluster_.createTopic("raw", 1); }

  /// Messages `first` and on, `count` of them, 10 in a batch.
  void ship(int first, int count) {
    MemoryFeed feed;
    addEvents(feed, first, count, RecordForm::kRaw);
    const DestinationRun run(delivery::readKafkaDestination,
                             "brokers = [" + cluster_.brokers() + "]\ntopic = 'raw'\nbatch_events = 10", feed);
    ASSERT_TRUE(feed.waitDelivered(static_cast<std::uint64_t>(count)));
  }
  std::unique_ptr<Source> open() {
    KafkaSourceOptions options;
    // The cluster lets a newcomer in when the session of one who has left is over.
    const toml::table document =
        toml::parse("brokers = [" + cluster_.brokers() +
                    "]\ntopic = 'raw'\nproperties = ['session.timeout.ms=6000', 'heartbeat.interval.ms=1000']");
    std::vector<ConfigFault> faults;
    TomlTable table(document, "source.test", faults);
    readKafkaSource(table, "/", options);
    table.finish();
    EXPECT_TRUE(faults.empty());
    std::string error;
    auto source = openKafkaSource(options, notices_, error);
    EXPECT_TRUE(source) << error;
    return source;
  }

  const delivery::KafkaCluster cluster_{2};
  Notices notices_;
};

TEST_F(KafkaSourceTest, GoesOnBehindWhatIsStored) {
  ship(0, 30);
  {
    const auto source = open();
    const auto read = readMessages(*source, 30);
    ASSERT_EQ(30U, read.size());
    EXPECT_EQ("test/1 7", read[7].source + " " + read[7].place);
    source->stored(read[18].position);  // the first batch, and the second but for its last message
  }
  const auto source = open();
  EXPECT_EQ("10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 ", textsOf(readMessages(*source, 20)));
}

TEST_F(KafkaSourceTest, ReadsOnWhenABrokerIsBack) {
  cluster_.setLeader("raw", 1);
  ship(0, 10);
  const auto source = open();
  ASSERT_EQ(10U, readMessages(*source, 10).size());
  cluster_.setDown(1, true);
  EXPECT_EQ("", textsOf(readMessages(*source, 1, std::chrono::milliseconds(500))));
  cluster_.setDown(1, false);
  ship(10, 3);
  EXPECT_EQ("10 11 12 ", textsOf(readMessages(*source, 3)));
}

TEST_F(KafkaSourceTest, DrainsWhatThereIs) {
  ship(0, 5);
  const auto source = open();
  source->finish(Finish::kDrain);
  EXPECT_EQ("0 1 2 3 4 ", textsOf(readMessages(*source, 100)));
  EXPECT_TRUE(source->ended());
}

}  // namespace
}  // namespace quillon
