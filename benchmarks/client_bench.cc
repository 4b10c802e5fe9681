// Events through the client: from the caller's batch over the buffer into the cache, and out again to a destination
// that does nothing with them. Small batches, as sources have them, that the client writes together.

#include <sys/resource.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "delivery/client/Client.h"

namespace quillon::delivery {
namespace {

namespace fs = std::filesystem;
using Clock = Client::Clock;

class Nowhere : public Destination {
 public:
  void run(Feed& feed) const override {
    Feed::Events events;
    while (!feed.stopping()) {
      if (feed.read(events)) {
        feed.delivered(events.end);
      } else if (feed.draining()) {
        return;
      } else {
        feed.wait(Clock::time_point::max());
      }
    }
  }
};

double processorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Waits for room as a source does.
Client::Ticket send(Client& client, Batch& batch) {
  Client::Ticket ticket = 0;
  while (client.send(batch, ticket) == Client::Result::kFull) {
    pollfd room{client.descriptor(), POLLIN, 0};
    poll(&room, 1, 1000);
    client.takeProgress();
  }
  return ticket;
}

void measure(const std::string& directory, const char* name, Sync sync, std::size_t perBatch, std::size_t batches) {
  Record record;
  record.className = "Sshd_Login";
  record.source = "web1/auth";
  record.position = "12:3456789:0123456789abcdef";
  const std::string value(40, 'v');
  record.values = {{"user", value}, {"host", value}};
  std::string event;
  encode(record, event);  // 200 bytes, or nearly
  std::vector<double> rates, costs;
  for (int round = 0; round < 5; ++round) {
    DeliveryConfig config;
    config.cache.directory = directory + "/cache";
    config.cache.sync = sync;
    config.cache.replayWindow = std::chrono::milliseconds(0);
    config.client = "bench";
    config.destinations.push_back({"nowhere", std::make_shared<Nowhere>(), {}});
    fs::remove_all(config.cache.directory);
    std::string error;
    const auto client = Client::start(config, {}, error);
    if (!client) std::abort();
    Batch batch;
    Client::Ticket last = 0;
    const double before = processorSeconds();
    const auto start = Clock::now();
    for (std::size_t i = 0; i < batches; ++i) {
      for (std::size_t k = 0; k < perBatch; ++k) {
        if (client->wants(record)) batch.add(event, static_cast<std::uint32_t>(record.form));
      }
      batch.setPosition("auth/file/12", std::to_string(i));
      last = send(*client, batch);
    }
    if (!client->waitDelivered(last, Clock::now() + std::chrono::minutes(1))) std::abort();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double events = static_cast<double>(perBatch * batches);
    rates.push_back(events / seconds / 1e6);
    costs.push_back((processorSeconds() - before) / events * 1e9);
  }
  std::ranges::sort(rates);
  std::ranges::sort(costs);
  std::printf("%-9s %5zu events of %zu bytes a batch: %.3f million/s delivered, %.0f ns of processor each\n", name,
              perBatch, event.size(), rates[2], costs[2]);
}

}  // namespace
}  // namespace quillon::delivery

int main(int argc, char* argv[]) {
  using quillon::delivery::Sync;
  std::string directory = std::filesystem::temp_directory_path();
  CLI::App app("Measures the way through the client.", "client_bench");
  app.add_option("--directory", directory, "Where the cache is made");
  CLI11_PARSE(app, argc, argv);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::string name = directory + "/quillon-bench-XXXXXX";
  if (!mkdtemp(name.data())) return EXIT_FAILURE;
  quillon::delivery::measure(name, "off", Sync::kOff, 100, 10'000);
  quillon::delivery::measure(name, "off", Sync::kOff, 1, 300'000);
  quillon::delivery::measure(name, "interval", Sync::kInterval, 100, 10'000);
  quillon::delivery::measure(name, "batch", Sync::kBatch, 100, 2'000);
  std::filesystem::remove_all(name);
}
