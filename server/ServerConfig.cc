#include "server/ServerConfig.h"

#include <algorithm>
#include <utility>

#include "config/address.h"
#include "config/document.h"
#include "delivery/protocol/frames.h"

namespace quillon {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kDay{86'400'000};

/// Reads one document. Every table has its function, which asks for each key once; what is left over is unknown.
class ConfigReader {
 public:
  ConfigReader(std::string directory, std::vector<ConfigFault>& faults)
      : directory_(std::move(directory)), faults_(faults) {}

  ServerConfig read(const toml::table& document) {
    TomlTable root(document, "", faults_);
    if (root.readName("metrics", config_.metrics) && !isLoopbackAddress(config_.metrics)) {
      root.report("metrics", "metrics must be a loopback address with a port, such as \"127.0.0.1:9465\"");
    }
    if (std::optional<TomlTable> log = root.table("log")) readLog(*log, config_.log);
    if (std::optional<TomlTable> server = root.table("server")) readServer(*server);
    root.require("listen");
    if (std::optional<TomlTable> listeners = root.table("listen")) readListeners(*listeners);
    root.require("delivery");
    if (auto delivery = delivery::readDelivery(root, directory_)) config_.delivery = std::move(*delivery);
    std::optional<TomlTable> definitions = root.table("cds");
    if (definitions) readDefinitions(*definitions);
    if (!definitions && !config_.passesOn()) {
      root.report("",
                  "there is no [cds]: without class definitions attributes can only be passed on, which "
                  "form = \"attributes\" in [delivery] does");
    }
    root.finish();
    return std::move(config_);
  }

 private:
  void readServer(TomlTable& table) {
    table.readSize("max_batch", config_.mostBatch, 64 << 10, delivery::kMostBatchBodyBytes);
    table.readNumber("connections", config_.connections, 1, 100'000);
    table.readNumber("clients", config_.clients, 1, 1'000'000);
    std::chrono::steady_clock::duration patience = config_.patience;
    table.readDuration("patience", patience, milliseconds(100), kDay);
    config_.patience = std::chrono::duration_cast<milliseconds>(patience);
    table.finish();
  }

  void readListeners(TomlTable& listeners) {
    const std::vector<std::string> names = listeners.names();
    if (names.empty()) listeners.report("", "there is no [listen.NAME]");
    for (const std::string& name : names) {
      if (std::optional<TomlTable> table = listeners.table(name)) readListener(name, *table);
    }
  }

  void readListener(const std::string& name, TomlTable& table) {
    using Type = ListenerConfig::Type;
    ListenerConfig listener;
    listener.name = name;
    std::optional<Type> type;
    table.require("type");
    table.readWord<std::optional<Type>>("type", type,
                                        {{"tcp", Type::kTcp}, {"tls", Type::kTls}, {"unix", Type::kUnix}});
    if (!type) return;  // what else is there cannot be judged
    listener.type = *type;
    if (*type == Type::kUnix) {
      table.require("path");
      table.readPath("path", directory_, listener.address);
      table.readMode("mode", listener.mode);
    } else {
      table.require("address");
      if (table.readName("address", listener.address) && !isAddress(listener.address)) {
        table.report("address",
                     "the address must be HOST:PORT, such as \"192.0.2.1:4711\", \"[::1]:4711\" or \":4711\"");
      }
    }
    if (*type == Type::kTls) {
      table.require("certificate");
      table.readPath("certificate", directory_, listener.tls.certificate);
      table.readPath("key", directory_, listener.tls.key);
      table.readPath("client_ca", directory_, listener.tls.ca);
    }
    table.readPath("token_file", directory_, listener.tokenFile);
    const bool isOpen = listener.tokenFile.empty() && listener.tls.ca.empty();
    if (isOpen && *type != Type::kUnix && !listener.address.empty() && !isLoopbackAddress(listener.address)) {
      table.report("address", std::string("whoever can reach ") + listener.address + " could send events: it needs a " +
                                  (*type == Type::kTls ? "client_ca or a token_file" : "token_file"));
    }
    table.finish();
    config_.listeners.push_back(std::move(listener));
  }

  void readDefinitions(TomlTable& table) {
    table.require("path");
    table.readNames("path", config_.definitions);
    for (std::string& path : config_.definitions) path = resolvedPath(directory_, path);
    table.readName("codeset", config_.codeset);
    table.require("parked");
    table.readPath("parked", directory_, config_.parked);
    table.readSize("parked_max_bytes", config_.parkedBytes, 1 << 20, std::uint64_t{1} << 50);
    table.readNumber("parked_sets", config_.parkedSets, 1, 10'000);
    table.finish();
  }

  const std::string directory_;
  std::vector<ConfigFault>& faults_;
  ServerConfig config_;
};

}  // namespace

std::optional<ServerConfig> readServerConfig(const std::string& path, std::vector<ConfigFault>& faults) {
  const std::size_t before = faults.size();
  const std::optional<ConfigDocument> document = readDocument(path, faults);
  if (!document) return std::nullopt;
  ServerConfig config = ConfigReader(document->directory, faults).read(document->table);
  sortByPlace(faults, before);
  if (faults.size() > before) return std::nullopt;
  return config;
}

}  // namespace quillon
