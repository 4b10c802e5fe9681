#include "adapter/Config.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <string_view>

#include "config/address.h"
#include "config/document.h"
#include "config/line_output_config.h"
#include "src/adapters/logfile/source/PathScanner.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

using std::chrono::milliseconds;

constexpr std::uint64_t kLongestMessage = 64 << 20;
constexpr milliseconds kDay{86'400'000};
/// What StateFile makes, behind its path.
constexpr const char* kStateFiles[] = {"", ".lock", ".new", ".damaged"};
/// What is in a cache, behind its path; one for each kind of name.
constexpr const char* kCacheFiles[] = {"/lock", "/ledger", "/ledger.new", "/identity", "/0000000000000000.segment"};

/// A pattern that `path` alone matches.
std::string patternFor(const std::string& path) {
  std::string pattern;
  for (const char c : path) {
    if (std::string_view("*?[\\").find(c) != std::string_view::npos) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

/// Reads one document. Every table has its function, which asks for each key once; what is left over is unknown.
class ConfigReader {
 public:
  /// `file` is the one that is read; empty for a text that is in none.
  ConfigReader(fs::path directory, fs::path file, std::vector<ConfigFault>& faults)
      : directory_(std::move(directory)), file_(std::move(file)), faults_(faults) {}

  Config read(const toml::table& document) {
    TomlTable root(document, "", faults_);
    readPath(root, "state", config_.state);
    if (root.readName("metrics", config_.metrics) && !isLoopbackAddress(config_.metrics)) {
      root.report("metrics", "metrics must be a loopback address with a port, such as \"127.0.0.1:9464\"");
    }
    if (std::optional<TomlTable> log = root.table("log")) readLog(*log, config_.log);
    std::optional<TomlTable> output = root.table("output");
    if (output) readOutput(*output);
    config_.delivery = delivery::readDelivery(root, directory_);
    if (config_.delivery) readTogether(document, root);
    root.require("source");
    if (std::optional<TomlTable> sources = root.table("source")) {
      readSources(*sources);
      refuseClashes(output, *sources);
    }
    root.finish();
    return std::move(config_);
  }

 private:
  void readOutput(TomlTable& table) {
    table.readWord("form", config_.output.form, {{"event", EventForm::kText}, {"json", EventForm::kJson}});
    readLineOutput(table, directory_, config_.output);
    table.finish();
  }

  /// What [delivery] does not go together with.
  void readTogether(const toml::table& document, TomlTable& root) {
    for (const char* const key : {"output", "state"}) {
      if (!root.has(key)) continue;
      root.report(key, key == std::string_view("output")
                           ? "[output] and [delivery] exclude each other: events go one way"
                           : "with [delivery] there is no state: where sources are is kept in the cache");
    }
    std::ostringstream text;
    for (const char* const key : {"delivery", "destination"}) {
      if (const toml::table* const table = document.get_as<toml::table>(key)) text << *table << '\n';
    }
    config_.deliveryText = text.str();
  }

  void readSources(TomlTable& sources) {
    for (const std::string& name : sources.names()) {
      constexpr const char* kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
      if (name.empty() || name.find_first_not_of(kLetters) != std::string::npos) {
        sources.report(name, "the name of a source consists of letters, digits, \"_\" and \"-\"");
        continue;
      }
      if (std::optional<TomlTable> table = sources.table(name)) readSource(name, *table);
    }
    if (config_.sources.empty() && faults_.empty()) sources.report("", "there is no [source.NAME]");
  }

  /// What the adapter writes must not be what it reads: each event would lead to another. Nor must it write into what
  /// it needs for something else.
  void refuseClashes(std::optional<TomlTable>& output, TomlTable& sources) {
    const std::vector<std::string> written = writtenFiles();
    std::map<std::string, std::string> taken = takenFiles();
    const auto refuse = [&taken](TomlTable& table, std::string_view key, const std::string& path) {
      const auto found = taken.find(path);
      if (path.empty() || found == taken.end()) return;
      table.report(key, "the adapter would write into " + path + ", which is " + found->second);
    };
    if (output) refuse(*output, "path", config_.output.path);
    taken.emplace(config_.output.path, "where events go");
    for (const SourceConfig& source : config_.sources) {
      TomlTable table = *sources.table(source.name);
      refuse(table, "unmatched", source.unmatched);
      const auto* const files = std::get_if<FileOptions>(&source.input);
      if (!files) continue;
      const PathScanner followed(files->include, files->exclude);
      for (const std::string& path : written) {
        if (followed.matches(path)) {
          table.report("path", "the adapter itself writes " + path + ", which this follows: exclude it");
        }
      }
    }
  }

  /// All files that text is written to, one for each kind of name.
  std::vector<std::string> writtenFiles() const {
    std::vector<std::string> files;
    const auto add = [&files](const std::vector<std::string>& more) {
      files.insert(files.end(), more.begin(), more.end());
    };
    add(filesOf(config_.output));
    if (config_.delivery) {
      for (const delivery::DestinationConfig& one : config_.delivery->destinations) add(one.destination->writes());
      for (const char* const name : kCacheFiles) files.push_back(config_.delivery->cache.directory + name);
    }
    for (const SourceConfig& source : config_.sources) {
      if (!source.unmatched.empty() && std::ranges::find(files, source.unmatched) == files.end()) {
        files.push_back(source.unmatched);
      }
    }
    if (!config_.state.empty()) {
      for (const char* const ending : kStateFiles) files.push_back(statePath(config_) + ending);
    }
    return files;
  }

  /// Paths that are used for something, by which none else may write there, and for what.
  std::map<std::string, std::string> takenFiles() const {
    std::map<std::string, std::string> files = {{resolvedPath("", file_), "this configuration"}};
    if (!config_.state.empty()) {
      for (const char* const ending : kStateFiles) files.emplace(statePath(config_) + ending, "a part of the state");
    }
    for (const SourceConfig& source : config_.sources) {
      files.emplace(source.formats, "a format file");
      const auto* const fifo = std::get_if<FifoOptions>(&source.input);
      const auto* const datagrams = std::get_if<DatagramOptions>(&source.input);
      const std::string path = fifo ? fifo->path : datagrams ? datagrams->address : "";
      if (!path.starts_with('/')) continue;
      files.emplace(path, "what source." + source.name + " reads");
      files.emplace(path + ".lock", "the lock file of source." + source.name);
    }
    return files;
  }

  void readSource(const std::string& name, TomlTable& table) {
    SourceConfig source;
    source.name = name;
    if (config_.delivery && config_.delivery->form == delivery::RecordForm::kRaw) {
      if (table.has("formats")) {
        table.report("formats", "with form = \"raw\" messages are sent as they are: no formats bind them");
        return;
      }
    } else {
      readBinding(table, source);
    }

    enum class Type { kFile, kFifo, kStdin, kTcp, kUdp, kUnix, kNats, kKafka };
    std::optional<Type> type;
    table.require("type");
    table.readWord<std::optional<Type>>("type", type,
                                        {{"file", Type::kFile},
                                         {"fifo", Type::kFifo},
                                         {"stdin", Type::kStdin},
                                         {"tcp", Type::kTcp},
                                         {"udp", Type::kUdp},
                                         {"unix", Type::kUnix},
                                         {"nats", Type::kNats},
                                         {"kafka", Type::kKafka}});
    if (!type) return;  // what else is there cannot be judged
    switch (*type) {
      case Type::kFile:
        readFiles(table, source.input.emplace<FileOptions>());
        break;
      case Type::kFifo:
        readFifo(table, source.input.emplace<FifoOptions>());
        break;
      case Type::kStdin: {
        StreamOptions& options = source.input.emplace<StreamOptions>();
        readLongest(table, options.longest);
        readJoining(table, options.joining);
        break;
      }
      case Type::kTcp:
        readTcp(table, source.input.emplace<TcpOptions>());
        break;
      case Type::kUdp:
      case Type::kUnix:
        readDatagrams(table, source.input.emplace<DatagramOptions>(), *type == Type::kUnix);
        break;
      case Type::kNats:
        refuseWithoutDelivery(table);
        readNatsSource(table, directory_, source.input.emplace<NatsSourceOptions>());
        break;
      case Type::kKafka:
        refuseWithoutDelivery(table);
        readKafkaSource(table, directory_, source.input.emplace<KafkaSourceOptions>());
        break;
    }
    table.finish();
    config_.sources.push_back(std::move(source));
  }

  /// What becomes of messages.
  void readBinding(TomlTable& table, SourceConfig& source) {
    table.require("formats");
    readPath(table, "formats", source.formats);
    source.formatsPlace = table.placeOf("formats");
    table.readWord("order", source.order, {{"last-first", FormatOrder::kLastFirst}, {"file", FormatOrder::kOfFile}});
    table.read("default", source.defaultText);
    table.read("label", source.label);
    table.read("event_log", source.eventLog);
    table.readDuration("multiline_wait", source.multilineWait, milliseconds(0), kDay);
    readPath(table, "unmatched", source.unmatched);
  }

  void refuseWithoutDelivery(TomlTable& table) {
    if (config_.delivery) return;
    table.report("type", "such a source needs [delivery]: the broker keeps messages until what came of them is stored");
  }

  void readFiles(TomlTable& table, FileOptions& options) {
    table.require("path");
    if (table.readNames("path", options.include) && options.include.empty()) {
      table.report("path", "there must be one path or pattern at least");
    }
    for (std::string& pattern : options.include) pattern = resolvedPattern(pattern);
    table.readNames("exclude", options.exclude);
    for (std::string& pattern : options.exclude) {
      if (pattern.find('/') != std::string::npos) pattern = resolvedPattern(pattern);
    }
    table.readWord("start", options.fromEnd, {{"beginning", false}, {"end", true}});
    table.readDuration("poll_interval", options.pollInterval, milliseconds(10), kDay);
    readLongest(table, options.longest);
    readJoining(table, options.joining);
  }

  void readFifo(TomlTable& table, FifoOptions& options) {
    table.require("path");
    readPath(table, "path", options.path);
    table.readMode("mode", options.mode);
    readLongest(table, options.longest);
    readJoining(table, options.joining);
  }

  void readTcp(TomlTable& table, TcpOptions& options) {
    readAddress(table, options.address);
    table.readWord("framing", options.framing,
                   {{"auto", Framing::kAuto}, {"newline", Framing::kNewline}, {"octets", Framing::kOctets}});
    std::uint64_t connections = options.connections;
    table.readNumber("connections", connections, 1, 100'000);
    options.connections = connections;
    table.readDuration("idle", options.idle, milliseconds(100), kDay);
    readLongest(table, options.longest);
    readJoining(table, options.joining);
  }

  void readDatagrams(TomlTable& table, DatagramOptions& options, bool isUnix) {
    options.local = isUnix;
    if (isUnix) {
      table.require("path");
      readPath(table, "path", options.address);
      table.readMode("mode", options.mode);
    } else {
      readAddress(table, options.address);
    }
    readLongest(table, options.longest);
    std::uint64_t buffer = static_cast<std::uint64_t>(options.receiveBuffer);
    table.readSize("receive_buffer", buffer, 4096, 1 << 30);
    options.receiveBuffer = static_cast<int>(buffer);
  }

  void readLongest(TomlTable& table, std::size_t& longest) {
    std::uint64_t bytes = longest;
    table.readSize("max_message", bytes, 64, kLongestMessage);
    longest = bytes;
  }

  void readJoining(TomlTable& table, Joining& joining) {
    table.readWord("join", joining.indented, {{"none", false}, {"indented", true}});
    table.readDuration("join_wait", joining.wait, milliseconds(0), kDay);
  }

  void readAddress(TomlTable& table, std::string& address) {
    table.require("address");
    if (table.readName("address", address) && !isAddress(address)) {
      table.report("address", "the address must be HOST:PORT, such as \"192.0.2.1:514\", \"[::1]:514\" or \":514\"");
    }
  }

  void readPath(TomlTable& table, std::string_view key, std::string& path) { table.readPath(key, directory_, path); }

  std::string resolvedPattern(const std::string& pattern) const {
    return resolvedPath(patternFor(directory_), pattern);
  }

  const fs::path directory_;
  const fs::path file_;
  std::vector<ConfigFault>& faults_;
  Config config_;
};

/// The faults behind the first `before` are those of the document.
std::optional<Config> read(const toml::table& document, const fs::path& directory, const fs::path& file,
                           std::vector<ConfigFault>& faults, std::size_t before) {
  Config config = ConfigReader(directory, file, faults).read(document);
  sortByPlace(faults, before);
  if (faults.size() > before) return std::nullopt;
  return config;
}

}  // namespace

std::optional<Config> parseConfig(const std::string& text, const std::string& directory,
                                  std::vector<ConfigFault>& faults) {
  const std::size_t before = faults.size();
  const std::optional<toml::table> document = parseDocument(text, faults);
  return document ? read(*document, directory, {}, faults, before) : std::nullopt;
}

std::optional<Config> readConfig(const std::string& path, std::vector<ConfigFault>& faults) {
  const std::size_t before = faults.size();
  const std::optional<ConfigDocument> document = readDocument(path, faults);
  if (!document) return std::nullopt;
  return read(document->table, document->directory, document->path, faults, before);
}

}  // namespace quillon
