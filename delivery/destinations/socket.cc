// The destination `socket`: an event server, by the protocol of doc/event-protocol.md. Many batches are under way at a
// time, as many bytes of them as the window has; what was not acknowledged when a connection ends goes out again on the
// next one, and the server knows by its number what it has.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <optional>
#include <utility>

#include "config/address.h"
#include "delivery/destinations/Backoff.h"
#include "delivery/destinations/Destination.h"
#include "delivery/protocol/frames.h"
#include "delivery/transport/Lookup.h"
#include "delivery/transport/Stream.h"
#include "foundation/checkpoint.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = Feed::Clock;

/// Bytes of a batch, unless it has but one event: small enough to be on its way while the next one is made.
constexpr std::size_t kBatchTarget = 256 << 10;
constexpr Clock::duration kFirstWait = milliseconds(100);
/// For a server to be reached, and to say that it takes the client.
constexpr Clock::duration kConnectPatience = seconds(10);
constexpr milliseconds kDay{86'400'000};

struct SocketOptions {
  std::string address;  ///< HOST:PORT; empty when there is a path.
  std::string path;     ///< Of a Unix socket.
  bool isTls = false;
  TlsOptions tls;
  std::string serverName;  ///< That the certificate has to be for.
  std::string tokenFile;
  std::uint64_t window = 4 << 20;
  Clock::duration patience = seconds(30);
  Clock::duration longestWait = seconds(30);

  const std::string& name() const { return path.empty() ? address : path; }
};

/// The first line of a file. Nothing, with errno, when it cannot be read.
std::optional<std::string> firstLine(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return std::nullopt;
  std::string text(kMostTokenBytes + 2, '\0');
  const ssize_t got = read(file.get(), text.data(), text.size());
  if (got < 0) return std::nullopt;
  text.resize(static_cast<std::size_t>(got));
  text.resize(std::min(text.find_first_of("\r\n"), text.size()));
  return text;
}

/// Brings the events of one feed to the server, as long as the feed wants.
class SocketSender {
 public:
  SocketSender(const SocketOptions& options, Feed& feed) : options_(options), feed_(feed) {}

  void run() {
    while (!isOver()) {
      const Clock::time_point began = Clock::now();
      advanced_ = false;
      const std::string failure = converse();
      feed_.connected(false);
      leave();
      if (feed_.stopping() || failure.empty()) continue;
      feed_.report(Feed::Level::kWarning, failure);
      if (advanced_ || Clock::now() - began > options_.longestWait) backoff_.reset();
      pause(feed_, Clock::now() + backoff_.next());
    }
  }

 private:
  struct Sent {
    std::uint64_t end;
    std::size_t bytes;  ///< 0 when nothing of it was sent: as the server has it, or will never take it.
  };

  bool isOver() { return feed_.stopping() || (feed_.draining() && window_.empty() && !hasMore()); }

  /// Forgets the connection and all that is under way on it.
  void leave() {
    stream_.reset();
    reader_ = FrameReader();
    out_.clear();
    written_ = 0;
    window_.clear();
    bytesUnderWay_ = 0;
    events_ = {};
    at_ = 0;
    feed_.again();
  }

  /// One connection, from its beginning to its end. Why it ended; empty when that was wanted.
  std::string converse() {
    if (std::string failure = connect(); !failure.empty() || feed_.stopping()) return failure;
    if (std::string failure = greet(); !failure.empty()) return failure;
    feed_.count("connections");
    while (!feed_.stopping()) {
      if (isWelcome_) fill();
      if (isOver()) return "";
      const Clock::time_point now = Clock::now();
      if (now >= deadline_) return isWelcome_ ? "the server is silent" : "the server says nothing";
      if (out_.empty() && now >= sentAt_ + aliveAfter_) encodeAlive(out_);
      bool isWriting = false;
      if (std::string failure = write(isWriting); !failure.empty()) return failure;
      bool hasRead = false;
      if (std::string failure = read(hasRead); !failure.empty()) return failure;
      if (hasRead) continue;
      pollfd socket{stream_->descriptor(), static_cast<short>(isWriting ? POLLIN | POLLOUT : POLLIN), 0};
      feed_.wait(out_.empty() ? std::min(deadline_, sentAt_ + aliveAfter_) : deadline_, {&socket, 1});
    }
    return "";
  }

  std::string connect() {
    deadline_ = Clock::now() + kConnectPatience;
    std::string failure = "cannot connect to " + options_.name() + ": ";
    std::shared_ptr<const Tls> tls;
    std::string error;
    // Read for each connection: certificates are renewed.
    if (options_.isTls && !(tls = Tls::client(options_.tls, error))) return error;
    Descriptor socket;
    if (options_.path.empty()) {
      const Lookup lookup(options_.address);
      while (!lookup.isDone()) {
        if (!waitFor(lookup.descriptor(), POLLIN)) return failure + "its address is not found in time";
      }
      error = lookup.error();
      for (const SocketAddress& address : lookup.addresses()) {
        if ((socket = connectTo(address, error))) break;
      }
    } else {
      socket = connectTo(unixAddress(options_.path), error);
    }
    if (!socket) return failure + error;
    if (!tls) {
      stream_.emplace(std::move(socket));
      return "";
    }
    stream_.emplace(std::move(socket), std::move(tls), options_.serverName);
    Stream::Result result = Stream::Result::kWait;
    while ((result = stream_->handshake()) == Stream::Result::kWait) {
      if (!waitFor(stream_->descriptor(), stream_->events())) return failure + "no answer in time";
    }
    if (result == Stream::Result::kEnd) return failure + "the server ended the connection while it was secured";
    return result == Stream::Result::kDone ? "" : failure + stream_->error();
  }

  Descriptor connectTo(const SocketAddress& address, std::string& error) {
    Descriptor socket = address.size == 0 ? Descriptor() : beginConnecting(address);
    if (!socket) {
      error = address.size == 0 ? "the path is too long for a socket" : std::strerror(errno);
      return socket;
    }
    if (!waitFor(socket.get(), POLLOUT)) {
      error = "no answer in time";
      return {};
    }
    int problem = 0;
    socklen_t size = sizeof problem;
    getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &problem, &size);
    if (problem == 0) return socket;
    error = std::strerror(problem);
    return {};
  }

  /// False when it is not ready by the deadline, or the destination is to stop.
  bool waitFor(int descriptor, short events) {
    pollfd one{descriptor, events, 0};
    while (!feed_.stopping() && Clock::now() < deadline_) {
      feed_.wait(deadline_, {&one, 1});
      if (one.revents != 0) return true;
    }
    return false;
  }

  std::string greet() {
    std::optional<std::string> token = "";
    if (!options_.tokenFile.empty()) token = firstLine(options_.tokenFile);
    if (!token) return "cannot read the token " + options_.tokenFile + ": " + std::strerror(errno);
    isWelcome_ = false;
    sentAt_ = Clock::now();
    aliveAfter_ = kConnectPatience;
    Hello hello;
    hello.patience = std::chrono::duration_cast<milliseconds>(options_.patience);
    hello.client = feed_.clientId();
    hello.token = *token;
    encode(hello, out_);
    return "";
  }

  /// There is an event, or a mere end, that has not been sent.
  bool hasMore() {
    if (at_ < events_.events.size()) return true;
    at_ = 0;
    while (feed_.read(events_)) {
      if (!events_.events.empty()) return true;
      skipTo(events_.end);
    }
    events_.events.clear();
    return false;
  }

  /// Nothing has to be sent below `end` that was not.
  void skipTo(std::uint64_t end) {
    window_.push_back({end, 0});
    settle();
  }

  /// Makes batches as far as the window allows.
  void fill() {
    while (bytesUnderWay_ < options_.window && hasMore()) {
      const std::span<const Event> rest = std::span<const Event>(events_.events).subspan(at_);
      if (rest.front().number < taken_) {
        ++at_;
        skipTo(rest.size() > 1 ? rest[1].number : events_.end);
        continue;
      }
      std::size_t bytes = kBatchBytes;
      std::size_t count = 0;
      for (; count < rest.size(); ++count) {
        const std::size_t more = kBatchRecordBytes + rest[count].bytes.size();
        const bool isFar = rest[count].number - rest.front().number > UINT32_MAX;
        if (isFar || bytes + more > (count == 0 ? mostBatch_ : std::min(mostBatch_, kBatchTarget))) break;
        bytes += more;
      }
      at_ += std::max<std::size_t>(count, 1);
      const std::uint64_t end = at_ < events_.events.size() ? events_.events[at_].number : events_.end;
      if (count == 0) {
        feed_.count("too_large");
        feed_.report(Feed::Level::kError, "an event of " + std::to_string(rest.front().bytes.size()) +
                                              " bytes is left out: the server takes " + std::to_string(mostBatch_));
        skipTo(end);
        continue;
      }
      encodeBatch(rest.first(count), end, out_);
      window_.push_back({end, bytes});
      bytesUnderWay_ += bytes;
    }
  }

  /// Takes from the window what the server has.
  void settle() {
    while (!window_.empty() && (window_.front().bytes == 0 || window_.front().end <= taken_)) {
      bytesUnderWay_ -= window_.front().bytes;
      feed_.delivered(window_.front().end);
      window_.pop_front();
    }
  }

  /// `isWaiting` when not all could be written.
  std::string write(bool& isWaiting) {
    while (written_ < out_.size()) {
      std::size_t count = 0;
      const Stream::Result result = stream_->write(std::string_view(out_).substr(written_), count);
      if (result == Stream::Result::kWait) {
        isWaiting = stream_->events() == POLLOUT;
        return "";
      }
      // The server may have said why before it closed.
      if (result != Stream::Result::kDone) return lastWords("the connection is lost: " + stream_->error());
      written_ += count;
      sentAt_ = Clock::now();
    }
    out_.clear();
    written_ = 0;
    checkpoint("client-sent");
    return "";
  }

  std::string lastWords(std::string failure) {
    bool hasRead = true;
    while (hasRead) {
      hasRead = false;
      std::string said = read(hasRead);
      if (said.starts_with("refused")) return said;
      if (!said.empty()) break;
    }
    return failure;
  }

  /// Takes what has come; `hasRead` when there may be more.
  std::string read(bool& hasRead) {
    const std::span<char> room = reader_.room();
    std::size_t count = 0;
    const Stream::Result result = stream_->read(room, count);
    if (result == Stream::Result::kWait) return "";
    if (result == Stream::Result::kEnd) return "the server has ended the connection";
    if (result == Stream::Result::kFailed) return "the connection is lost: " + stream_->error();
    hasRead = true;
    reader_.put(count);
    Frame frame;
    FrameReader::Result got = FrameReader::Result::kMore;
    while ((got = reader_.next(frame)) == FrameReader::Result::kFrame) {
      if (std::string failure = take(frame); !failure.empty()) return failure;
      deadline_ = Clock::now() + options_.patience;
    }
    return got == FrameReader::Result::kBad ? "the server is not understood: " + reader_.error() : "";
  }

  std::string take(const Frame& frame) {
    if (frame.kind == FrameKind::kRefusal) {
      Refusal refusal;
      if (!decode(frame.body, refusal)) return "refused, for a reason that cannot be read";
      return "refused: " + std::string(refusal.reason);
    }
    Welcome welcome;
    if (!isWelcome_ && frame.kind == FrameKind::kWelcome && decode(frame.body, welcome)) return begin(welcome);
    std::uint64_t next = 0;
    if (isWelcome_ && frame.kind == FrameKind::kTaken && decodeTaken(frame.body, next)) {
      checkpoint("client-told");
      advanced_ = advanced_ || next > taken_;
      taken_ = std::max(taken_, next);
      settle();
      checkpoint("client-kept");
      return "";
    }
    if (isWelcome_ && frame.kind == FrameKind::kAlive) return "";
    return "the server is not understood: a frame came out of turn";
  }

  std::string begin(const Welcome& welcome) {
    if (welcome.version != kProtocolVersion) {
      return "the server speaks version " + std::to_string(welcome.version) + " of the protocol";
    }
    isWelcome_ = true;
    aliveAfter_ = std::max(milliseconds(10), welcome.patience / 3);
    mostBatch_ = std::min<std::size_t>(welcome.mostBatch, kMostBatchBodyBytes);
    taken_ = welcome.next;
    if (welcome.next < feed_.delivered()) {
      feed_.report(Feed::Level::kWarning, "the server has events below number " + std::to_string(welcome.next) +
                                              ", of those below " + std::to_string(feed_.delivered()) +
                                              " that a server had acknowledged; it gets again what is still there");
      events_ = {};
      at_ = 0;
      feed_.rewind(welcome.next);
    }
    feed_.connected(true);
    feed_.report(Feed::Level::kInfo, "connected to " + options_.name());
    return "";
  }

  const SocketOptions& options_;
  Feed& feed_;
  std::optional<Stream> stream_;
  FrameReader reader_;
  std::string out_;          ///< Frames to be written,
  std::size_t written_ = 0;  ///< of which so many bytes were.
  Feed::Events events_;
  std::size_t at_ = 0;  ///< Of `events_`, the first that was not sent.
  std::deque<Sent> window_;
  std::size_t bytesUnderWay_ = 0;
  std::uint64_t taken_ = 0;  ///< The server has all below.
  std::size_t mostBatch_ = 0;
  bool isWelcome_ = false;
  bool advanced_ = false;
  Clock::time_point deadline_;  ///< When the server is taken for gone.
  Clock::time_point sentAt_;
  Clock::duration aliveAfter_{};
  Backoff backoff_{kFirstWait, options_.longestWait};
};

class SocketDestination : public Destination {
 public:
  explicit SocketDestination(SocketOptions options) : options_(std::move(options)) {}

  void run(Feed& feed) const override {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);  // a server that is gone is an error of the write
    SocketSender(options_, feed).run();
  }

  bool takesAllForms() const override { return true; }

 private:
  const SocketOptions options_;
};

}  // namespace

std::unique_ptr<Destination> readSocketDestination(TomlTable& table, const std::string& directory) {
  SocketOptions options;
  table.readPath("path", directory, options.path);
  const bool hasAddress = table.readName("address", options.address);
  if (hasAddress == table.has("path")) {
    table.report("address", "a socket needs either an address or the path of a Unix socket");
  } else if (hasAddress && (!isAddress(options.address) || options.address.starts_with(':'))) {
    table.report("address", "the address must be HOST:PORT, such as \"192.0.2.1:4711\" or \"[::1]:4711\"");
  }
  table.read("tls", options.isTls);
  for (const char* const key : {"ca", "certificate", "key", "server_name", "verify"}) {
    if (table.has(key) && !options.isTls) table.report(key, std::string(key) + " needs tls = true");
  }
  table.readPath("ca", directory, options.tls.ca);
  table.readPath("certificate", directory, options.tls.certificate);
  table.readPath("key", directory, options.tls.key);
  table.read("verify", options.tls.verify);
  table.readName("server_name", options.serverName);
  if (options.isTls && options.serverName.empty()) {
    if (!options.path.empty()) table.report("tls", "TLS through a Unix socket needs server_name");
    if (isAddress(options.address)) options.serverName = hostIn(options.address);
  }
  table.readPath("token_file", directory, options.tokenFile);
  table.readSize("window", options.window, 64 << 10, 1 << 30);
  table.readDuration("patience", options.patience, milliseconds(100), kDay);
  table.readDuration("longest_wait", options.longestWait, milliseconds(10), kDay);
  return std::make_unique<SocketDestination>(std::move(options));
}

}  // namespace quillon::delivery
