#include "server/Listener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "delivery/protocol/frames.h"
#include "delivery/transport/Lookup.h"
#include "foundation/sockets.h"

namespace quillon {
namespace {

/// In a time that tells nothing but the length of both.
bool areEqual(std::string_view one, std::string_view other) {
  if (one.size() != other.size()) return false;
  unsigned different = 0;
  for (std::size_t i = 0; i < one.size(); ++i) {
    different |= static_cast<unsigned>(static_cast<unsigned char>(one[i]) ^ static_cast<unsigned char>(other[i]));
  }
  return different == 0;
}

bool readTokens(const std::string& path, std::vector<std::string>& tokens, std::string& error) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line.starts_with('#')) continue;
    if (line.size() > delivery::kMostTokenBytes) {
      error = path + ": a token has " + std::to_string(delivery::kMostTokenBytes) + " bytes at most";
      return false;
    }
    tokens.push_back(std::move(line));
  }
  if (file.eof() && !tokens.empty()) return true;
  error = path + ": " + (file.eof() ? "there is no token in it" : std::strerror(errno));
  return false;
}

}  // namespace

std::unique_ptr<Listener> Listener::open(const ListenerConfig& config, std::string& error) {
  std::unique_ptr<Listener> listener(new Listener(config));
  if (!listener->load(error)) return nullptr;
  if (config.type == ListenerConfig::Type::kUnix) return listener->listenUnix(error) ? std::move(listener) : nullptr;
  listener->socket_ = openInternetSocket(config.address, SOCK_STREAM, error);
  return listener->socket_ ? std::move(listener) : nullptr;
}

Listener::~Listener() {
  if (hasMadePath_) unlink(config_.address.c_str());
}

bool Listener::load(std::string& error) {
  std::vector<std::string> tokens;
  if (!config_.tokenFile.empty() && !readTokens(config_.tokenFile, tokens, error)) return false;
  std::shared_ptr<const delivery::Tls> tls;
  if (config_.type == ListenerConfig::Type::kTls && !(tls = delivery::Tls::server(config_.tls, error))) return false;
  tokens_ = std::move(tokens);
  tls_ = std::move(tls);
  return true;
}

bool Listener::listenUnix(std::string& error) {
  const std::string& path = config_.address;
  const delivery::SocketAddress address = delivery::unixAddress(path);
  const auto failed = [&](const char* why) {
    error = path + ": " + why;
    return false;
  };
  if (address.size == 0) return failed("the path is too long for a socket");
  // A socket that a process has left behind which was killed is in the way; one that answers is somebody's.
  struct stat there {};
  if (lstat(path.c_str(), &there) == 0) {
    if (!S_ISSOCK(there.st_mode)) return failed("there is something else");
    if (delivery::beginConnecting(address) || errno != ECONNREFUSED) return failed("another process listens there");
    unlink(path.c_str());
  }
  socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto* const bytes = reinterpret_cast<const sockaddr*>(&address.bytes);
  if (!socket_ || bind(socket_.get(), bytes, address.size) != 0) return failed(std::strerror(errno));
  hasMadePath_ = true;
  // Nobody can connect before it listens, so nobody does under other permissions.
  if (chmod(path.c_str(), config_.mode) != 0 || listen(socket_.get(), SOMAXCONN) != 0) {
    return failed(std::strerror(errno));
  }
  return true;
}

std::optional<Listener::Accepted> Listener::accept() {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  Descriptor socket(accept4(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket) return std::nullopt;
  std::string peer;
  if (config_.type == ListenerConfig::Type::kUnix) {
    ucred who{};
    socklen_t length = sizeof who;
    getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &who, &length);
    peer = "user " + std::to_string(who.uid);
  } else {
    peer = hostOf(address, size);
    const int on = 1;
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  if (tls_) return Accepted{delivery::Stream(std::move(socket), tls_), std::move(peer)};
  return Accepted{delivery::Stream(std::move(socket)), std::move(peer)};
}

bool Listener::allows(std::string_view token) const {
  return config_.tokenFile.empty() ||
         std::ranges::any_of(tokens_, [token](const std::string& known) { return areEqual(token, known); });
}

}  // namespace quillon
