#ifndef QUILLON_DELIVERY_TRANSPORT_STREAM_H_
#define QUILLON_DELIVERY_TRANSPORT_STREAM_H_

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "delivery/transport/Tls.h"
#include "foundation/descriptor.h"

struct ssl_st;

namespace quillon::delivery {

/// A connection of bytes that never waits: a socket as it is, or TLS on it. Owns the socket. For one thread at a time,
/// which must have SIGPIPE blocked or ignored.
class Stream {
 public:
  /// `socket` does not block.
  explicit Stream(Descriptor socket);
  /// The client's end of TLS; the server's certificate must be for `host`, a name or an address.
  Stream(Descriptor socket, std::shared_ptr<const Tls> tls, const std::string& host);
  /// The server's end.
  Stream(Descriptor socket, std::shared_ptr<const Tls> tls);
  Stream(Stream&&) noexcept;
  Stream& operator=(Stream&&) noexcept;
  /// Closes; a peer is told that this is the end.
  ~Stream();

  enum class Result {
    kDone,
    kWait,    ///< Call again when the socket is ready for events().
    kEnd,     ///< The peer has closed the connection.
    kFailed,  ///< error() says why.
  };

  /// What has to come first; kDone at once without TLS.
  [[nodiscard]] Result handshake();
  /// Some bytes at least with kDone.
  [[nodiscard]] Result read(std::span<char> room, std::size_t& count);
  [[nodiscard]] Result write(std::string_view bytes, std::size_t& count);

  int descriptor() const { return socket_.get(); }
  /// POLLIN or POLLOUT: what the last call that returned kWait waits for.
  short events() const { return events_; }
  /// Bytes have been taken from the socket that read() would give: no poll(2) tells of them.
  bool hasMore() const;
  const std::string& error() const { return error_; }

 private:
  struct Free {
    void operator()(ssl_st* ssl) const;
  };

  bool startTls(bool isServer);
  Result outcome(int returned);
  Result failedBySystem();

  Descriptor socket_;
  std::shared_ptr<const Tls> tls_;
  std::unique_ptr<ssl_st, Free> ssl_;
  std::string host_;  ///< That the peer must be; empty: nobody in particular.
  short events_ = 0;
  std::string error_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_TRANSPORT_STREAM_H_
