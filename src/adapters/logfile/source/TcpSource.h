#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_TCPSOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_TCPSOURCE_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "foundation/descriptor.h"
#include "src/adapters/logfile/source/MessageStream.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// How a connection shows where messages end.
enum class Framing {
  kAuto,     ///< By the first byte of the connection: a digit means kOctets.
  kNewline,  ///< A newline behind each.
  kOctets,   ///< Its length and a blank before each.
};

struct TcpOptions {
  std::string address;  ///< "HOST:PORT"
  Framing framing = Framing::kAuto;
  std::size_t longest = 1 << 20;  ///< Of a message, in bytes. So much may each connection take in memory, twice.
  std::size_t connections = 256;  ///< At a time; one more is closed at once.
  Duration idle = std::chrono::minutes(10);  ///< A connection that sends nothing for so long is closed.
  Joining joining;

  bool operator==(const TcpOptions&) const = default;
};

/// Syslog by TCP, framed by newlines or by octet counting (RFC 6587). What a peer sends wrongly costs its own
/// connection and nothing else; each connection gets its turn. The path of a message is the peer's address. Of a
/// message with its length in front that the peer does not send to its end, what came is delivered as it stands; the
/// connection is then told and counted as refused.
///
/// Such peers get no receipt: what the kernel took and nobody read is lost with this process.
class TcpSource : public Source {
 public:
  /// Null when the socket cannot be had, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<TcpSource> open(const TcpOptions& options, SourceObserver& observer,
                                                       std::string& error);

  bool next(TimePoint now, Message& message) override;
  int descriptor() const override { return poller_.get(); }
  TimePoint deadline() const override;
  /// Either way nobody is let in any more, and what the peers have sent so far is read, for a second at most.
  void finish(Finish how) override;
  bool ended() const override { return ended_; }

  /// Where it listens: "127.0.0.1:514".
  const std::string& address() const { return address_; }

 private:
  struct Connection {
    Descriptor socket;
    std::string peer;
    std::optional<MessageStream> stream;  ///< None before the first byte.
    TimePoint heard;
    bool readable = false;
    bool queued = false;
    bool atEnd = false;
  };

  TcpSource(const TcpOptions& options, Descriptor listener, Descriptor poller, SourceObserver& observer);

  bool serve(TimePoint now, Message& message);
  bool fill(std::uint64_t number, Connection& connection, TimePoint now);
  void chooseFraming(std::uint64_t number, Connection& connection, char first);
  void enqueue(std::uint64_t number);
  bool wait(TimePoint now);
  void accept(TimePoint now);
  void sweep(TimePoint now);
  void close(std::uint64_t number, const char* why);

  const TcpOptions options_;
  Descriptor listener_;
  Descriptor poller_;  ///< epoll: the listener as 0, connections by their numbers.
  SourceObserver& observer_;
  std::string address_;
  std::unordered_map<std::uint64_t, Connection> connections_;
  std::deque<std::uint64_t> turns_;  ///< Connections with something to read or deliver; the first is being served.
  std::uint64_t lastNumber_ = 0;
  TimePoint nextSweep_ = TimePoint::max();
  TimePoint listenAgain_ = TimePoint::max();  ///< Descriptors were used up; nobody is let in until then.
  bool refusing_ = false;                     ///< Told that there are too many.
  bool finishing_ = false;
  std::optional<TimePoint> stopBy_;
  bool ended_ = false;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_TCPSOURCE_H_
