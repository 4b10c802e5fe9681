// The cache beside plain write(2) of the same events with the same syncs, in one run; and how long a full one takes to
// open.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "delivery/cache/Cache.h"
#include "foundation/descriptor.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using delivery::Batch;
using delivery::Cache;
using delivery::CacheOptions;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

class Measurement {
 public:
  Measurement(std::string directory, std::size_t bytes) : directory_(std::move(directory)), event_(bytes, 'e') {}

  /// Events a second into the cache and by plain writes, in turns.
  void compare(const char* name, delivery::Sync sync, std::size_t perBatch, std::size_t batches) {
    std::vector<double> cache, plain, ratios;
    for (int round = 0; round < 5; ++round) {
      plain.push_back(static_cast<double>(perBatch * batches) / writePlainly(sync, perBatch, batches));
      cache.push_back(static_cast<double>(perBatch * batches) / fill(sync, perBatch, batches));
      ratios.push_back(cache.back() / plain.back());
    }
    std::printf("%-9s %5zu events of %zu bytes a batch: %.3f million/s, plain writes %.3f, ratio %.2f\n", name,
                perBatch, event_.size(), median(cache) / 1e6, median(plain) / 1e6, median(ratios));
  }

  void reopen(std::uint64_t bytes) {
    CacheOptions options = optionsOf(delivery::Sync::kBatch);
    options.maxBytes = 4 * bytes;
    for (const bool isKilled : {false, true}) {
      fs::remove_all(options.directory);
      options.sync = isKilled ? delivery::Sync::kOff : delivery::Sync::kBatch;
      std::string error;
      auto cache = Cache::open(options, error);
      if (!cache || !cache->reader("r")) std::abort();
      Batch batch;
      for (int i = 0; i < 5000; ++i) batch.add(event_);
      while (cache->bytes() < bytes) {
        if (cache->append(batch) != Cache::Result::kTaken) std::abort();
      }
      // Without its ledger and its last sync a cache is as after a crash.
      if (isKilled) fs::copy(options.directory, options.directory + "-copy");
      cache.reset();
      if (isKilled) {
        fs::remove_all(options.directory);
        fs::rename(options.directory + "-copy", options.directory);
      }
      const auto start = Clock::now();
      cache = Cache::open(options, error);
      const double opened = secondsSince(start);
      if (!cache) std::abort();
      const auto reader = cache->reader("r");
      delivery::Reader::Events events;
      std::size_t count = 0;
      while (reader->read(events) == delivery::Reader::Result::kEvents) count += events.events.size();
      std::printf("opening %.2f GiB %-28s %.3f s; reading it %.2f million events/s\n",
                  static_cast<double>(cache->bytes()) / 0x1p30,
                  isKilled ? "after a crash with sync off:" : "after an orderly end:", opened,
                  static_cast<double>(count) / (secondsSince(start) - opened) / 1e6);
      fs::remove_all(options.directory);
    }
  }

 private:
  CacheOptions optionsOf(delivery::Sync sync) const {
    CacheOptions options;
    options.directory = directory_ + "/cache";
    options.sync = sync;
    options.maxBytes = 64ULL << 30;
    return options;
  }

  double fill(delivery::Sync sync, std::size_t perBatch, std::size_t batches) {
    const CacheOptions options = optionsOf(sync);
    fs::remove_all(options.directory);
    std::string error;
    auto cache = Cache::open(options, error);
    if (!cache) std::abort();
    Batch batch;
    const auto start = Clock::now();
    for (std::size_t i = 0; i < batches; ++i) {
      batch.clear();
      for (std::size_t k = 0; k < perBatch; ++k) batch.add(event_);
      batch.setPosition("source", std::to_string(i));
      if (cache->append(batch) != Cache::Result::kTaken) std::abort();
    }
    const double seconds = secondsSince(start);
    cache.reset();
    fs::remove_all(options.directory);
    return seconds;
  }

  double writePlainly(delivery::Sync sync, std::size_t perBatch, std::size_t batches) {
    const std::string path = directory_ + "/plain";
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
    std::string text;
    const auto start = Clock::now();
    auto synced = start;
    std::size_t unsynced = 0;
    for (std::size_t i = 0; i < batches; ++i) {
      text.clear();
      for (std::size_t k = 0; k < perBatch; ++k) text += event_;
      if (writeAll(file.get(), text) != 0) std::abort();
      unsynced += text.size();
      // As the cache does: after a second, or at the end of a segment.
      const bool isTime = sync == delivery::Sync::kInterval &&
                          (unsynced >= 64 << 20 || Clock::now() - synced >= std::chrono::seconds(1));
      if (sync == delivery::Sync::kBatch || isTime) {
        if (fdatasync(file.get()) != 0) std::abort();
        synced = Clock::now();
        unsynced = 0;
      }
    }
    const double seconds = secondsSince(start);
    static_cast<void>(fdatasync(file.get()));
    fs::remove(path);
    return seconds;
  }

  const std::string directory_;
  const std::string event_;
};

}  // namespace
}  // namespace quillon

int main(int argc, char* argv[]) {
  std::string directory = std::filesystem::temp_directory_path();
  std::size_t bytes = 200;
  double gigabytes = 1;
  CLI::App app("Measures the cache on disk.", "cache_bench");
  app.add_option("--directory", directory, "Where the files are made");
  app.add_option("--bytes", bytes, "Of an event (200)");
  app.add_option("--gigabytes", gigabytes, "Size of the cache that is opened (1)");
  CLI11_PARSE(app, argc, argv);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::string name = directory + "/quillon-bench-XXXXXX";
  if (!mkdtemp(name.data())) return EXIT_FAILURE;
  {
    quillon::Measurement measurement(name, bytes);
    measurement.compare("off", quillon::delivery::Sync::kOff, 1000, 1000);
    measurement.compare("interval", quillon::delivery::Sync::kInterval, 1000, 1000);
    measurement.compare("batch", quillon::delivery::Sync::kBatch, 1000, 200);
    measurement.compare("batch", quillon::delivery::Sync::kBatch, 10, 200);
    measurement.reopen(static_cast<std::uint64_t>(gigabytes * 0x1p30));
  }
  std::filesystem::remove_all(name);
}
