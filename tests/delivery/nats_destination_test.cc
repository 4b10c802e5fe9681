#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "delivery/brokers/record_batch.h"
#include "tests/delivery/support/destination_run.h"
#include "tests/delivery/support/nats_server.h"
#include "tests/support/scratch.h"

namespace quillon::delivery {
namespace {

namespace fs = std::filesystem;

class Nats : public testing::Test {
 protected:
  std::string keys(const std::string& more = "") const {
    return "servers = '" + server_.url() + "'\nsubject = 'q.events'\nstream = 'Q'\n" + more;
  }
  std::vector<StreamMessage> messages() const { return messagesIn(server_.url(), "Q"); }

  /// The numbers of the events in the stream from 0 to `count`, where something is wrong with them: "-3" is missing,
  /// "+4" is there twice. Messages of one id count once.
  std::string faults(int count) const {
    std::vector<int> found(static_cast<std::size_t>(count));
    for (const StreamMessage& message : messages()) {
      std::istringstream lines(message.data);
      for (std::string line; std::getline(lines, line);) {
        ++found.at(std::stoul(line.substr(line.find("\"n\":\"") + 5)));
      }
    }
    std::string text;
    for (std::size_t n = 0; n < found.size(); ++n) {
      if (found[n] != 1) text += (found[n] == 0 ? "-" : "+") + std::to_string(n) + " ";
    }
    return text;
  }
  /// Waits until `name` was counted.
  bool waitCounted(const std::string& name, std::uint64_t least = 1) const {
    for (int i = 0; i < 1000 && feed_.counted(name) < least; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return feed_.counted(name) >= least;
  }

  const ScratchDirectory directory_;
  NatsServer server_{directory_.path().string() + "/one"};
  MemoryFeed feed_;
};

TEST_F(Nats, PublishesBatchesUnderIdsOfTheirEvents) {
  addEvents(feed_, 0, 150);
  feed_.setPerRead(40);
  std::string all;
  {
    DestinationRun run(readNatsDestination, keys("batch_events = 64"), feed_);
    ASSERT_TRUE(feed_.waitDelivered(150));
    EXPECT_TRUE(feed_.isConnected());
  }
  for (const StreamMessage& message : messages()) all += message.id + " ";
  EXPECT_EQ("test-1:0-63 test-1:64-127 test-1:128-149 ", all);
  EXPECT_EQ("", faults(150));

  MemoryFeed later;  // as if the process had ended before it knew of the acknowledgements
  addEvents(later, 0, 150);
  later.delivered(10);
  later.again();
  DestinationRun again(readNatsDestination, keys("batch_events = 64"), later);
  ASSERT_TRUE(later.waitDelivered(150));
  std::set<std::string> ids;
  for (const StreamMessage& message : messages()) ids.insert(message.id);
  // The first message differs from the one before; what begins at a multiple of 64 is known to the server.
  EXPECT_EQ((std::set<std::string>{"test-1:0-63", "test-1:64-127", "test-1:128-149", "test-1:10-63"}), ids);
  EXPECT_EQ(4U, messages().size());
}

TEST_F(Nats, MessagesOfASourceTravelAsTheyAre) {
  Record record;
  record.form = RecordForm::kRaw;
  record.source = "web1/auth";
  record.position = "7:4711";
  record.text = std::string_view("\xFF\0\n", 3);
  std::string bytes;
  encode(record, bytes);
  feed_.add(bytes, RecordForm::kRaw);
  feed_.add(bytes, RecordForm::kRaw);
  addEvents(feed_, 0, 1);
  DestinationRun run(readNatsDestination, keys(), feed_);
  ASSERT_TRUE(feed_.waitDelivered(3));
  const std::vector<StreamMessage> sent = messages();
  ASSERT_EQ(2U, sent.size());  // an event is of another kind, and so in a message of its own
  RecordBatchReader batch(sent[0].data);
  std::string_view one;
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(batch.next(one));
    EXPECT_EQ(bytes, one);
  }
  EXPECT_FALSE(batch.next(one));
  EXPECT_TRUE(batch.isWhole());
  for (std::size_t size = 0; size < sent[0].data.size(); ++size) {
    RecordBatchReader cut(std::string_view(sent[0].data).substr(0, size));
    while (cut.next(one)) EXPECT_EQ(bytes, one);
    EXPECT_EQ(size == kRecordBatchMagic.size() || size == (sent[0].data.size() + 4) / 2, cut.isWhole()) << size;
  }
}

TEST_F(Nats, GoesOnAfterTheServerWasKilled) {
  DestinationRun run(readNatsDestination, keys("batch_events = 64\nlinger = '1 ms'"), feed_);
  addEvents(feed_, 0, 1);
  ASSERT_TRUE(feed_.waitDelivered(1));
  int sent = 1;
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 20; ++i, sent += 100) {
      addEvents(feed_, sent, 100);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (i == 10) server_.kill();
    }
    server_.start();
    ASSERT_TRUE(feed_.waitDelivered(static_cast<std::uint64_t>(sent)));
  }
  EXPECT_EQ("", faults(sent));
  EXPECT_EQ(3U, feed_.counted("reconnects"));
}

TEST_F(Nats, PublishesAgainWhatIsNotAcknowledged) {
  DestinationRun run(readNatsDestination, keys("ack_wait = '200 ms'"), feed_);
  addEvents(feed_, 0, 1);
  ASSERT_TRUE(feed_.waitDelivered(1));
  server_.freeze(true);
  addEvents(feed_, 1, 300);
  ASSERT_TRUE(waitCounted("republished"));
  EXPECT_EQ(1U, feed_.delivered());
  server_.freeze(false);
  ASSERT_TRUE(feed_.waitDelivered(301));
  EXPECT_EQ("", faults(301));  // the server has known the repetitions
}

TEST_F(Nats, SendsAgainWhatTheServerHasLost) {
  DestinationRun run(readNatsDestination, keys("batch_events = 64"), feed_);
  addEvents(feed_, 0, 200);
  ASSERT_TRUE(feed_.waitDelivered(200));
  server_.kill();  // its files are as after a loss of power: those of some time ago
  fs::copy(server_.store(), server_.store() + ".old", fs::copy_options::recursive);
  server_.start();
  addEvents(feed_, 200, 500);
  ASSERT_TRUE(feed_.waitDelivered(700));
  server_.kill();
  fs::remove_all(server_.store());
  fs::rename(server_.store() + ".old", server_.store());
  server_.start();
  ASSERT_TRUE(waitCounted("replays"));
  ASSERT_TRUE(feed_.waitDelivered(700));
  EXPECT_EQ("", faults(700));
}

TEST_F(Nats, WhatIsTooLargeDoesNotHoldUpTheRest) {
  addEvents(feed_, 0, 1);
  Record record;
  record.className = "Test";
  const std::string large(2 << 20, 'x');  // the server takes 1 MiB
  record.values = {{"n", large}};
  std::string bytes;
  encode(record, bytes);
  feed_.add(bytes, RecordForm::kEvent);
  addEvents(feed_, 1, 1);
  const std::string dead = directory_.path().string() + "/dead";
  DestinationRun run(readNatsDestination, keys("dead_letters = '" + dead + "'"), feed_);
  ASSERT_TRUE(feed_.waitDelivered(3));
  EXPECT_EQ("", faults(2));
  EXPECT_EQ(1U, feed_.counted("refused"));
  EXPECT_LT(large.size(), fs::file_size(dead));
}

TEST_F(Nats, TellsThatNobodyTakesTheSubject) {
  DestinationRun run(readNatsDestination, "servers = '" + server_.url() + "'\nsubject = 'nobody'", feed_);
  addEvents(feed_, 0, 1);
  for (int i = 0; i < 500 && feed_.reports().empty(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_FALSE(feed_.reports().empty());
  EXPECT_EQ("the server does not take what is published to nobody: no stream takes the subject; trying again",
            feed_.reports().front());
  EXPECT_EQ(0U, feed_.delivered());
}

TEST(NatsWrongPassword, IsToldAndTriedAgain) {
  const ScratchDirectory directory;
  const NatsServer server(directory.path().string() + "/one", {"--user", "u", "--pass", "right"});
  MemoryFeed feed;
  addEvents(feed, 0, 1);
  const std::string password = directory.path().string() + "/password";
  writeFile(password, "wrong\n");
  DestinationRun run(
      readNatsDestination,
      "servers = '" + server.url() + "'\nsubject = 'q'\nstream = 'Q'\nuser = 'u'\npassword_file = '" + password + "'",
      feed);
  for (int i = 0; i < 500 && feed.reports().empty(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_FALSE(feed.reports().empty());
  EXPECT_EQ("Authentication Violation: Authorization Violation; trying again", feed.reports().front());
  writeFile(password, "right\n");
  EXPECT_TRUE(feed.waitDelivered(1));
}

}  // namespace
}  // namespace quillon::delivery
