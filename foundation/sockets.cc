#include "foundation/sockets.h"

#include <netdb.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace quillon {
namespace {

struct AddressListDeleter {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListDeleter>;

/// False when `address` is not HOST:PORT.
bool splitAddress(const std::string& address, std::string& host, std::string& port) {
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon + 1 == address.size()) return false;
  host = address.substr(0, colon);
  port = address.substr(colon + 1);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string::npos) {
    return false;  // an IPv6 address needs its brackets
  }
  return true;
}

Descriptor open(const addrinfo& address) {
  Descriptor opened(socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!opened) return opened;
  const int on = 1;
  const int off = 0;
  if (address.ai_socktype == SOCK_STREAM) setsockopt(opened.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (address.ai_family == AF_INET6) setsockopt(opened.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  if (bind(opened.get(), address.ai_addr, address.ai_addrlen) != 0) return {};
  if (address.ai_socktype == SOCK_STREAM && listen(opened.get(), SOMAXCONN) != 0) return {};
  return opened;
}

}  // namespace

Descriptor openInternetSocket(const std::string& address, int type, std::string& error) {
  std::string host;
  std::string port;
  if (!splitAddress(address, host, port)) {
    error = address + ": is not HOST:PORT";
    return {};
  }
  addrinfo wanted = {};
  wanted.ai_flags = AI_PASSIVE;
  wanted.ai_socktype = type;
  addrinfo* list = nullptr;
  const int failure = getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &wanted, &list);
  if (failure != 0) {
    error = address + ": " + gai_strerror(failure);
    return {};
  }
  const AddressList addresses(list);
  // Of all addresses, that of IPv6 stands for those of IPv4 too.
  for (const bool six : {true, false}) {
    for (const addrinfo* a = list; a; a = a->ai_next) {
      if ((a->ai_family == AF_INET6) != six) continue;
      if (Descriptor opened = open(*a)) return opened;
      error = address + ": " + std::strerror(errno);
    }
  }
  return {};
}

std::string boundAddress(int socket) {
  sockaddr_storage address = {};
  socklen_t length = sizeof address;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return "";
  char port[NI_MAXSERV];
  if (getnameinfo(reinterpret_cast<sockaddr*>(&address), length, nullptr, 0, port, sizeof port,
                  NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "";
  }
  const std::string host = hostOf(address, length);
  return (host.find(':') == std::string::npos ? host : '[' + host + ']') + ':' + port;
}

std::string hostOf(const sockaddr_storage& address, socklen_t length) {
  char host[NI_MAXHOST];
  if (getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host, sizeof host, nullptr, 0, NI_NUMERICHOST) !=
      0) {
    return "unknown";
  }
  constexpr char kMapped[] = "::ffff:";
  const bool mapped = address.ss_family == AF_INET6 && std::strncmp(host, kMapped, sizeof kMapped - 1) == 0 &&
                      std::strchr(host, '.') != nullptr;
  return mapped ? host + sizeof kMapped - 1 : host;
}

}  // namespace quillon
