#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <thread>

#include "delivery/Record.h"
#include "delivery/destinations/Destination.h"
#include "tests/delivery/support/memory_feed.h"
#include "tests/support/scratch.h"

namespace quillon::delivery {
namespace {

class SqliteDestination : public testing::Test {
 protected:
  /// Delivers events of these classes from one cache, from its first number on.
  void deliver(const std::string& classes, const std::string& client = "web1-7") {
    const toml::table document = toml::parse("path = \"events.db\"");
    std::vector<ConfigFault> faults;
    TomlTable table(document, "", faults);
    const auto destination = readSqliteDestination(table, directory_.path());
    MemoryFeed feed(client);
    feed.setPerRead(3);
    for (const char name : classes) {
      Record record;
      const std::string className(1, name);
      record.className = className;
      record.source = "s";
      record.values = {{"user", "ann \"a\""}};
      std::string bytes;
      encode(record, bytes);
      feed.add(name == '-' ? "no record" : bytes, RecordForm::kEvent);
    }
    feed.drain();
    std::thread thread([&] { destination->run(feed); });
    EXPECT_TRUE(feed.waitDelivered(classes.size())) << testing::PrintToString(feed.reports());
    thread.join();
    reports_ = feed.reports();
  }

  std::string query(const char* text) const {
    sqlite3* database = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_open((directory_.path() / "events.db").c_str(), &database));
    std::string found;
    const auto take = [](void* to, int count, char** values, char**) {
      for (int i = 0; i < count; ++i) *static_cast<std::string*>(to) += std::string(values[i]) + ' ';
      return 0;
    };
    char* error = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, text, take, &found, &error)) << error;
    sqlite3_close(database);
    return found;
  }

  const ScratchDirectory directory_;
  std::vector<std::string> reports_;
};

TEST_F(SqliteDestination, StoresEachNumberOnce) {
  deliver("abca");
  EXPECT_EQ("a b c a ", query("SELECT class FROM events ORDER BY id"));
  EXPECT_EQ("ann \"a\" ", query("SELECT json_extract(event, '$.slots.user') FROM events WHERE class = 'b'"));
  EXPECT_EQ("1 ", query("SELECT count(*) = 4 FROM events WHERE abs(time / 1000 - strftime('%s')) < 600"));
  deliver("abcaef");  // the first four come again
  EXPECT_EQ("a b c a e f ", query("SELECT class FROM events ORDER BY id"));
  deliver("xy", "web2-1");  // another cache has its own numbers
  EXPECT_EQ("8 ", query("SELECT count(*) FROM events"));
  deliver("abcaef-g");
  EXPECT_EQ("9 ", query("SELECT count(*) FROM events"));
  EXPECT_NE(std::string::npos, query("EXPLAIN QUERY PLAN SELECT * FROM events WHERE class = 'a' AND time > 5")
                                   .find("USING INDEX events_by_class (class=? AND time>?)"));
}

TEST_F(SqliteDestination, WaitsForADatabaseThatItCanUse) {
  query("PRAGMA user_version = 5");
  std::thread repair([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    query("PRAGMA user_version = 0");
  });
  deliver("ab");
  repair.join();
  ASSERT_FALSE(reports_.empty());
  EXPECT_NE(std::string::npos, reports_[0].find("events.db: it is somebody else's, of version 5"));
  EXPECT_EQ("2 ", query("SELECT count(*) FROM events"));
}

}  // namespace
}  // namespace quillon::delivery
