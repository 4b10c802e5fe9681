// The destination `syslog`: a message of RFC 5424 for each event, over TCP or TLS, framed by its length (RFC
// 6587, 3.4.1). Nobody acknowledges syslog: an event counts as delivered when the system has taken it, and what is on
// its way when a connection ends is lost.

#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include "delivery/Record.h"
#include "delivery/destinations/Backoff.h"
#include "delivery/destinations/Connector.h"
#include "delivery/destinations/Destination.h"
#include "delivery/record_json.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = Feed::Clock;

constexpr std::size_t kWriteBytes = 64 << 10;
constexpr seconds kConnectPatience(10);
constexpr milliseconds kFirstWait(100);
constexpr seconds kLongestWait(30);

struct SyslogOptions : Endpoint {
  unsigned facility = 1;
  unsigned severity = 5;
  std::string appName = "quillon";
};

/// As a field of the header has it: printable ASCII, no more than `most`; "-" for nothing.
void appendField(std::string& out, std::string_view text, std::size_t most) {
  out += ' ';
  if (text.empty()) out += '-';
  for (const char c : text.substr(0, most)) out += c > ' ' && c < '\x7f' ? c : '_';
}

/// "2026-11-22T03:24:00.123456Z".
void appendTime(std::string& out, std::chrono::system_clock::time_point now) {
  const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count();
  const std::time_t whole = micros / 1'000'000;
  std::tm utc{};
  gmtime_r(&whole, &utc);
  std::array<char, 32> text{};
  out.append(text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc));
  const std::string fraction = std::to_string(1'000'000 + micros % 1'000'000);
  (out += '.').append(fraction, 1) += 'Z';
}

class SyslogSender {
 public:
  SyslogSender(const SyslogOptions& options, Feed& feed) : options_(options), feed_(feed) {}

  void run() {
    while (!feed_.stopping() && !isOver_) {
      std::string failure = connect(options_, feed_, Clock::now() + kConnectPatience, stream_);
      if (failure.empty()) {
        feed_.connected(true);
        feed_.count("connections");
        failure = converse();
      }
      feed_.connected(false);
      leave();
      if (failure.empty() || feed_.stopping()) continue;
      feed_.report(Feed::Level::kWarning, failure);
      pause(feed_, Clock::now() + backoff_.next());
    }
  }

 private:
  void leave() {
    stream_.reset();
    if (out_.empty()) return;
    out_.clear();
    written_ = 0;
    feed_.again();
  }

  /// Why the connection has ended; empty when that was wanted.
  std::string converse() {
    while (!feed_.stopping()) {
      if (out_.empty()) gather();
      if (out_.empty() && feed_.draining()) {
        isOver_ = true;
        return "";
      }
      if (std::string failure = look(); !failure.empty()) return failure;
      bool isWaiting = out_.empty();
      if (std::string failure = write(isWaiting); !failure.empty()) return failure;
      if (!isWaiting) continue;
      pollfd socket{stream_->descriptor(), static_cast<short>(out_.empty() ? POLLIN : POLLIN | stream_->events()), 0};
      feed_.wait(Clock::time_point::max(), {&socket, 1});
    }
    return "";
  }

  void gather() {
    Feed::Events events;
    bool isAny = false;
    for (; out_.size() < kWriteBytes && feed_.read(events); isAny = true) {
      for (const Event& event : events.events) append(event);
      end_ = events.end;
    }
    if (isAny && out_.empty()) feed_.delivered(end_);
  }

  void append(const Event& event) {
    if (!decode(event.bytes, record_)) {
      feed_.report(Feed::Level::kError, "what cannot be read as an event is left out");
      return feed_.count("unreadable");
    }
    message_ = "<" + std::to_string(options_.facility * 8 + options_.severity) + ">1 ";
    appendTime(message_, std::chrono::system_clock::now());
    appendField(message_, record_.source.substr(0, record_.source.find('/')), 255);
    appendField(message_, options_.appName, 48);
    message_ += " -";
    appendField(message_, record_.className, 32);
    message_ += " - ";
    appendJson(message_, record_);
    (out_ += std::to_string(message_.size()) += ' ') += message_;
  }

  /// Nothing is to be read but the end.
  std::string look() {
    std::array<char, 256> room{};
    std::size_t count = 0;
    Stream::Result result = Stream::Result::kDone;
    while ((result = stream_->read(room, count)) == Stream::Result::kDone) {
    }
    if (result == Stream::Result::kEnd) return "the server has ended the connection; what was on its way is lost";
    return result == Stream::Result::kFailed ? "the connection is lost: " + stream_->error() : "";
  }

  std::string write(bool& isWaiting) {
    while (written_ < out_.size()) {
      std::size_t count = 0;
      const Stream::Result result = stream_->write(std::string_view(out_).substr(written_), count);
      if (result == Stream::Result::kWait) {
        isWaiting = true;
        return "";
      }
      if (result != Stream::Result::kDone) return "the connection is lost: " + stream_->error();
      written_ += count;
    }
    if (out_.empty()) return "";
    feed_.delivered(end_);
    backoff_.reset();
    out_.clear();
    written_ = 0;
    return "";
  }

  const SyslogOptions& options_;
  Feed& feed_;
  Backoff backoff_{kFirstWait, kLongestWait};
  std::optional<Stream> stream_;
  std::string out_;
  std::size_t written_ = 0;
  std::uint64_t end_ = 0;
  bool isOver_ = false;
  Record record_;
  std::string message_;
};

class SyslogDestination : public Destination {
 public:
  explicit SyslogDestination(SyslogOptions options) : options_(std::move(options)) {}
  void run(Feed& feed) const override { SyslogSender(options_, feed).run(); }
  bool takesAllForms() const override { return true; }

 private:
  const SyslogOptions options_;
};

}  // namespace

std::unique_ptr<Destination> readSyslogDestination(TomlTable& table, const std::string& directory) {
  SyslogOptions options;
  readEndpoint(table, directory, options);
  table.readWord(
      "facility", options.facility,
      {{"kern", 0},    {"user", 1},    {"mail", 2},    {"daemon", 3},    {"auth", 4},    {"syslog", 5},  {"lpr", 6},
       {"news", 7},    {"uucp", 8},    {"cron", 9},    {"authpriv", 10}, {"ftp", 11},    {"local0", 16}, {"local1", 17},
       {"local2", 18}, {"local3", 19}, {"local4", 20}, {"local5", 21},   {"local6", 22}, {"local7", 23}});
  table.readWord(
      "severity", options.severity,
      {{"emerg", 0}, {"alert", 1}, {"crit", 2}, {"err", 3}, {"warning", 4}, {"notice", 5}, {"info", 6}, {"debug", 7}});
  table.readName("app_name", options.appName);
  return std::make_unique<SyslogDestination>(std::move(options));
}

}  // namespace quillon::delivery
