#include "delivery/client/DeliveryConfig.h"

#include <unistd.h>

#include <chrono>
#include <utility>

#include "delivery/destinations/destinations.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kDay{86'400'000};
constexpr const char* kNameLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
constexpr const char* kClientLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
constexpr std::size_t kLongestName = 128;

bool isName(const std::string& text, const char* letters) {
  return !text.empty() && text.size() <= kLongestName && text.find_first_not_of(letters) == std::string::npos;
}

/// The host's name, with "_" for what a client's name does not have.
std::string hostName() {
  char name[kLongestName] = {};
  if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
  std::string host(name);
  for (std::size_t at = 0; (at = host.find_first_not_of(kClientLetters, at)) != std::string::npos;) host[at] = '_';
  return host;
}

void readDuration(TomlTable& table, std::string_view key, milliseconds& target, milliseconds least) {
  std::chrono::steady_clock::duration time = target;
  table.readDuration(key, time, least, kDay);
  target = std::chrono::duration_cast<milliseconds>(time);
}

void readCache(TomlTable& table, const std::string& directory, CacheOptions& cache) {
  table.require("cache");
  table.readPath("cache", directory, cache.directory);
  table.readWord("sync", cache.sync, {{"batch", Sync::kBatch}, {"interval", Sync::kInterval}, {"off", Sync::kOff}});
  readDuration(table, "sync_interval", cache.syncInterval, milliseconds(10));
  if (table.has("sync_interval") && cache.sync != Sync::kInterval) {
    table.report("sync_interval", "delivery.sync_interval needs sync = \"interval\"");
  }
  table.readSize("max_bytes", cache.maxBytes, 1 << 16, std::uint64_t{1} << 50);
  table.readWord("when_full", cache.whenFull, {{"block", WhenFull::kBlock}, {"drop_oldest", WhenFull::kDropOldest}});
  readDuration(table, "replay_window", cache.replayWindow, milliseconds(0));
}

void readGeneral(TomlTable& table, const std::string& directory, DeliveryConfig& config) {
  readCache(table, directory, config.cache);
  table.readWord("form", config.form,
                 {{"event", RecordForm::kEvent}, {"attributes", RecordForm::kAttributes}, {"raw", RecordForm::kRaw}});
  config.client = hostName();
  if (table.readName("client", config.client) && !isName(config.client, kClientLetters)) {
    table.report("client", "the name of a client consists of letters, digits, \"_\", \"-\" and \".\", " +
                               std::to_string(kLongestName) + " at most");
  }
  table.readSize("buffer", config.bufferBytes, 1 << 12, std::uint64_t{1} << 40);
  table.readNumber("rate_limit", config.rateLimit, 1, 1'000'000'000);
  config.filter = readFilter(table, config.form);
  table.finish();
}

void readDestination(const std::string& name, TomlTable& table, const std::string& directory, DeliveryConfig& config) {
  ReadDestination reader = nullptr;
  table.require("type");
  readDestinationType(table, reader);
  if (!reader) return;  // what else is there cannot be judged
  DestinationConfig destination;
  destination.name = name;
  destination.filter = readFilter(table, config.form);
  destination.destination = reader(table, directory);
  if (config.form != RecordForm::kEvent && !destination.destination->takesAllForms()) {
    table.report("type", "this type takes events alone: delivery.form must be \"event\"");
  }
  table.finish();
  config.destinations.push_back(std::move(destination));
}

}  // namespace

std::optional<DeliveryConfig> readDelivery(TomlTable& document, const std::string& directory) {
  if (!document.has("delivery") && !document.has("destination")) return std::nullopt;
  DeliveryConfig config;
  document.require("delivery");
  document.require("destination");
  if (std::optional<TomlTable> table = document.table("delivery")) readGeneral(*table, directory, config);
  std::optional<TomlTable> destinations = document.table("destination");
  if (!destinations) return config;
  const std::vector<std::string> names = destinations->names();
  if (names.empty()) destinations->report("", "there is no [destination.NAME]");
  for (const std::string& name : names) {
    if (!isName(name, kNameLetters)) {
      destinations->report(name, "the name of a destination consists of letters, digits, \"_\" and \"-\", " +
                                     std::to_string(kLongestName) + " at most");
    } else if (std::optional<TomlTable> table = destinations->table(name)) {
      readDestination(name, *table, directory, config);
    }
  }
  return config;
}

}  // namespace quillon::delivery
