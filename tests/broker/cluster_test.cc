// Delivery beyond one machine as it is meant to be run: three servers, a shipper, and matchers that share its messages,
// while servers and matchers are killed and a disk forgets.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "tests/adapter/adapter_process.h"
#include "tests/delivery/support/nats_server.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;
using delivery::NatsServer;
using std::chrono::milliseconds;

class Cluster : public testing::Test {
 protected:
  static constexpr int kMatchers = 2;

  void SetUp() override {
    std::vector<int> ports(3);
    std::string routes;
    for (int& port : ports) {
      port = delivery::freePort();
      routes += (routes.empty() ? "" : ",") + address(port);
    }
    std::string servers;
    for (std::size_t n = 0; n < ports.size(); ++n) {
      const std::string name = "node" + std::to_string(n);
      nodes_.push_back(std::make_unique<NatsServer>(
          path(name),
          std::vector<std::string>{"--cluster_name", "q", "--cluster", address(ports[n]), "--routes", routes}, name));
      servers += (servers.empty() ? "'" : ", '") + nodes_.back()->url() + "'";
    }
    writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
    writeFile(path("log"), "");
    writeFile(path("shipper.toml"),
              "[delivery]\ncache = 'shipper.cache'\nform = 'raw'\nclient = 'shipper'\n"
              "[destination.broker]\ntype = 'nats'\nservers = [" +
                  servers +
                  "]\nsubject = 'raw'\nstream = 'RAW'\n"
                  "replicas = 3\nack_wait = '1 s'\nbatch_events = 64\n"
                  "[source.log]\ntype = 'file'\npath = 'log'\npoll_interval = '20 ms'\n");
    for (int n = 0; n < kMatchers; ++n) {
      const std::string name = "matcher" + std::to_string(n);
      writeFile(path(name + ".toml"), "[delivery]\ncache = '" + name +
                                          ".cache'\n[destination.d]\ntype = 'file'\npath = '" + name +
                                          ".events'\n[source.s]\ntype = 'nats'\nformats = 'formats'\nservers = [" +
                                          servers + "]\nstream = 'RAW'\nack_wait = '2 s'\n");
      matchers_.push_back(nullptr);
    }
  }

  static std::string address(int port) { return "nats://127.0.0.1:" + std::to_string(port); }
  std::string path(const std::string& name) const { return (directory_.path() / name).string(); }
  std::unique_ptr<AdapterProcess> start(const std::string& name) const {
    return std::make_unique<AdapterProcess>(
        AdapterProcess::Options{.config = path(name + ".toml"), .log = path(name + ".log")});
  }
  void startMatcher(std::size_t n) { matchers_[n] = start("matcher" + std::to_string(n)); }

  void append(int count) {
    std::ofstream log(path("log"), std::ios::app);
    for (int i = 0; i < count; ++i) log << "line " << written_++ << '\n';
  }

  /// Lines that have an event, and the ids of their messages.
  struct Events {
    std::set<int> lines;
    std::map<std::string, int> ids;  ///< And the line of each.
    int repeated = 0;                ///< Events whose id was there before, of the same line.
    int confused = 0;                ///< Of another one.
  };
  Events events() const {
    Events found;
    for (int n = 0; n < kMatchers; ++n) {
      std::ifstream file(path("matcher" + std::to_string(n) + ".events"));
      for (std::string line; std::getline(file, line);) {
        const auto valueOf = [&line](const std::string& name) {
          const std::size_t at = line.find("\"" + name + "\":\"") + name.size() + 4;
          return line.substr(at, line.find('"', at) - at);
        };
        if (!line.ends_with('}')) continue;  // the last one, half written when its writer was killed
        const int number = std::stoi(valueOf("n"));
        const auto [id, isNew] = found.ids.emplace(valueOf("source") + " " + valueOf("position"), number);
        if (!isNew) ++(id->second == number ? found.repeated : found.confused);
        found.lines.insert(number);
      }
    }
    return found;
  }
  bool waitAll() const {
    for (int i = 0; i < 60; ++i) {
      if (events().lines.size() == static_cast<std::size_t>(written_)) return true;
      std::this_thread::sleep_for(milliseconds(500));
    }
    return false;
  }
  /// What went wrong, for a failure.
  std::string told() const { return readFile(path("shipper.log")) + readFile(path("matcher0.log")); }

  const ScratchDirectory directory_;
  std::vector<std::unique_ptr<NatsServer>> nodes_;
  std::unique_ptr<AdapterProcess> shipper_;
  std::vector<std::unique_ptr<AdapterProcess>> matchers_;
  int written_ = 0;
};

TEST_F(Cluster, LosesNothingWhateverIsKilled) {
  shipper_ = start("shipper");
  for (std::size_t n = 0; n < matchers_.size(); ++n) startMatcher(n);
  append(1000);
  ASSERT_TRUE(waitAll()) << told();
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::minstd_rand random(seed);
  const auto below = [&random](int most) { return std::uniform_int_distribution<>(0, most - 1)(random); };
  for (std::size_t round = 0; round < 10; ++round) {
    for (int i = 0; i < 5; ++i) {
      append(500);
      std::this_thread::sleep_for(milliseconds(below(100)));
    }
    if (round % 2 == 0) {
      const std::size_t n = round / 2 % matchers_.size();
      matchers_[n]->signal(SIGKILL);
      matchers_[n]->wait();
      startMatcher(n);
    } else {
      NatsServer& node = *nodes_[round / 2 % nodes_.size()];  // each in turn, so the leader too
      node.kill();
      append(500);
      std::this_thread::sleep_for(milliseconds(below(1000)));
      node.start();
    }
  }
  ASSERT_TRUE(waitAll()) << written_ - static_cast<int>(events().lines.size()) << " are missing\n" << told();
  EXPECT_EQ(static_cast<std::size_t>(written_), events().ids.size());
  EXPECT_EQ(0, events().confused);
}

TEST_F(Cluster, SurvivesADiskThatForgets) {
  shipper_ = start("shipper");
  for (std::size_t n = 0; n < matchers_.size(); ++n) startMatcher(n);
  append(5000);
  ASSERT_TRUE(waitAll()) << told();
  const auto forget = [this](NatsServer& node) {  // what it has had since it was copied
    node.kill();
    fs::remove_all(node.store());
    fs::rename(node.store() + ".old", node.store());
    node.start();
  };
  nodes_[1]->kill();
  fs::copy(nodes_[1]->store(), nodes_[1]->store() + ".old", fs::copy_options::recursive);
  nodes_[1]->start();
  append(5000);
  std::this_thread::sleep_for(milliseconds(500));
  forget(*nodes_[1]);
  append(5000);
  ASSERT_TRUE(waitAll()) << written_ - static_cast<int>(events().lines.size()) << " are missing\n" << told();
  EXPECT_EQ(static_cast<std::size_t>(written_), events().ids.size());
  EXPECT_EQ(0, events().confused);
}

}  // namespace
}  // namespace quillon
