#include "src/adapters/logfile/source/TcpSource.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "foundation/sockets.h"
#include "src/adapters/logfile/source/LineSplitter.h"
#include "src/adapters/logfile/source/OctetSplitter.h"

namespace quillon {
namespace {

constexpr std::size_t kFirstRoom = 16384;
constexpr Duration kSweepEvery = std::chrono::seconds(1);

bool watch(int poller, int descriptor, std::uint64_t number) {
  epoll_event event = {};
  event.events = EPOLLIN | EPOLLRDHUP;
  event.data.u64 = number;
  return epoll_ctl(poller, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

TcpSource::TcpSource(const TcpOptions& options, Descriptor listener, Descriptor poller, SourceObserver& observer)
    : options_(options), listener_(std::move(listener)), poller_(std::move(poller)), observer_(observer) {
  address_ = boundAddress(listener_.get());
}

std::unique_ptr<TcpSource> TcpSource::open(const TcpOptions& options, SourceObserver& observer, std::string& error) {
  Descriptor listener = openInternetSocket(options.address, SOCK_STREAM, error);
  if (!listener) return nullptr;
  Descriptor poller(epoll_create1(EPOLL_CLOEXEC));
  if (!poller || !watch(poller.get(), listener.get(), 0)) {
    error = options.address + ": " + std::strerror(errno);
    return nullptr;
  }
  return std::unique_ptr<TcpSource>(new TcpSource(options, std::move(listener), std::move(poller), observer));
}

bool TcpSource::next(TimePoint now, Message& message) {
  if (ended_) return false;
  allowance_.begin();
  if (finishing_ && !stopBy_) stopBy_ = now + std::chrono::seconds(1);
  if (now >= nextSweep_) sweep(now);
  if (now >= listenAgain_ && listener_) {
    listenAgain_ = TimePoint::max();
    watch(poller_.get(), listener_.get(), 0);
  }
  while (true) {
    while (!turns_.empty()) {
      if (serve(now, message)) return true;
      if (allowance_.isUsedUp(now)) return false;
    }
    if (stopBy_ && now >= *stopBy_) break;
    if (wait(now)) continue;
    if (finishing_) break;
    if (now < deadline()) return false;
    sweep(now);
    if (turns_.empty()) return false;
  }
  // The end: what is left of each connection's last message is a message.
  if (!connections_.empty()) {
    for (auto& [number, connection] : connections_) {
      connection.atEnd = true;
      if (connection.stream) connection.stream->end();
      enqueue(number);
    }
    return next(now, message);
  }
  ended_ = true;
  return false;
}

/// Delivers the next message of the connection whose turn it is. False when its turn is over.
bool TcpSource::serve(TimePoint now, Message& message) {
  const std::uint64_t number = turns_.front();
  Connection& connection = connections_.at(number);
  std::uint64_t bytes = 0;
  if (connection.stream && connection.stream->next(now, message, bytes)) {
    count(message, bytes);
    return true;
  }
  if (connection.stream && connection.stream->isBroken()) {
    close(number, "what it sends is not framed as it says");
    return false;
  }
  if (connection.atEnd) {
    const bool isShort = connection.stream && connection.stream->endedShort() && !finishing_;
    close(number, isShort ? "it ended within a message" : nullptr);
    return false;
  }
  const bool isDue = connection.stream && now >= connection.stream->deadline();
  if ((connection.readable || isDue) && fill(number, connection, now)) {
    if (turns_.size() > 1) std::rotate(turns_.begin(), turns_.begin() + 1, turns_.end());
    return false;
  }
  if (isDue && connection.stream->expire(now, message, bytes)) {
    count(message, bytes);
    return true;
  }
  turns_.pop_front();
  connection.queued = false;
  return false;
}

/// Reads once. False when there is nothing to read.
bool TcpSource::fill(std::uint64_t number, Connection& connection, TimePoint now) {
  connection.readable = false;
  if (!connection.stream) {
    char first = 0;
    const ssize_t peeked = recv(connection.socket.get(), &first, 1, MSG_PEEK | MSG_DONTWAIT);
    if (peeked < 0 && (errno == EAGAIN || errno == EINTR)) return false;
    if (peeked > 0) chooseFraming(number, connection, first);
    connection.atEnd = peeked <= 0;
    if (connection.atEnd) return true;
  }
  const std::span<char> room = connection.stream->room();
  const ssize_t count = recv(connection.socket.get(), room.data(), room.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (count > 0) {
    connection.stream->filled(static_cast<std::size_t>(count));
    allowance_.took(static_cast<std::size_t>(count));
    connection.heard = now;
  } else {
    connection.atEnd = true;
    connection.stream->end();
  }
  return true;
}

void TcpSource::chooseFraming(std::uint64_t number, Connection& connection, char first) {
  const bool octets =
      options_.framing == Framing::kOctets || (options_.framing == Framing::kAuto && first >= '0' && first <= '9');
  std::unique_ptr<Splitter> splitter;
  if (octets) {
    splitter = std::make_unique<OctetSplitter>(options_.longest, kFirstRoom);
  } else {
    splitter = std::make_unique<LineSplitter>(options_.longest, kFirstRoom);
  }
  connection.stream.emplace(std::move(splitter), options_.longest, options_.joining, connection.peer, number);
}

void TcpSource::enqueue(std::uint64_t number) {
  Connection& connection = connections_.at(number);
  if (!std::exchange(connection.queued, true)) turns_.push_back(number);
}

/// Finds out who has something. False when nobody has.
bool TcpSource::wait(TimePoint now) {
  std::array<epoll_event, 64> events;
  const int count = epoll_wait(poller_.get(), events.data(), static_cast<int>(events.size()), 0);
  for (int i = 0; i < count; ++i) {
    const std::uint64_t number = events[static_cast<std::size_t>(i)].data.u64;
    if (number == 0) {
      accept(now);
    } else {
      connections_.at(number).readable = true;
      enqueue(number);
    }
  }
  return !turns_.empty();
}

void TcpSource::accept(TimePoint now) {
  while (listener_) {
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    Descriptor socket(accept4(listener_.get(), reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC));
    if (!socket) {
      if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
        observer_.notice(SourceObserver::Level::kError,
                         address_ + ": cannot let in more peers: " + std::strerror(errno));
        epoll_ctl(poller_.get(), EPOLL_CTL_DEL, listener_.get(), nullptr);  // else it would be readable all the time
        listenAgain_ = now + std::chrono::seconds(1);
      }
      return;
    }
    if (connections_.size() >= options_.connections) {
      ++counters_.refused;
      if (!std::exchange(refusing_, true)) {
        observer_.notice(SourceObserver::Level::kWarning, address_ + ": " + std::to_string(options_.connections) +
                                                              " connections are there; refused " +
                                                              hostOf(address, length));
      }
      continue;
    }
    const std::uint64_t number = ++lastNumber_;
    if (!watch(poller_.get(), socket.get(), number)) continue;
    Connection& connection = connections_[number];
    connection.socket = std::move(socket);
    connection.peer = hostOf(address, length);
    connection.heard = now;
    counters_.watching = connections_.size();
    if (nextSweep_ == TimePoint::max()) nextSweep_ = now + kSweepEvery;
  }
}

/// Closes who has been silent for too long, and gives messages that wait for more lines their turn.
void TcpSource::sweep(TimePoint now) {
  std::vector<std::uint64_t> silent;
  for (auto& [number, connection] : connections_) {
    if (connection.stream && now >= connection.stream->deadline()) enqueue(number);
    if (now - connection.heard >= options_.idle && !connection.atEnd) silent.push_back(number);
  }
  for (const std::uint64_t number : silent) {
    Connection& connection = connections_.at(number);
    observer_.notice(SourceObserver::Level::kInfo, address_ + ": closed " + connection.peer + ": silent for too long");
    connection.atEnd = true;
    if (connection.stream) connection.stream->end();
    enqueue(number);
  }
  nextSweep_ = connections_.empty() ? TimePoint::max() : now + kSweepEvery;
}

/// Ends the connection whose turn it is; `why` when that is the peer's fault.
void TcpSource::close(std::uint64_t number, const char* why) {
  if (why) {
    ++counters_.refused;
    observer_.notice(SourceObserver::Level::kWarning,
                     address_ + ": closed " + connections_.at(number).peer + ": " + why);
  }
  turns_.pop_front();
  connections_.erase(number);
  counters_.watching = connections_.size();
  refusing_ = false;
}

TimePoint TcpSource::deadline() const {
  TimePoint first = std::min({nextSweep_, listenAgain_, allowance_.resumeAt()});
  if (options_.joining.indented) {
    for (const auto& entry : connections_) {
      if (entry.second.stream) first = std::min(first, entry.second.stream->deadline());
    }
  }
  return first;
}

void TcpSource::finish(Finish /*how*/) {
  finishing_ = true;
  listener_ = Descriptor();
}

}  // namespace quillon
