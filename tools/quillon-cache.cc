#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "authoring/report/JsonText.h"
#include "delivery/cache/inspection.h"
#include "foundation/visible.h"
#include "program/options.h"
#include "program/program.h"

namespace quillon {
namespace {

using delivery::CacheContents;
using delivery::Event;
using delivery::Files;
using delivery::Segment;
using delivery::SegmentHealth;

constexpr const char* kProgram = "quillon-cache";
constexpr int kNotDone = 2;  ///< Exit status beside that of wrong usage: what was asked for cannot be done.

struct Options {
  std::string directory;
  std::string output = "text";
  std::string reader;
  std::uint64_t from = 0;

  bool isJson() const { return output == "json"; }
};

int cannotRead(const std::string& path, int error) {
  complain(kProgram, "read", path, error);
  return kNotDone;
}

void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

/// `status`, unless what was printed could not be written.
int printed(int status) {
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? status : outputFailed(kProgram);
}

/// At most so many events a reader has not acknowledged: numbers that no event has count, too.
std::uint64_t waitingFor(const CacheContents& contents, std::uint64_t number) {
  std::uint64_t waiting = 0;
  for (const Segment& segment : contents.log.segments) {
    const std::uint64_t from = std::max(segment.begin, number);
    if (segment.end > from) waiting += segment.end - from;
  }
  return waiting;
}

void listAsJson(const CacheContents& contents) {
  JsonText json;
  json.open('{').key("end").number(contents.log.end).key("synced").number(contents.log.synced);
  json.key("segments").open('[');
  for (const Segment& segment : contents.log.segments) {
    json.open('{').key("name").string(delivery::segmentName(segment.begin)).key("bytes").number(segment.bytes);
    json.key("first").number(segment.begin).key("end").number(std::max(segment.begin, segment.end)).close('}');
  }
  json.close(']').key("readers").open('[');
  for (const auto& [name, number] : contents.ledger.cursors) {
    json.open('{').key("name").string(name).key("next").number(number);
    json.key("waiting").number(waitingFor(contents, number)).close('}');
  }
  json.close(']').key("positions").open('{');
  for (const auto& [name, value] : contents.log.positions) json.key(name).string(value);
  print(json.close('}').close('}').take() + '\n');
}

int list(const Options& options, const CacheContents& contents) {
  if (options.isJson()) {
    listAsJson(contents);
    return printed(EXIT_SUCCESS);
  }
  for (const Segment& segment : contents.log.segments) {
    const std::uint64_t end = std::max(segment.begin, segment.end);
    std::printf("%s  %" PRIu64 " bytes, events %" PRIu64 " to below %" PRIu64 "\n",
                delivery::segmentName(segment.begin).c_str(), segment.bytes, segment.begin, end);
  }
  for (const auto& [name, number] : contents.ledger.cursors) {
    std::printf("reader %s  next %" PRIu64 ", %" PRIu64 " waiting\n", visible(name).c_str(), number,
                waitingFor(contents, number));
  }
  for (const auto& [name, value] : contents.log.positions) {
    std::printf("position %s  %s\n", visible(name).c_str(), visible(value).c_str());
  }
  return printed(EXIT_SUCCESS);
}

struct Examined {
  const Segment* segment;
  SegmentHealth health;

  bool isDamaged() const { return health.lost > 0 || health.blemishes > 0 || !health.hasPositions; }
};

void checkAsText(const CacheContents& contents, const std::vector<Examined>& examined) {
  std::uint64_t events = 0;
  std::uint64_t lost = 0;
  for (const auto& [segment, health] : examined) {
    const std::string name = delivery::segmentName(segment->begin);
    if (health.lost > 0) std::printf("%s: %" PRIu64 " events are missing or damaged\n", name.c_str(), health.lost);
    if (health.blemishes > 0) {
      std::printf("%s: damage to %" PRIu64 " batches that costs nothing\n", name.c_str(), health.blemishes);
    }
    if (!health.hasPositions) std::printf("%s: positions are damaged\n", name.c_str());
    if (health.unfinished > 0) {
      std::printf("%s: %" PRIu64 " bytes at its end were never finished, which is no damage\n", name.c_str(),
                  health.unfinished);
    }
    events += health.events;
    lost += health.lost;
  }
  if (contents.ledger.damagedLines > 0) std::printf("ledger: %d lines are damaged\n", contents.ledger.damagedLines);
  if (contents.log.setBack != 0) {
    std::printf("events from number %" PRIu64 " on did not reach the disk whole; the sources go back to before them\n",
                contents.log.setBack);
  }
  std::printf("%zu segments, %" PRIu64 " events, %" PRIu64 " missing or damaged\n", examined.size(), events, lost);
}

void checkAsJson(const CacheContents& contents, const std::vector<Examined>& examined) {
  JsonText json;
  json.open('{').key("segments").open('[');
  for (const auto& [segment, health] : examined) {
    json.open('{').key("name").string(delivery::segmentName(segment->begin)).key("events").number(health.events);
    json.key("lost").number(health.lost).key("blemishes").number(health.blemishes);
    json.key("damaged_positions").number(health.hasPositions ? 0 : 1);
    json.key("unfinished_bytes").number(health.unfinished).close('}');
  }
  json.close(']').key("damaged_ledger_lines").number(static_cast<std::uint64_t>(contents.ledger.damagedLines));
  print(json.close('}').take() + '\n');
}

int check(const Options& options, const CacheContents& contents) {
  std::vector<Examined> examined;
  bool isDamaged = contents.ledger.damagedLines > 0;
  for (const Segment& segment : contents.log.segments) {
    Examined& last = examined.emplace_back(Examined{&segment, {}});
    if (const int error = delivery::examine(Files::real(), options.directory, segment, last.health)) {
      return cannotRead(options.directory + '/' + delivery::segmentName(segment.begin), error);
    }
    isDamaged = isDamaged || last.isDamaged();
  }
  options.isJson() ? checkAsJson(contents, examined) : checkAsText(contents, examined);
  return printed(isDamaged ? EXIT_FAILURE : EXIT_SUCCESS);
}

int exportEvents(const Options& options, const CacheContents& contents) {
  std::uint64_t from = options.from;
  if (!options.reader.empty()) {
    const auto reader = contents.ledger.cursors.find(options.reader);
    if (reader == contents.ledger.cursors.end()) {
      std::fprintf(stderr, "%s: there is no reader %s\n", kProgram, visible(options.reader).c_str());
      return kNotDone;
    }
    from = std::max(from, reader->second);
  }
  std::uint64_t lost = 0;
  const auto show = [&options, from](const Event& event) {
    if (event.number < from) return;
    if (!options.isJson()) {
      std::fwrite(event.bytes.data(), 1, event.bytes.size(), stdout);
      std::fputc('\n', stdout);
      return;
    }
    JsonText json;
    json.open('{').key("number").number(event.number).key("kind").number(event.kind);
    print(json.key("event").string(event.bytes).close('}').take() + '\n');
  };
  for (const Segment& segment : contents.log.segments) {
    SegmentHealth health;
    if (segment.end <= from) continue;
    if (const int error = delivery::examine(Files::real(), options.directory, segment, health, show)) {
      return cannotRead(options.directory + '/' + delivery::segmentName(segment.begin), error);
    }
    lost += health.lost;
  }
  if (lost > 0) std::fprintf(stderr, "%s: %" PRIu64 " events are missing or damaged\n", kProgram, lost);
  return printed(lost > 0 ? EXIT_FAILURE : EXIT_SUCCESS);
}

int repair(const Options& options) {
  Files& files = Files::real();
  const std::string lockPath = options.directory + "/lock";
  const delivery::File lock(files, files.lock(lockPath));
  if (lock.error() == EWOULDBLOCK) {
    std::fprintf(stderr, "%s: %s is in use; end the process that has it first\n", kProgram,
                 visible(options.directory).c_str());
    return kNotDone;
  }
  if (!lock) return cannotRead(lockPath, lock.error());
  std::vector<delivery::Repair> repairs;
  std::string path;
  const int error = delivery::repair(files, options.directory, repairs, path);
  for (const delivery::Repair& done : repairs) {
    std::printf("%s: %" PRIu64 " events, %" PRIu64 " were lost; the original is %s\n",
                delivery::segmentName(done.segment).c_str(), done.events, done.lost, visible(done.original).c_str());
  }
  if (error != 0) {
    complain(kProgram, "repair", path, error);
    return kNotDone;
  }
  if (repairs.empty()) std::printf("nothing is damaged\n");
  return printed(EXIT_SUCCESS);
}

void addCommands(CLI::App& app, Options& options) {
  const auto command = [&](const char* name, const char* what) {
    CLI::App* added = app.add_subcommand(name, what);
    added->add_option("DIRECTORY", options.directory, "The directory of the cache.")->required();
    return added;
  };
  const auto withForm = [&](CLI::App* added) {
    added->add_option("--output", options.output, "Print text or json.")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json"}));
    return added;
  };
  withForm(command("list", "List segments, readers and positions."));
  withForm(command("check", "Read all of it and say what is damaged."));
  command("repair", "Write damaged segments anew with all that can be read, and keep the originals.");
  CLI::App* exported = withForm(command("export", "Print the events, a line each."));
  exported->add_option("--reader", options.reader, "Only what this reader has not acknowledged.")->type_name("READER");
  exported->add_option("--from", options.from, "Only events of this number and above.")->type_name("NUMBER");
}

int runCommand(const CLI::App& app, const Options& options) {
  CacheContents contents;
  std::string path;
  if (app.got_subcommand("repair")) return repair(options);
  // What is not there at all is no empty cache.
  std::vector<std::string> names;
  int error = Files::real().list(options.directory, names);
  if (error != 0) return cannotRead(options.directory, error);
  error = delivery::readContents(Files::real(), options.directory, contents, path);
  if (error != 0) return cannotRead(path, error);
  if (app.got_subcommand("list")) return list(options, contents);
  if (app.got_subcommand("check")) return check(options, contents);
  return exportEvents(options, contents);
}

}  // namespace
}  // namespace quillon

int main(int argc, char** argv) {
  quillon::prepareTool();
  CLI::App app("Looks into a cache of events on disk, and repairs it.", "quillon-cache");
  app.require_subcommand(1);
  quillon::Options options;
  quillon::addCommands(app, options);
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  return quillon::runCommand(app, options);
}
