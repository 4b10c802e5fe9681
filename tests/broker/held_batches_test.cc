#include "src/adapters/logfile/broker/HeldBatches.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "delivery/Record.h"
#include "delivery/brokers/record_batch.h"

namespace quillon {
namespace {

/// Of messages "SOURCE:TEXT", whose positions are their texts too.
std::string batchOf(const std::vector<std::pair<std::string, std::string>>& messages) {
  std::string batch;
  for (const auto& [source, text] : messages) {
    delivery::Record record;
    record.form = delivery::RecordForm::kRaw;
    record.source = source;
    record.position = "at " + text;
    record.text = text;
    std::string position = "at " + text;
    record.position = position;
    std::string bytes;
    delivery::encode(record, bytes);
    delivery::appendRecord(batch, bytes);
  }
  return batch;
}

/// All that it gives, "a:1@1.1 " for the first message of the first stream; then the batches that are done.
std::string drain(HeldBatches& held) {
  std::string text;
  Message message;
  while (held.next(message)) {
    const std::optional<Origin> origin = held.origin(message.position);
    text += std::string(message.path) + ":" + std::string(message.text) + "@" + std::to_string(message.position.file) +
            "." + std::to_string(message.position.offset) + " ";
    EXPECT_TRUE(origin && origin->source == message.path);
    EXPECT_TRUE(origin->position == "at " + std::string(message.text) || message.path == "plain");
  }
  return text;
}

std::string done(HeldBatches& held) {
  std::string text;
  for (const std::uint64_t id : held.takeDone()) text += std::to_string(id) + " ";
  return text;
}

TEST(HeldBatches, AreDoneWhenTheLastOfTheirMessagesIsStored) {
  HeldBatches held;
  EXPECT_TRUE(held.add(7, batchOf({{"a", "1"}, {"b", "2"}, {"a", "3"}}), "", 0));
  EXPECT_TRUE(held.add(8, batchOf({{"b", "4"}}), "", 0));
  EXPECT_EQ("a:1@1.1 b:2@2.1 a:3@1.2 b:4@2.2 ", drain(held));
  held.stored({1, 2, 0});  // all of a: b's are missing in both
  EXPECT_EQ("", done(held));
  EXPECT_FALSE(held.origin({1, 2, 0}));
  held.stored({2, 1, 0});
  EXPECT_EQ("7 ", done(held));
  EXPECT_TRUE(held.add(9, batchOf({{"a", "5"}}), "", 0));
  EXPECT_EQ("a:5@1.3 ", drain(held));
  held.stored({1, 2, 0});  // again; says nothing new
  EXPECT_EQ("", done(held));
  held.stored({2, 2, 0});
  held.stored({1, 3, 0});
  EXPECT_EQ("8 9 ", done(held));
  EXPECT_EQ(0U, held.bytes());
  held.stored({3, 1, 0});  // of nobody
  EXPECT_FALSE(held.origin({0, 1, 0}));
}

TEST(HeldBatches, TakeWhatOthersPublishLineByLine) {
  HeldBatches held;
  EXPECT_TRUE(held.add(1, "x\ny\n", "plain", 12));
  Message message;
  ASSERT_TRUE(held.next(message));
  EXPECT_EQ("12:1", held.origin(message.position)->position);
  EXPECT_EQ("plain:y@1.2 ", drain(held));
  EXPECT_TRUE(held.add(2, "", "plain", 13));
  EXPECT_EQ("2 ", done(held));  // nothing in it, nothing to wait for
}

TEST(HeldBatches, DamageCostsWhatStandsBehind) {
  HeldBatches held;
  const std::string whole = batchOf({{"a", "1"}, {"a", "2"}});
  EXPECT_FALSE(held.add(1, whole.substr(0, whole.size() - 1), "", 0));
  EXPECT_EQ("a:1@1.1 ", drain(held));
  EXPECT_FALSE(held.add(2, std::string(delivery::kRecordBatchMagic) + "\1\0\0", "", 0));
  held.stored({1, 1, 0});
  EXPECT_EQ("2 1 ", done(held));
}

}  // namespace
}  // namespace quillon
