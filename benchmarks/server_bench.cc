// From a client through a Unix socket to the disk of an event server in a process of its own: the server with a client
// that has its events in memory, and with one that brings them through its own cache.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "delivery/Record.h"
#include "delivery/client/Client.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// As many events of one kind as are wanted, a thousand at a time.
class EndlessFeed : public delivery::Feed {
 public:
  EndlessFeed(std::string bytes, std::uint64_t count) : bytes_(std::move(bytes)), count_(count) {}

  bool read(Events& events) override {
    const std::uint64_t end = std::min(count_, read_ + 1000);
    if (end == read_) return false;
    events.events.clear();
    while (read_ < end) events.events.push_back({read_++, 1, bytes_});
    events.end = end;
    return true;
  }
  void delivered(std::uint64_t end) override { delivered_ = end; }
  std::uint64_t delivered() const override { return delivered_; }
  void again() override { read_ = delivered_; }
  void rewind(std::uint64_t number) override { read_ = delivered_ = number; }
  void wait(Clock::time_point until, std::span<pollfd> others) override {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    poll(others.data(), others.size(), static_cast<int>(std::clamp<std::int64_t>(left, 0, 1000)));
  }
  bool stopping() const override { return false; }
  bool draining() const override { return true; }
  void report(Level /*level*/, std::string_view /*text*/) override {}
  void connected(bool /*isConnected*/) override {}
  void count(std::string_view /*name*/, std::uint64_t /*more*/) override {}
  const std::string& clientId() const override { return id_; }

 private:
  const std::string bytes_;
  const std::string id_ = "bench-memory";
  const std::uint64_t count_;
  std::uint64_t read_ = 0;
  std::uint64_t delivered_ = 0;
};

class Measurement {
 public:
  Measurement(std::string directory, std::size_t bytes, std::uint64_t events)
      : directory_(std::move(directory)), events_(events) {
    const std::string text(bytes > 60 ? bytes - 60 : 1, 'e');
    delivery::Record record;
    record.className = "Bench";
    record.values = {{"text", text}};
    encode(record, event_);
  }

  void run(const char* sync) {
    fs::remove_all(directory_ + "/cache");
    fs::remove_all(directory_ + "/client");
    // Its destination is nowhere: all that is measured is the way into its cache.
    std::ofstream(directory_ + "/server.toml")
        << "[listen.l]\ntype = \"unix\"\npath = \"s\"\n[log]\nlevel = \"error\"\n[delivery]\ncache = \"cache\"\n"
        << "form = \"attributes\"\nmax_bytes = \"100 GiB\"\nsync = \"" << sync << "\"\n"
        << "[destination.none]\ntype = \"socket\"\npath = \"none\"\n";
    const pid_t server = fork();
    if (server == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      execl(QUILLON_SERVER, QUILLON_SERVER, (directory_ + "/server.toml").c_str(), nullptr);
      _exit(EXIT_FAILURE);
    }
    while (!fs::exists(directory_ + "/s")) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    show(sync, "from memory", fromMemory());
    show(sync, "through a cache of its own", throughCache());
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
  }

 private:
  void show(const char* sync, const char* from, double seconds) const {
    std::printf("server with sync %-8s client %-27s %.0f thousand events/s of %zu bytes\n", sync, from,
                static_cast<double>(events_) / seconds / 1e3, event_.size());
  }

  double fromMemory() const {
    std::vector<ConfigFault> faults;
    const toml::table document = toml::parse("path = \"s\"");
    TomlTable table(document, "", faults);
    const auto destination = delivery::readSocketDestination(table, directory_);
    EndlessFeed feed(event_, events_);
    const auto start = Clock::now();
    destination->run(feed);
    return std::chrono::duration<double>(Clock::now() - start).count();
  }

  double throughCache() const {
    std::vector<ConfigFault> faults;
    const toml::table document = toml::parse(
        "[delivery]\ncache = \"client\"\nsync = \"interval\"\nmax_bytes = \"100 GiB\"\n"
        "[destination.s]\ntype = \"socket\"\npath = \"s\"\n");
    TomlTable table(document, "", faults);
    std::string error;
    const auto client = delivery::Client::start(*delivery::readDelivery(table, directory_), nullptr, error);
    if (!client) std::abort();
    const auto start = Clock::now();
    delivery::Batch batch;
    delivery::Client::Ticket ticket = 0;
    for (std::uint64_t done = 0; done < events_; done += 1000) {
      for (int i = 0; i < 1000; ++i) batch.add(event_, 1);
      while (client->send(batch, ticket) != delivery::Client::Result::kTaken) {
        pollfd room{client->descriptor(), POLLIN, 0};
        poll(&room, 1, 100);
        client->takeProgress();
      }
    }
    if (!client->waitDelivered(ticket, Clock::now() + std::chrono::minutes(1))) std::abort();
    return std::chrono::duration<double>(Clock::now() - start).count();
  }

  const std::string directory_;
  const std::uint64_t events_;
  std::string event_;
};

}  // namespace
}  // namespace quillon

int main(int argc, char* argv[]) {
  std::string directory = std::filesystem::temp_directory_path();
  std::size_t bytes = 200;
  std::uint64_t events = 1'000'000;
  CLI::App app("Measures the event server.", "server_bench");
  app.add_option("--directory", directory, "Where the files are made");
  app.add_option("--bytes", bytes, "Of an event (200)");
  app.add_option("--events", events, "Of each measurement (1000000)");
  CLI11_PARSE(app, argc, argv);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::string name = directory + "/quillon-bench-XXXXXX";
  if (!mkdtemp(name.data())) return EXIT_FAILURE;
  for (const char* sync : {"batch", "off"}) quillon::Measurement(name, bytes, events).run(sync);
  std::filesystem::remove_all(name);
}
