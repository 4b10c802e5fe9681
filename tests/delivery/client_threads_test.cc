// The client as a whole, with destinations that a test steers. Runs under the thread sanitizer too.

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "delivery/client/Client.h"
#include "delivery/client/RateLimit.h"
#include "delivery/client/TicketIndex.h"
#include "tests/support/scratch.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

Client::Clock::time_point in(milliseconds time) { return Client::Clock::now() + time; }

/// Notes what arrives, as the values of the slot "n".
class Notes : public Destination {
 public:
  void run(Feed& feed) const override {
    Feed::Events events;
    Record record;
    feed.connected(true);
    while (!feed.stopping()) {
      if (isHeld) {
        feed.wait(Feed::Clock::now() + milliseconds(2));
      } else if (feed.read(events)) {
        {
          const std::scoped_lock hold(mutex_);
          for (const Event& event : events.events) {
            if (!decode(event.bytes, record)) return;
            for (const NamedValue& value : record.values) text_ += std::string(value.value) + " ";
          }
        }
        if (repeats > 0 && --repeats >= 0) {
          feed.again();
        } else {
          feed.delivered(events.end);
        }
      } else if (feed.draining()) {
        return;
      } else {
        feed.wait(Feed::Clock::time_point::max());
      }
    }
  }
  std::string text() const {
    const std::scoped_lock hold(mutex_);
    return text_;
  }

  std::atomic<bool> isHeld = false;      ///< Reads nothing, as one that is down.
  mutable std::atomic<int> repeats = 0;  ///< So often it forgets what it has read.

 private:
  mutable std::mutex mutex_;
  mutable std::string text_;
};

class ClientThreads : public testing::Test {
 protected:
  ClientThreads() {
    config_.cache.directory = directory_.path() / "cache";
    config_.cache.sync = Sync::kOff;
    config_.client = "test";
  }

  Notes& destination(const std::string& name, const std::string& filters = "") {
    const auto made = std::make_shared<Notes>();
    const toml::table document = toml::parse(filters);
    std::vector<ConfigFault> faults;
    TomlTable table(document, "", faults);
    config_.destinations.push_back({name, made, readFilter(table, RecordForm::kEvent)});
    return *made;
  }

  std::unique_ptr<Client> start() {
    std::string error;
    auto client = Client::start(
        config_, [this](Feed::Level, std::string_view text) { said_ += std::string(text) + "\n"; }, error);
    EXPECT_TRUE(client) << error;
    return client;
  }

  static void add(Batch& batch, int n, const std::string& className = "A") {
    const std::string number = std::to_string(n);
    Record record;
    record.className = className;
    record.values = {{"n", number}};
    std::string bytes;
    encode(record, bytes);
    batch.add(bytes, static_cast<std::uint32_t>(record.form));
  }

  /// Waits for room as a source would.
  static Client::Ticket send(Client& client, Batch& batch) {
    Client::Ticket ticket = 0;
    while (client.send(batch, ticket) == Client::Result::kFull) {
      pollfd room{client.descriptor(), POLLIN, 0};
      EXPECT_EQ(1, poll(&room, 1, 20'000));
      client.takeProgress();
    }
    return ticket;
  }

  static std::string numbers(int from, int to) {
    std::string text;
    for (int n = from; n < to; ++n) text += std::to_string(n) + " ";
    return text;
  }

  const ScratchDirectory directory_{inMemory()};
  DeliveryConfig config_;
  std::string said_;
};

TEST_F(ClientThreads, EveryDestinationGetsEverythingThroughASmallBuffer) {
  config_.bufferBytes = 4096;
  const Notes& one = destination("one");
  Notes& two = destination("two");
  two.repeats = 3;
  const auto client = start();
  Client::Ticket last = 0;
  Batch batch;
  for (int n = 0; n < 2000;) {
    for (int i = 0; i < 7 && n < 2000; ++i) add(batch, n++);
    batch.setPosition("s", std::to_string(n));
    const Client::Ticket ticket = send(*client, batch);
    EXPECT_LT(last, ticket);
    EXPECT_TRUE(batch.empty());
    last = ticket;
  }
  EXPECT_TRUE(client->waitDelivered(last, in(seconds(20))));
  EXPECT_TRUE(client->waitSafe(last, in(seconds(20))));
  EXPECT_EQ(last, client->safe());
  EXPECT_EQ(numbers(0, 2000), one.text());
  EXPECT_TRUE(two.text().ends_with(" 1999 "));
  EXPECT_GT(two.text().size(), one.text().size());
  EXPECT_EQ(Client::Rest::kNone, client->stop(in(seconds(20))));
  const Client::Figures figures = client->figures();
  EXPECT_EQ(2000U, figures.taken);
  EXPECT_EQ(2000U, figures.destinations[0].delivered);
  EXPECT_EQ(2000U, figures.destinations[1].delivered);
  EXPECT_EQ(0U, figures.destinations[1].waiting);
  EXPECT_EQ("", said_);
}

TEST_F(ClientThreads, ADeadDestinationHoldsUpNoOther) {
  Notes& dead = destination("dead");
  const Notes& live = destination("live");
  dead.isHeld = true;
  Client::Ticket ticket = 0;
  {
    const auto client = start();
    Batch batch;
    for (int n = 0; n < 100; ++n) {
      add(batch, n);
      ticket = send(*client, batch);
    }
    EXPECT_FALSE(client->waitDelivered(ticket, in(milliseconds(50))));
    while (client->delivered(1) < ticket) std::this_thread::sleep_for(milliseconds(1));
    EXPECT_EQ(0U, client->delivered(0));
    EXPECT_EQ(numbers(0, 100), live.text());
    EXPECT_LE(100U, client->figures().destinations[0].waiting);
    EXPECT_EQ(Client::Rest::kInCache, client->stop(in(milliseconds(50))));
  }
  dead.isHeld = false;
  EXPECT_EQ(Client::Rest::kNone, start()->stop(in(seconds(20))));
  EXPECT_EQ(numbers(0, 100), dead.text());
  EXPECT_EQ(numbers(0, 100), live.text());
}

TEST_F(ClientThreads, AFullCacheHoldsUpTheSenderAndKeepsTheOrder) {
  config_.bufferBytes = 2048;
  config_.cache.maxBytes = 8192;
  config_.cache.replayWindow = milliseconds(0);
  Notes& slow = destination("slow");
  slow.isHeld = true;
  const auto client = start();
  Batch batch;
  Client::Ticket ticket = 0;
  int n = 0;
  while (client->figures().cacheBytes < 6000 || client->figures().buffered < 1500) {
    if (batch.empty()) add(batch, n++);
    static_cast<void>(client->send(batch, ticket));
  }
  slow.isHeld = false;
  if (!batch.empty()) ticket = send(*client, batch);
  EXPECT_TRUE(client->waitDelivered(ticket, in(seconds(20))));
  EXPECT_EQ(numbers(0, n), slow.text());
}

TEST_F(ClientThreads, FiltersAndTheRateLimitCountWhatTheyDrop) {
  config_.rateLimit = 50;
  const Notes& some = destination("some", "[[filter]]\naction='pass'\nclass='A'\n");
  const Notes& others = destination("others", "[[filter]]\naction='drop'\nclass=['A','C']\n");
  const auto client = start();
  Batch batch;
  Record record;
  int wanted = 0;
  for (int n = 0; n < 90; ++n) {
    const std::string className(1, static_cast<char>('A' + n % 3));
    record.className = className;
    if (client->wants(record)) add(batch, wanted++, className);
  }
  const Client::Ticket ticket = send(*client, batch);
  EXPECT_TRUE(client->waitDelivered(ticket, in(seconds(20))));
  const Client::Figures figures = client->figures();
  EXPECT_EQ(30U, figures.filtered);
  EXPECT_NEAR(10, static_cast<double>(figures.rateLimited), 2);  // a slow machine lets one more through
  EXPECT_EQ(figures.taken, 60 - figures.rateLimited);
  EXPECT_EQ(figures.taken, figures.destinations[0].filtered + figures.destinations[0].delivered);
  EXPECT_EQ(figures.destinations[0].filtered, figures.destinations[1].delivered);
  EXPECT_TRUE(some.text().starts_with("0 2 4 ")) << some.text();
  EXPECT_TRUE(others.text().starts_with("1 3 5 ")) << others.text();
  EXPECT_EQ(0U, figures.destinations[0].waiting);  // what did not pass waits for nobody
  EXPECT_EQ(0U, figures.destinations[1].waiting);
}

TEST_F(ClientThreads, GoesOnAfterARestartAndForgetsWhoIsGone) {
  Notes& gone = destination("gone");
  gone.isHeld = true;
  {
    const auto client = start();
    EXPECT_TRUE(client->positions().empty());
    Batch batch;
    add(batch, 1);
    batch.setPosition("s", "behind 1");
    send(*client, batch);
    EXPECT_EQ(Client::Rest::kInCache, client->stop(in(milliseconds(50))));
  }
  config_.destinations.clear();
  const Notes& came = destination("came");
  const std::string identity = readFile(directory_.path() / "cache/identity");
  {
    const auto client = start();
    EXPECT_EQ((Positions{{"s", "behind 1"}}), client->positions());
    EXPECT_EQ(Client::Rest::kNone, client->stop(in(seconds(20))));
    EXPECT_EQ("gone: is no destination any more; what it had not got is not kept for it\n", said_);
    EXPECT_EQ("1 ", came.text());
  }
  EXPECT_EQ(32U, identity.size());
  EXPECT_EQ(identity, readFile(directory_.path() / "cache/identity"));
  // Somebody throws away all but the identity: the numbers begin again, so it must not stay.
  for (const auto& entry : std::filesystem::directory_iterator(directory_.path() / "cache")) {
    if (entry.path().filename() != "identity") std::filesystem::remove(entry.path());
  }
  start();
  EXPECT_NE(identity, readFile(directory_.path() / "cache/identity"));
}

TEST(TicketIndex, AnswersWithoutGrowing) {
  TicketIndex index;
  for (std::uint64_t n = 1; n <= 3 * TicketIndex::kMost; ++n) {
    index.add(n, 10 * n);
    if (n == 100) {
      EXPECT_EQ(42U, index.below(429));
      EXPECT_EQ(43U, index.below(430));
    }
  }
  const std::uint64_t last = 3 * TicketIndex::kMost;
  EXPECT_EQ(last, index.below(10 * last));
  EXPECT_EQ(0U, index.below(0));
  for (std::uint64_t number = 0; number < 10 * last; number += 997) {
    const std::uint64_t told = index.below(number);
    EXPECT_LE(told, number / 10);  // never what is not there
    EXPECT_GE(told + 64, number / 10);
  }
  index.forgetBelow(500'000);
  EXPECT_LE(index.below(500'000), 50'000U);
  EXPECT_GE(index.below(500'000), 49'936U);
}

TEST(RateLimit, AllowsSoManyASecondAndNoMoreAfterAPause) {
  RateLimit limit(10);
  RateLimit::Clock::time_point now(seconds(1000));
  const auto passed = [&](int asked) {
    int count = 0;
    for (int i = 0; i < asked; ++i) count += limit.passes(now) ? 1 : 0;
    return count;
  };
  EXPECT_EQ(10, passed(30));
  now += milliseconds(250);
  EXPECT_EQ(2, passed(30));
  now += seconds(60);
  EXPECT_EQ(10, passed(30));
}

}  // namespace
}  // namespace quillon::delivery
