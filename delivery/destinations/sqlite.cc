// The destination `sqlite`: one row an event in a database file. A transaction stores events together with the number
// below which all are stored, so that an event that comes again, after a crash at any instant, is not stored again.

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "delivery/Record.h"
#include "delivery/destinations/Destination.h"
#include "delivery/record_json.h"
#include "foundation/checkpoint.h"

namespace quillon::delivery {
namespace {

/// Events of a transaction, when there are so many: each waits for the disk.
constexpr std::size_t kTransactionEvents = 20'000;
constexpr std::chrono::seconds kRetry(1);
constexpr int kBusyMilliseconds = 1000;
constexpr int kVersion = 1;

/// `time` is when it was stored, in milliseconds since 1970, as events have no time of their own that all understand.
constexpr const char* kTables =
    "CREATE TABLE IF NOT EXISTS events(id INTEGER PRIMARY KEY, time INTEGER NOT NULL, class TEXT NOT NULL,"
    " source TEXT NOT NULL, position TEXT NOT NULL, event TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS events_by_class ON events(class, time);"
    "CREATE INDEX IF NOT EXISTS events_by_time ON events(time);"
    "CREATE TABLE IF NOT EXISTS stored(client TEXT PRIMARY KEY, next INTEGER NOT NULL) WITHOUT ROWID;"
    "PRAGMA user_version = 1;";

struct CloseStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Statement = std::unique_ptr<sqlite3_stmt, CloseStatement>;

std::int64_t millisecondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

/// The database, open. Every function is false when it fails; error() says why then.
class Database {
 public:
  bool open(const std::string& path) {
    sqlite3* made = nullptr;
    const int result = sqlite3_open(path.c_str(), &made);
    database_.reset(made);
    if (result != SQLITE_OK) return false;
    sqlite3_busy_timeout(made, kBusyMilliseconds);
    sqlite3_extended_result_codes(made, 1);
    // With a log of its own, who reads holds up nobody; and a transaction that is done is on the disk.
    if (!run("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL") || !checkVersion()) return false;
    return run(kTables) &&
           prepare("INSERT INTO events(time, class, source, position, event) VALUES(?,?,?,?,?)", insert_) &&
           prepare("INSERT INTO stored VALUES(?,?) ON CONFLICT(client) DO UPDATE SET next = excluded.next", advance_);
  }

  bool readNext(const std::string& client, std::uint64_t& next) {
    Statement query;
    if (!prepare("SELECT next FROM stored WHERE client = ?", query)) return false;
    bind(query, 1, client);
    const int result = sqlite3_step(query.get());
    next = result == SQLITE_ROW ? static_cast<std::uint64_t>(sqlite3_column_int64(query.get(), 0)) : 0;
    return result == SQLITE_ROW || result == SQLITE_DONE;
  }

  bool run(const char* statements) {
    return sqlite3_exec(database_.get(), statements, nullptr, nullptr, nullptr) == SQLITE_OK;
  }

  bool insert(std::int64_t time, const Record& record, const std::string& json) {
    sqlite3_bind_int64(insert_.get(), 1, time);
    bind(insert_, 2, record.className);
    bind(insert_, 3, record.source);
    bind(insert_, 4, record.position);
    bind(insert_, 5, json);
    return step(insert_);
  }

  bool advance(const std::string& client, std::uint64_t next) {
    bind(advance_, 1, client);
    sqlite3_bind_int64(advance_.get(), 2, static_cast<std::int64_t>(next));
    return step(advance_);
  }

  std::string error() const {
    if (!error_.empty()) return error_;
    return database_ ? sqlite3_errmsg(database_.get()) : "out of memory";
  }

 private:
  bool checkVersion() {
    Statement query;
    if (!prepare("PRAGMA user_version", query) || sqlite3_step(query.get()) != SQLITE_ROW) return false;
    const int version = sqlite3_column_int(query.get(), 0);
    if (version != 0 && version != kVersion) error_ = "it is somebody else's, of version " + std::to_string(version);
    return error_.empty();
  }

  bool prepare(const char* text, Statement& statement) {
    sqlite3_stmt* made = nullptr;
    const int result = sqlite3_prepare_v2(database_.get(), text, -1, &made, nullptr);
    statement.reset(made);
    return result == SQLITE_OK;
  }

  /// The text must outlast the next step().
  static void bind(const Statement& statement, int place, std::string_view text) {
    // A null pointer would be NULL.
    sqlite3_bind_text64(statement.get(), place, text.empty() ? "" : text.data(), text.size(), SQLITE_STATIC,
                        SQLITE_UTF8);
  }

  static bool step(const Statement& statement) {
    const int result = sqlite3_step(statement.get());
    sqlite3_reset(statement.get());
    return result == SQLITE_DONE;
  }

  std::unique_ptr<sqlite3, CloseDatabase> database_;
  Statement insert_, advance_;
  std::string error_;
};

class SqliteDestination : public Destination {
 public:
  explicit SqliteDestination(std::string path) : path_(std::move(path)) {}

  bool takesAllForms() const override { return true; }

  void run(Feed& feed) const override {
    while (!feed.stopping()) {
      Database database;
      std::uint64_t next = 0;
      const bool isOpen = database.open(path_) && database.readNext(feed.clientId(), next);
      feed.connected(isOpen);
      if (isOpen && fill(feed, database, next)) return;
      feed.connected(false);
      feed.report(Feed::Level::kError, path_ + ": " + database.error());
      feed.again();
      const Feed::Clock::time_point until = Feed::Clock::now() + kRetry;
      while (!feed.stopping() && Feed::Clock::now() < until) feed.wait(until);
    }
  }

 private:
  /// True when it is time to return, false when the database has failed.
  static bool fill(Feed& feed, Database& database, std::uint64_t next) {
    Feed::Events events;
    Record record;
    std::string json;
    while (!feed.stopping()) {
      if (!feed.read(events)) {
        if (feed.draining()) return true;
        feed.wait(Feed::Clock::time_point::max());
        continue;
      }
      if (!database.run("BEGIN IMMEDIATE")) return false;
      const std::int64_t time = millisecondsNow();
      std::size_t count = 0;
      do {
        for (const Event& event : events.events) {
          if (event.number < next) continue;
          if (!decode(event.bytes, record)) {
            feed.report(Feed::Level::kError, "what cannot be read as an event is left out");
            feed.count("unreadable");
            continue;
          }
          json.clear();
          appendJson(json, record);
          if (!database.insert(time, record, json)) return false;
        }
        next = std::max(next, events.end);
        count += events.events.size();
      } while (count < kTransactionEvents && feed.read(events));
      checkpoint("rows-inserted");
      if (!database.advance(feed.clientId(), next) || !database.run("COMMIT")) return false;
      checkpoint("rows-committed");
      feed.delivered(next);
    }
    return true;
  }

  const std::string path_;
};

}  // namespace

std::unique_ptr<Destination> readSqliteDestination(TomlTable& table, const std::string& directory) {
  std::string path;
  table.require("path");
  table.readPath("path", directory, path);
  return std::make_unique<SqliteDestination>(std::move(path));
}

}  // namespace quillon::delivery
