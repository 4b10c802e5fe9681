#include "delivery/transport/Lookup.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

namespace quillon::delivery {

struct Lookup::Answer {
  Descriptor done{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::atomic<bool> isDone = false;  ///< Set last.
  std::vector<SocketAddress> addresses;
  std::string error;
};

namespace {

/// False when the host is a name and only numbers are wanted.
template <class Answer>
bool lookUp(const std::string& host, const std::string& port, int flags, Answer& answer) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* list = nullptr;
  const int failure = getaddrinfo(host.c_str(), port.c_str(), &wanted, &list);
  if (failure == EAI_NONAME && (flags & AI_NUMERICHOST) != 0) return false;
  if (failure != 0) answer.error = gai_strerror(failure);
  for (const addrinfo* a = failure == 0 ? list : nullptr; a; a = a->ai_next) {
    SocketAddress& address = answer.addresses.emplace_back();
    std::memcpy(&address.bytes, a->ai_addr, a->ai_addrlen);
    address.size = a->ai_addrlen;
  }
  if (failure == 0) freeaddrinfo(list);
  answer.isDone = true;
  eventfd_write(answer.done.get(), 1);
  return true;
}

}  // namespace

Lookup::Lookup(const std::string& address) : answer_(std::make_shared<Answer>()) {
  const std::string host = hostIn(address);
  const std::string port = address.substr(address.rfind(':') + 1);
  if (lookUp(host, port, AI_NUMERICHOST, *answer_)) return;
  try {
    std::thread([answer = answer_, host, port] { lookUp(host, port, 0, *answer); }).detach();
  } catch (const std::system_error& problem) {  // the library knows no other way
    answer_->error = problem.what();
    answer_->isDone = true;
    eventfd_write(answer_->done.get(), 1);
  }
}

Lookup::~Lookup() = default;

int Lookup::descriptor() const { return answer_->done.get(); }
bool Lookup::isDone() const { return answer_->isDone; }
const std::vector<SocketAddress>& Lookup::addresses() const { return answer_->addresses; }
const std::string& Lookup::error() const { return answer_->error; }

std::string hostIn(const std::string& address) {
  std::string host = address.substr(0, address.rfind(':'));
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  return host;
}

SocketAddress unixAddress(const std::string& path) {
  SocketAddress address;
  sockaddr_un local{};
  local.sun_family = AF_UNIX;
  if (path.size() >= sizeof local.sun_path) return address;
  std::memcpy(local.sun_path, path.c_str(), path.size() + 1);
  std::memcpy(&address.bytes, &local, sizeof local);
  address.size = sizeof local;
  return address;
}

Descriptor beginConnecting(const SocketAddress& address) {
  Descriptor made(socket(address.bytes.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) return made;
  const int on = 1;
  // Whoever sends in batches has nothing to wait for.
  if (address.bytes.ss_family != AF_UNIX) setsockopt(made.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (connect(made.get(), reinterpret_cast<const sockaddr*>(&address.bytes), address.size) == 0) return made;
  if (errno == EINPROGRESS) return made;
  const int error = errno;
  static_cast<void>(made.close());
  errno = error;
  return made;
}

}  // namespace quillon::delivery
