// Any text as the tables of the delivery: every fault has a text, a second reading has the same faults, and what is
// good has destinations, whose filters judge any event.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "delivery/client/DeliveryConfig.h"

namespace {

using quillon::ConfigFault;
using quillon::delivery::DeliveryConfig;
using quillon::delivery::Record;

void check(bool holds) {
  if (!holds) std::abort();
}

std::optional<DeliveryConfig> read(const toml::table& document, std::vector<ConfigFault>& faults) {
  quillon::TomlTable root(document, "", faults);
  std::optional<DeliveryConfig> config = quillon::delivery::readDelivery(root, "/etc");
  root.finish();
  return config;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  toml::table document;
  try {
    document = toml::parse(text);
  } catch (const toml::parse_error&) {  // the library knows no other way
    return 0;
  }
  std::vector<ConfigFault> faults, again;
  const std::optional<DeliveryConfig> config = read(document, faults);
  static_cast<void>(read(document, again));
  check(faults.size() == again.size());
  for (const ConfigFault& fault : faults) check(!fault.text.empty());
  if (!config || !faults.empty()) return 0;
  check(!config->destinations.empty() && !config->client.empty() && config->cache.directory.starts_with('/'));
  Record record;
  record.className = text.substr(0, 20);
  record.values = {{"user", text.substr(text.size() / 2)}, {"host", ""}};
  static_cast<void>(config->filter.passes(record));
  for (const auto& destination : config->destinations) static_cast<void>(destination.filter.passes(record));
  return 0;
}
