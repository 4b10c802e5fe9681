#ifndef QUILLON_DELIVERY_TRANSPORT_LOOKUP_H_
#define QUILLON_DELIVERY_TRANSPORT_LOOKUP_H_

#include <sys/socket.h>

#include <memory>
#include <string>
#include <vector>

#include "foundation/descriptor.h"

namespace quillon::delivery {

/// An address that a socket can be connected to.
struct SocketAddress {
  sockaddr_storage bytes{};
  socklen_t size = 0;
};

/// The addresses that "HOST:PORT" stands for. Looking up a name can take long and cannot be ended, so a thread does it
/// that outlives this object when nobody waits for it any more; addresses in numbers are there at once.
class Lookup {
 public:
  explicit Lookup(const std::string& address);
  ~Lookup();

  /// Readable once isDone().
  int descriptor() const;
  bool isDone() const;
  /// When it is done; none when there are none, and error() says why.
  const std::vector<SocketAddress>& addresses() const;
  const std::string& error() const;

 private:
  struct Answer;
  const std::shared_ptr<Answer> answer_;
};

/// The host of "HOST:PORT", without brackets.
std::string hostIn(const std::string& address);

/// The address of a Unix socket; of size 0 when the path is too long for one.
SocketAddress unixAddress(const std::string& path);

/// A socket that begins to connect and does not block: it is connected when it is writable and SO_ERROR is 0. None,
/// with errno, when that fails at once.
[[nodiscard]] Descriptor beginConnecting(const SocketAddress& address);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_TRANSPORT_LOOKUP_H_
