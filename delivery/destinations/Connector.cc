#include "delivery/destinations/Connector.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "config/address.h"
#include "delivery/transport/Lookup.h"

namespace quillon::delivery {
namespace {

/// One try to connect.
class Connecting {
 public:
  Connecting(const Endpoint& endpoint, Feed& feed, Feed::Clock::time_point deadline)
      : endpoint_(endpoint), feed_(feed), deadline_(deadline) {}

  std::string connect(std::optional<Stream>& stream) {
    const std::string failure = "cannot connect to " + endpoint_.address + ": ";
    std::shared_ptr<const Tls> tls;
    std::string error;
    // Read for each connection: certificates are renewed.
    if (endpoint_.isTls && !(tls = Tls::client(endpoint_.tls, error))) return error;
    Descriptor socket = connectToAny(error);
    if (!socket) return failure + error;
    if (!tls) {
      stream.emplace(std::move(socket));
      return "";
    }
    stream.emplace(std::move(socket), std::move(tls), endpoint_.serverName);
    Stream::Result result = Stream::Result::kWait;
    while ((result = stream->handshake()) == Stream::Result::kWait) {
      if (!waitFor(stream->descriptor(), stream->events())) return failure + "no answer in time";
    }
    if (result == Stream::Result::kEnd) return failure + "the server ended the connection while it was secured";
    return result == Stream::Result::kDone ? "" : failure + stream->error();
  }

 private:
  Descriptor connectToAny(std::string& error) {
    Descriptor socket;
    const Lookup lookup(endpoint_.address);
    while (!lookup.isDone()) {
      if (waitFor(lookup.descriptor(), POLLIN)) continue;
      error = "its address is not found in time";
      return socket;
    }
    error = lookup.error();
    for (const SocketAddress& address : lookup.addresses()) {
      if ((socket = connectTo(address, error))) break;
    }
    return socket;
  }

  Descriptor connectTo(const SocketAddress& address, std::string& error) {
    Descriptor socket = beginConnecting(address);
    int problem = errno;
    if (socket && !waitFor(socket.get(), POLLOUT)) {
      error = "no answer in time";
      return {};
    }
    socklen_t size = sizeof problem;
    if (socket) getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &problem, &size);
    if (socket && problem == 0) return socket;
    error = std::strerror(problem);
    return {};
  }

  /// False when it is not ready by the deadline, or the destination is to stop.
  bool waitFor(int descriptor, short events) {
    pollfd one{descriptor, events, 0};
    while (!feed_.stopping() && Feed::Clock::now() < deadline_) {
      feed_.wait(deadline_, {&one, 1});
      if (one.revents != 0) return true;
    }
    return false;
  }

  const Endpoint& endpoint_;
  Feed& feed_;
  const Feed::Clock::time_point deadline_;
};

}  // namespace

void readEndpoint(TomlTable& table, const std::string& directory, Endpoint& endpoint) {
  table.require("address");
  const bool hasAddress = table.readName("address", endpoint.address);
  const bool isGood = isAddress(endpoint.address) && !endpoint.address.starts_with(':');
  if (hasAddress && !isGood) {
    table.report("address", "the address must be HOST:PORT, such as \"192.0.2.1:6514\" or \"[::1]:6514\"");
  }
  table.read("tls", endpoint.isTls);
  for (const char* const key : {"ca", "certificate", "key", "server_name", "verify"}) {
    if (table.has(key) && !endpoint.isTls) table.report(key, std::string(key) + " needs tls = true");
  }
  table.readPath("ca", directory, endpoint.tls.ca);
  table.readPath("certificate", directory, endpoint.tls.certificate);
  table.readPath("key", directory, endpoint.tls.key);
  table.read("verify", endpoint.tls.verify);
  if (!table.readName("server_name", endpoint.serverName) && isGood) endpoint.serverName = hostIn(endpoint.address);
}

std::string connect(const Endpoint& endpoint, Feed& feed, Feed::Clock::time_point deadline,
                    std::optional<Stream>& stream) {
  return Connecting(endpoint, feed, deadline).connect(stream);
}

}  // namespace quillon::delivery
