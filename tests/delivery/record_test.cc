#include "delivery/Record.h"

#include <gtest/gtest.h>

#include <string>

#include "delivery/record_json.h"

namespace quillon::delivery {
namespace {

using namespace std::string_literals;

Record sample(RecordForm form) {
  Record record;
  record.form = form;
  record.eventId = 3;
  record.set[15] = 0xAB;
  record.source = "web1/auth";
  record.position = "7:4711";
  if (form == RecordForm::kRaw) {
    record.text = "a\tline \xFF";
    return record;
  }
  record.className = "Sshd_Login";
  record.values = {{"user", "ann"}, {"user", ""}, {"user#2", "b\"c"}};
  return record;
}

TEST(Record, ComesBackFromItsBytes) {
  Record read = sample(RecordForm::kEvent);  // what stood there before has no part in it
  for (const RecordForm form : {RecordForm::kEvent, RecordForm::kAttributes, RecordForm::kRaw}) {
    std::string bytes;
    encode(sample(form), bytes);
    ASSERT_TRUE(decode(bytes, read));
    EXPECT_EQ(sample(form), read);
    for (std::size_t size = 0; size < bytes.size(); ++size) EXPECT_FALSE(decode(bytes.substr(0, size), read)) << size;
    EXPECT_FALSE(decode(bytes + "x", read));
  }
}

TEST(Record, RefusesOtherVersionsFormsAndSizes) {
  std::string bytes;
  encode(sample(RecordForm::kEvent), bytes);
  Record read;
  for (const auto& [at, byte] : {std::pair(0, '\2'), std::pair(1, '\0'), std::pair(1, '\4'), std::pair(25, '\x7F')}) {
    std::string other = bytes;
    other[static_cast<std::size_t>(at)] = byte;
    EXPECT_FALSE(decode(other, read)) << at;
  }
}

TEST(Record, IsAnObject) {
  std::string json;
  appendJson(json, sample(RecordForm::kEvent));
  EXPECT_EQ(R"({"class":"Sshd_Login","event_id":3,"slots":{"user":"ann","user#2":"","user#2#2":"b\"c"},)"
            R"("source":"web1/auth","position":"7:4711","set":"000000000000000000000000000000ab"})",
            json);
  json.clear();
  Record bare = sample(RecordForm::kAttributes);
  bare.set = {};
  bare.source = "";
  bare.values.resize(1);
  appendJson(json, bare);
  EXPECT_EQ(R"({"class":"Sshd_Login","event_id":3,"attributes":{"user":"ann"},"position":"7:4711"})", json);
  json.clear();
  appendJson(json, sample(RecordForm::kRaw));
  EXPECT_EQ(
      "{\"text\":\"a\\tline \xEF\xBF\xBD\",\"source\":\"web1/auth\",\"position\":\"7:4711\","
      R"("set":"000000000000000000000000000000ab"})",
      json);
}

}  // namespace
}  // namespace quillon::delivery
