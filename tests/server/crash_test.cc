// The event server or its client is killed at every place where the order of two steps matters: each record is in the
// server's cache afterwards, and once.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <map>
#include <memory>
#include <string>
#include <thread>

#include "cds/CdsId.h"
#include "delivery/client/Client.h"
#include "tests/server/processes.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

constexpr int kRecords = 400;
constexpr const char* kDefinitions =
    "CLASS C\n  SELECT\n    1: ATTR(=,\"_event_id\"), VALUE(=,\"0\");\n    2: ATTR(=,\"n\");\n  MAP\n    n = "
    "$V2;\nEND\n";

const char* const kAtServer[] = {"frame-taken",  "batch-sent",  "batch-begun",  "batch-written",
                                 "batch-synced", "batch-taken", "acknowledging"};
const char* const kAtClient[] = {"client-sent", "client-told", "client-kept", "batch-taken"};
const char* const kParking[] = {"parking", "parked", "batch-sent", "batch-written", "batch-taken"};

class ServerCrash : public testing::TestWithParam<const char*> {
 protected:
  ServerCrash() {
    fs::create_directory(path("cds"));
    writeFile(path("server.toml"),
              "[server]\npatience = \"5 s\"\n[listen.l]\ntype = \"unix\"\npath = \"s\"\n"
              "[cds]\npath = \"cds\"\nparked = \"parked\"\n"
              "[delivery]\ncache = \"cache\"\nreplay_window = \"1 h\"\n"
              "[destination.out]\ntype = \"file\"\npath = \"out\"\n");
  }

  std::string path(const std::string& name) const { return directory_.path() / name; }

  /// A client that has `kRecords` and ends when the server has them.
  std::unique_ptr<Process> client(std::string (*bytes)(int), const std::string& killAt = "", int killAfter = 1) const {
    return std::make_unique<Process>([this, bytes] { return send(bytes); }, killAt, killAfter);
  }
  std::unique_ptr<Process> server(const std::string& killAt = "", int killAfter = 1) const {
    return std::make_unique<Process>([this] { return runServer(path("server.toml")); }, killAt, killAfter);
  }

  int send(std::string (*bytes)(int)) const {
    const toml::table document = toml::parse(
        "[delivery]\ncache = \"client\"\n[destination.s]\ntype = \"socket\"\npath = \"s\"\n"
        "longest_wait = \"20 ms\"\n");
    std::vector<ConfigFault> faults;
    TomlTable table(document, "", faults);
    const auto config = delivery::readDelivery(table, directory_.path());
    std::string error;
    const auto client = delivery::Client::start(
        *config, [](delivery::Feed::Level, std::string_view) {}, error);
    if (!client) return 3;
    const auto position = client->positions().find("n");
    int next = position == client->positions().end() ? 0 : std::stoi(position->second);
    delivery::Client::Ticket ticket = 0;
    const auto until = delivery::Client::Clock::now() + std::chrono::seconds(25);
    while (next < kRecords) {
      delivery::Batch batch;
      for (const int end = next + 10; next < end; ++next) {
        const std::string event = bytes(next);
        batch.add(event, static_cast<std::uint32_t>(event[1]));
      }
      batch.setPosition("n", std::to_string(next));
      if (client->send(batch, ticket) != delivery::Client::Result::kTaken) return 4;
      if (!client->waitSafe(ticket, until)) return 5;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));  // so that not all goes at once
    }
    return client->stop(until) == delivery::Client::Rest::kNone ? 0 : 6;
  }

  void expectEachOnce() const {
    std::map<std::string, int> times;
    for (const std::string& record : recordsIn(path("cache"))) ++times[record];
    EXPECT_EQ(kRecords, times.size()) << readFile(path("server.toml.log"));
    for (const auto& [record, count] : times) {
      EXPECT_EQ(1, count) << record;
      EXPECT_NE(std::string::npos, record.find("\"slots\"")) << record;
    }
  }

  const ScratchDirectory directory_;
};

class KilledServer : public ServerCrash {};

TEST_P(KilledServer, HasEverythingOnce) {
  const auto sending = client(eventBytes);
  int killed = 0;
  for (int round = 0; sending->runs(); ++round) {
    const auto serving = server(GetParam(), 1 + round);
    EXPECT_TRUE(waitUntil([&] { return !serving->runs() || !sending->runs(); }));
    if (!serving->runs()) ++killed;
    if (!sending->runs()) break;
  }
  EXPECT_EQ(0, sending->wait());
  EXPECT_GE(killed, 2);
  expectEachOnce();
}

INSTANTIATE_TEST_SUITE_P(Checkpoints, KilledServer, testing::ValuesIn(kAtServer));

class KilledClient : public ServerCrash {};

TEST_P(KilledClient, RepeatsNothing) {
  const auto serving = server();
  int status = 0;
  int killed = -1;
  for (int round = 0; round == 0 || WIFSIGNALED(status); ++round) {
    status = client(eventBytes, GetParam(), 1 + round)->wait();
    ++killed;
  }
  EXPECT_EQ(0, status);
  EXPECT_GE(killed, 2);
  serving->signal(SIGTERM);
  EXPECT_EQ(0, serving->wait());
  expectEachOnce();
}

INSTANTIATE_TEST_SUITE_P(Checkpoints, KilledClient, testing::ValuesIn(kAtClient));

class KilledWhileParking : public ServerCrash {};

// The class definitions come when a part of the records is parked.
TEST_P(KilledWhileParking, MakesEachEventOnce) {
  const auto sending = client([](int number) { return attributeBytes(cdsId(kDefinitions).bytes(), number); });
  int killed = 0;
  for (int round = 0; recordsIn(path("cache")).size() < kRecords; ++round) {
    ASSERT_LT(round, 100) << readFile(path("server.toml.log"));
    if (round == 4) writeFile(path("cds/a.cds"), kDefinitions);
    const auto serving = server(GetParam(), 1 + round);
    const auto isDone = [&] { return !serving->runs() || recordsIn(path("cache")).size() >= kRecords; };
    for (int i = 0; i < 40 && !isDone(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (!serving->runs()) ++killed;
  }
  const auto serving = server();
  EXPECT_EQ(0, sending->wait());
  EXPECT_GE(killed, 1);
  expectEachOnce();
}

INSTANTIATE_TEST_SUITE_P(Checkpoints, KilledWhileParking, testing::ValuesIn(kParking));

}  // namespace
}  // namespace quillon
