#include <rapidjson/document.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/document.h"
#include "delivery/client/Client.h"
#include "foundation/visible.h"
#include "program/options.h"
#include "program/program.h"

namespace quillon {
namespace {

using delivery::Batch;
using delivery::Client;
using delivery::DeliveryConfig;
using delivery::Feed;
using delivery::Record;

constexpr const char* kProgram = "quillon-send";
/// Exit status of what is safe in the cache, and is not with every destination.
constexpr int kOnlyCached = 3;
constexpr std::size_t kLongestLine = 64 << 20;

struct Options {
  std::string config;
  double wait = 10;  ///< Seconds.
  std::vector<std::string> event;
};

void tell(const char* level, std::string_view text) {
  std::fprintf(stderr, "%s: %s%s\n", kProgram, level, visible(text).c_str());
}

/// Nothing after a complaint.
std::optional<DeliveryConfig> readConfig(const std::string& path) {
  std::vector<ConfigFault> faults;
  const std::optional<ConfigDocument> document = readDocument(path, faults);
  std::optional<DeliveryConfig> config;
  if (document) {
    TomlTable root(document->table, "", faults);
    config = delivery::readDelivery(root, document->directory);
    if (!config) faults.push_back({{}, path + ": there is no [delivery]"});
    if (config && config->form != delivery::RecordForm::kEvent) {
      root.report("delivery", "delivery.form must be \"event\": that is what is sent");
    }
    root.finish();
    sortByPlace(faults, 0);
  }
  for (const ConfigFault& fault : faults) {
    const std::string place =
        path + ":" + std::to_string(fault.place.line) + ":" + std::to_string(fault.place.column) + ": ";
    tell("", (fault.place.line == 0 ? "" : place) + fault.text);
  }
  return faults.empty() ? std::move(config) : std::nullopt;
}

/// Sends events, each under a position of its own.
class Sending {
 public:
  Sending(Client& client, const std::string& name) : client_(client), source_(name + "/send") {
    std::random_device device;
    char run[17];
    std::snprintf(run, sizeof run, "%08x%08x", device(), device());
    run_ = run;
  }

  void add(Record& record) {
    position_ = run_ + ":" + std::to_string(++count_);
    record.source = source_;
    record.position = position_;
    if (!client_.wants(record)) return;
    bytes_.clear();
    encode(record, bytes_);
    batch_.add(bytes_, static_cast<std::uint32_t>(record.form));
    if (batch_.bytes() > kBatch) flush();
  }

  /// Waits for room as long as that takes: what comes in stays where it is.
  void flush() {
    Client::Ticket ticket = 0;
    while (!batch_.empty() && client_.send(batch_, ticket) == Client::Result::kFull) {
      pollfd room{client_.descriptor(), POLLIN, 0};
      poll(&room, 1, 1000);
      client_.takeProgress();
    }
  }

 private:
  static constexpr std::uint64_t kBatch = 256 << 10;

  Client& client_;
  const std::string source_;
  std::string run_;
  std::uint64_t count_ = 0;
  std::string position_;
  std::string bytes_;
  Batch batch_;
};

/// CLASS and SLOT=VALUE... of the command line. False after a complaint.
bool takeArguments(const std::vector<std::string>& event, Record& record) {
  record.className = event.front();
  for (std::size_t i = 1; i < event.size(); ++i) {
    const std::string_view slot = event[i];
    const std::size_t equals = slot.find('=');
    if (equals == std::string_view::npos || equals == 0) {
      tell("", event[i] + ": not of the form SLOT=VALUE");
      return false;
    }
    record.values.push_back({slot.substr(0, equals), slot.substr(equals + 1)});
  }
  return true;
}

std::string_view textOf(const rapidjson::Value& value) { return {value.GetString(), value.GetStringLength()}; }

/// {"class":"...","slots":{"name":"value",...}}, where values may be numbers, true and false too. What is wrong with
/// it; empty when it was added.
std::string addLine(std::string_view line, Sending& sending) {
  rapidjson::Document document;
  constexpr unsigned kFlags =
      rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
  document.Parse<kFlags>(line.data(), line.size());
  if (document.HasParseError()) return "no JSON, from byte " + std::to_string(document.GetErrorOffset() + 1) + " on";
  if (!document.IsObject()) return "no object";
  Record record;
  // Counted: how the iterators are compared, C++20 finds ambiguous.
  for (rapidjson::SizeType i = 0; i < document.MemberCount(); ++i) {
    const auto& member = document.MemberBegin()[i];
    const std::string_view name = textOf(member.name);
    if (name == "class" && member.value.IsString()) {
      record.className = textOf(member.value);
    } else if (name == "slots" && member.value.IsObject()) {
      for (rapidjson::SizeType k = 0; k < member.value.MemberCount(); ++k) {
        const auto& slot = member.value.MemberBegin()[k];
        if (!slot.value.IsString() && !slot.value.IsBool()) {
          return "the slot \"" + std::string(textOf(slot.name)) + "\" is neither text, nor a number, true or false";
        }
        record.values.push_back({textOf(slot.name), slot.value.IsString() ? textOf(slot.value)
                                                    : slot.value.IsTrue() ? "true"
                                                                          : "false"});
      }
    } else {
      return "\"" + std::string(name) + "\" is not known, or of the wrong type";
    }
  }
  if (record.className.empty()) return "there is no \"class\"";
  sending.add(record);
  return "";
}

/// Events as they come, a line each. False when some were refused, or not all could be read.
bool addInput(Sending& sending) {
  std::string text;
  std::vector<char> room(64 << 10);
  bool isGood = true;
  std::uint64_t number = 0;
  const auto take = [&](std::string_view line) {
    ++number;
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) return;
    const std::string fault = addLine(line, sending);
    if (fault.empty()) return;
    tell("", "line " + std::to_string(number) + ": " + fault);
    isGood = false;
  };
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, room.data(), room.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) complain(kProgram, "read", "standard input", errno);
    if (count <= 0) {
      take(text);
      return isGood && count == 0;
    }
    text.append(room.data(), static_cast<std::size_t>(count));
    std::size_t from = 0;
    for (std::size_t end; (end = text.find('\n', from)) != std::string::npos; from = end + 1) {
      take(std::string_view(text).substr(from, end - from));
    }
    text.erase(0, from);
    if (text.size() > kLongestLine) {
      tell("", "line " + std::to_string(number + 1) + ": longer than 64 MiB");
      return false;
    }
    sending.flush();
  }
}

int send(const Options& options) {
  Record record;
  if (!options.event.empty() && !takeArguments(options.event, record)) return kWrongUsage;
  const std::optional<DeliveryConfig> config = readConfig(options.config);
  if (!config) return EXIT_FAILURE;
  std::string error;
  const auto report = [](Feed::Level level, std::string_view text) {
    if (level != Feed::Level::kInfo) tell(level == Feed::Level::kWarning ? "warning: " : "", text);
  };
  const std::unique_ptr<Client> client = Client::start(*config, report, error);
  if (!client) {
    tell("", error);
    return EXIT_FAILURE;
  }
  Sending sending(*client, config->client);
  bool isGood = true;
  if (options.event.empty()) {
    isGood = addInput(sending);
  } else {
    sending.add(record);
  }
  sending.flush();
  const auto wait = std::chrono::duration_cast<Client::Clock::duration>(std::chrono::duration<double>(options.wait));
  const Client::Rest rest = client->stop(Client::Clock::now() + wait);
  if (rest == Client::Rest::kInBuffer) tell("", "not everything could be written into the cache");
  if (rest == Client::Rest::kInBuffer || !isGood) return EXIT_FAILURE;
  return rest == Client::Rest::kNone ? EXIT_SUCCESS : kOnlyCached;
}

}  // namespace
}  // namespace quillon

/// quillon-send [options] [CLASS [SLOT=VALUE...]]: sends events to the destinations of a configuration.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  quillon::Options options;
  CLI::App app("Sends an event, or those of standard input, to destinations.", "quillon-send");
  app.add_option("--config", options.config, "The configuration with [delivery], see quillon-delivery(5)")
      ->required()
      ->type_name("FILE");
  app.add_option("--wait", options.wait, "For how long destinations are waited for at the end; 10 when not given")
      ->check(CLI::Range(0.0, 1e6).description(""))
      ->type_name("SECONDS");
  app.add_option("EVENT", options.event, "The class of the event, then its slots as SLOT=VALUE")->type_name("");
  app.footer(
      "Without a class, events are read from standard input, a line each: {\"class\":\"...\",\"slots\":{...}}.\n"
      "Exit status: 0 when every destination has everything, 3 when it is safe in the cache only, 1 after errors.");
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  return quillon::send(options);
}
