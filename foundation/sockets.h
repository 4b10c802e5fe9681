#ifndef QUILLON_FOUNDATION_SOCKETS_H_
#define QUILLON_FOUNDATION_SOCKETS_H_

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

#include "foundation/descriptor.h"

namespace quillon {

/// Opens a socket of `type`, SOCK_DGRAM or SOCK_STREAM, bound to "HOST:PORT", "[HOST]:PORT" or ":PORT" for all
/// addresses. A stream socket listens. None when that fails, with the reason in `error`.
[[nodiscard]] Descriptor openInternetSocket(const std::string& address, int type, std::string& error);

/// Where the socket is bound to: "127.0.0.1:514", "[::1]:514". Tells the port when 0 was asked for.
std::string boundAddress(int socket);

/// The host of an address without its port, "192.0.2.7"; an IPv4 address that came by IPv6 is written as IPv4.
std::string hostOf(const sockaddr_storage& address, socklen_t length);

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_SOCKETS_H_
