#include "src/adapters/logfile/broker/NatsSource.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/broker/source_reader.h"
#include "tests/delivery/support/destination_run.h"
#include "tests/delivery/support/nats_server.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

using delivery::addEvents;
using delivery::DestinationRun;
using delivery::MemoryFeed;
using delivery::RecordForm;

class NatsSourceTest : public testing::Test {
 protected:
  /// Messages `first` and on, `count` of them, 10 in a batch.
  void ship(int first, int count) {
    MemoryFeed feed("shipper-" + std::to_string(first));
    addEvents(feed, first, count, RecordForm::kRaw);
    const DestinationRun run(delivery::readNatsDestination,
                             "servers = '" + server_.url() + "'\nsubject = 'raw'\nstream = 'RAW'\nbatch_events = 10",
                             feed);
    ASSERT_TRUE(feed.waitDelivered(static_cast<std::uint64_t>(count)));
  }
  std::unique_ptr<Source> open(Duration ackWait = std::chrono::seconds(30), std::uint64_t batches = 64) {
    NatsSourceOptions options;
    options.connection.servers = {server_.url()};
    options.stream = "RAW";
    options.ackWait = ackWait;
    options.batches = batches;
    return openNatsSource(options, notices_);
  }

  const ScratchDirectory directory_;
  delivery::NatsServer server_{directory_.path().string() + "/one"};
  Notices notices_;
};

TEST_F(NatsSourceTest, GivesBatchesOnceToThoseWhoShareThem) {
  ship(0, 100);
  const auto one = open(std::chrono::seconds(30), 2);
  const auto two = open(std::chrono::seconds(30), 2);
  std::set<int> numbers;
  for (int round = 0; round < 20 && numbers.size() < 100; ++round) {
    for (Source* const source : {one.get(), two.get()}) {
      for (const ReadMessage& message : readMessages(*source, 20, std::chrono::milliseconds(500))) {
        EXPECT_TRUE(numbers.insert(std::stoi(message.text)).second) << message.text << " came twice";
        EXPECT_EQ("test/1 " + message.text, message.source + " " + message.place);
        source->stored(message.position);
      }
    }
  }
  EXPECT_EQ(100U, numbers.size());
  EXPECT_LT(0U, one->counters().messages);
  EXPECT_LT(0U, two->counters().messages);
}

TEST_F(NatsSourceTest, WhatIsNotStoredComesAgain) {
  ship(0, 30);
  {
    const auto source = open(std::chrono::seconds(1));
    const auto read = readMessages(*source, 30);
    ASSERT_EQ(30U, read.size());
    source->stored(read[18].position);  // the first batch, and the second but for its last message
  }
  const auto source = open(std::chrono::seconds(1));
  EXPECT_EQ("10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 ", textsOf(readMessages(*source, 20)));
}

TEST_F(NatsSourceTest, WorkThatTakesLongIsNotGivenToOthers) {
  ship(0, 10);
  const auto slow = open(std::chrono::seconds(1));
  const auto read = readMessages(*slow, 10);
  ASSERT_EQ(10U, read.size());
  const auto other = open(std::chrono::seconds(1));
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ("", textsOf(readMessages(*slow, 1, std::chrono::milliseconds(300))));
    EXPECT_EQ("", textsOf(readMessages(*other, 1, std::chrono::milliseconds(300))));
  }
  slow->stored(read.back().position);
}

TEST_F(NatsSourceTest, GoesOnAfterTheServerWasKilled) {
  ship(0, 10);
  const auto source = open();
  const auto read = readMessages(*source, 10);
  ASSERT_EQ("0 1 2 3 4 5 6 7 8 9 ", textsOf(read));
  server_.kill();
  readMessages(*source, 1, std::chrono::milliseconds(200));
  server_.start();
  source->stored(read.back().position);
  ship(10, 10);
  EXPECT_EQ("10 11 12 13 14 15 16 17 18 19 ", textsOf(readMessages(*source, 10)));
}

TEST_F(NatsSourceTest, WaitsForServerAndStreamAndTellsSo) {
  server_.kill();
  const auto source = open();
  EXPECT_EQ("", textsOf(readMessages(*source, 1, std::chrono::milliseconds(300))));
  server_.start();
  EXPECT_EQ("", textsOf(readMessages(*source, 1, std::chrono::milliseconds(1500))));
  ship(0, 1);
  EXPECT_EQ("0 ", textsOf(readMessages(*source, 1)));
  ASSERT_LE(2U, notices_.texts.size());
  EXPECT_EQ("No server available for connection; trying again", notices_.texts[0]);
  EXPECT_EQ("the consumer quillon of the stream RAW: stream not found; trying again", notices_.texts[1]);
}

TEST_F(NatsSourceTest, DrainsWhatThereIs) {
  ship(0, 25);
  const auto source = open(std::chrono::seconds(30), 2);
  source->finish(Finish::kDrain);
  std::string texts;
  for (int i = 0; i < 10 && !source->ended(); ++i) {
    const auto read = readMessages(*source, 100, std::chrono::seconds(1));
    texts += textsOf(read);
    for (const ReadMessage& message : read) source->stored(message.position);
  }
  EXPECT_EQ("0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 ", texts);
  EXPECT_TRUE(source->ended());
}

}  // namespace
}  // namespace quillon
