#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "config/line_output_config.h"
#include "delivery/Record.h"
#include "delivery/destinations/Destination.h"
#include "delivery/record_json.h"
#include "foundation/checkpoint.h"
#include "foundation/line_output.h"

namespace quillon::delivery {
namespace {

/// Lines are gathered up to about this size before they are written, when there are so many.
constexpr std::size_t kWriteBytes = 1 << 20;
constexpr std::chrono::seconds kRetry(1);

/// A file of NDJSON, or standard output. Events count as delivered when they are on the disk, where that is asked for
/// and means anything. A process that is killed writes those again that it had not acknowledged, a batch at most.
class FileDestination : public Destination {
 public:
  FileDestination(LineOutputOptions options, bool doesSync) : options_(std::move(options)), doesSync_(doesSync) {}

  bool takesAllForms() const override { return true; }

  void run(Feed& feed) const override {
    LineOutput output;
    while (!open(feed, output)) {
      if (feed.stopping()) return;
      feed.wait(Feed::Clock::now() + kRetry);
    }
    Feed::Events events;
    Record record;
    std::string line;
    while (!feed.stopping()) {
      bool isAny = false;
      while (output.lines().text().size() < kWriteBytes && feed.read(events)) {
        for (const Event& event : events.events) append(feed, event, record, line, output);
        isAny = true;
      }
      if (!isAny && feed.draining()) return;
      if (!isAny) {
        feed.wait(Feed::Clock::time_point::max());
      } else if (write(feed, output)) {
        feed.delivered(events.end);
      }
    }
  }

 private:
  bool open(Feed& feed, LineOutput& output) const {
    const std::string error = output.open(options_, LineOutput::Clock::now());
    if (!error.empty()) feed.report(Feed::Level::kError, error);
    feed.connected(error.empty());
    return error.empty();
  }

  static void append(Feed& feed, const Event& event, Record& record, std::string& line, LineOutput& output) {
    if (!decode(event.bytes, record)) {
      feed.report(Feed::Level::kError, "what cannot be read as an event is left out");
      return feed.count("unreadable", 1);
    }
    line.clear();
    appendJson(line, record);
    line += '\n';
    output.lines().append(line);
  }

  /// Writes what was gathered, however long that takes. False when it is to stop, or reads all of it again.
  bool write(Feed& feed, LineOutput& output) const {
    int told = 0;
    while (const int error = tryWrite(output)) {
      feed.connected(error == EAGAIN);
      if (error != EAGAIN && error != std::exchange(told, error)) tell(feed, "cannot write ", error);
      if (feed.stopping()) return false;
      waitFor(feed, output, error);
    }
    checkpoint("destination-written");
    if (told != 0) feed.report(Feed::Level::kInfo, "is written again");
    feed.connected(true);
    return !doesSync_ || sync(feed, output);
  }

  static int tryWrite(LineOutput& output) {
    const int error = output.reopenIfMoved();
    return error != 0 ? error : output.flush(LineOutput::Clock::now());
  }

  /// What could not be synced may be gone, even if the next sync says that all is well.
  bool sync(Feed& feed, LineOutput& output) const {
    const int error = output.sync();
    checkpoint("destination-synced");
    if (error == 0) return true;
    tell(feed, "cannot sync ", error);
    feed.connected(false);
    feed.again();
    feed.wait(Feed::Clock::now() + kRetry);
    return false;
  }

  void tell(Feed& feed, const char* what, int error) const {
    const std::string name = options_.path.empty() ? "standard output" : options_.path;
    feed.report(Feed::Level::kError, what + name + ": " + std::strerror(error));
  }

  static void waitFor(Feed& feed, const LineOutput& output, int error) {
    // Nobody else will read from a pipe whose reader is gone; the next start may have one.
    if (error == EPIPE) return feed.wait(Feed::Clock::time_point::max());
    pollfd writable{output.descriptor(), POLLOUT, 0};
    if (error == EAGAIN) {
      feed.wait(Feed::Clock::now() + kRetry, {&writable, 1});
    } else {
      feed.wait(Feed::Clock::now() + kRetry);
    }
  }

  const LineOutputOptions options_;
  const bool doesSync_;
};

}  // namespace

std::unique_ptr<Destination> readFileDestination(TomlTable& table, const std::string& directory) {
  LineOutputOptions options;
  bool doesSync = true;
  table.require("path");
  readLineOutput(table, directory, options);
  table.read("sync", doesSync);
  return std::make_unique<FileDestination>(std::move(options), doesSync);
}

std::unique_ptr<Destination> readStdoutDestination(TomlTable& /*table*/, const std::string& /*directory*/) {
  return std::make_unique<FileDestination>(LineOutputOptions(), false);
}

}  // namespace quillon::delivery
