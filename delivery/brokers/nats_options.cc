#include "delivery/brokers/nats_options.h"

namespace quillon::delivery {

void readNatsOptions(TomlTable& table, const std::string& directory, NatsOptions& options) {
  table.require("servers");
  if (table.readNames("servers", options.servers) && options.servers.empty()) {
    table.report("servers", "there must be one server at least");
  }
  for (const std::string& server : options.servers) {
    const bool isUrl = server.starts_with("nats://") || server.starts_with("tls://");
    if (!isUrl) table.report("servers", "a server must be \"nats://HOST:PORT\" or \"tls://HOST:PORT\"");
    if (server.starts_with("tls://")) options.tls = true;
  }
  table.readName("user", options.user);
  table.readPath("password_file", directory, options.passwordFile);
  table.readPath("token_file", directory, options.tokenFile);
  table.readPath("credentials", directory, options.credentials);
  table.read("tls", options.tls);
  table.read("verify", options.verify);
  table.readPath("ca", directory, options.ca);
  table.readPath("certificate", directory, options.certificate);
  table.readPath("key", directory, options.key);
  if (options.certificate.empty() != options.key.empty()) {
    table.report(options.key.empty() ? "certificate" : "key", "certificate and key need each other");
  }
  if (!options.passwordFile.empty() && options.user.empty()) {
    table.report("password_file", "a password needs a user");
  }
  if (!options.tls) {
    for (const char* const key : {"verify", "ca", "certificate"}) {
      if (table.has(key)) table.report(key, std::string(key) + " means something with tls = true only");
    }
  }
}

void readNatsStream(TomlTable& table, NatsStream& stream) {
  constexpr std::chrono::milliseconds kYears(std::chrono::hours(24 * 3650));
  table.readName("stream", stream.name);
  if (stream.name.find_first_of(" .*>/\\\t\r\n") != std::string::npos) {
    table.report("stream", "the name of a stream has no white space and none of . * > / \\");
  }
  table.readNumber("replicas", stream.replicas, 1, 5);
  table.readWord("retention", stream.isWorkQueue, {{"limits", false}, {"work", true}});
  table.readDuration("max_age", stream.maxAge, std::chrono::seconds(1), kYears);
  table.readSize("max_bytes", stream.maxBytes, 1 << 20, std::uint64_t{1} << 50);
  table.readDuration("duplicate_window", stream.duplicates, std::chrono::milliseconds(100), kYears);
  if (!stream.name.empty()) return;
  for (const char* const key : {"replicas", "retention", "max_age", "max_bytes", "duplicate_window"}) {
    if (table.has(key)) table.report(key, std::string(key) + " needs stream: it is for a stream that is made");
  }
}

}  // namespace quillon::delivery
