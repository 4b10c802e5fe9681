#include "delivery/transport/Stream.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace quillon::delivery {
namespace {

bool isInternetAddress(const std::string& host) {
  in6_addr room;
  return inet_pton(AF_INET, host.c_str(), &room) == 1 || inet_pton(AF_INET6, host.c_str(), &room) == 1;
}

int atMostInt(std::size_t size) { return static_cast<int>(std::min<std::size_t>(size, INT_MAX)); }

}  // namespace

void Stream::Free::operator()(ssl_st* ssl) const { SSL_free(ssl); }

Stream::Stream(Descriptor socket) : socket_(std::move(socket)) {}

Stream::Stream(Descriptor socket, std::shared_ptr<const Tls> tls, const std::string& host)
    : socket_(std::move(socket)), tls_(std::move(tls)), host_(host) {
  if (!startTls(false)) return;
  const bool isAddress = isInternetAddress(host);
  if (!isAddress) SSL_set_tlsext_host_name(ssl_.get(), host.c_str());
  X509_VERIFY_PARAM* const wanted = SSL_get0_param(ssl_.get());
  const int set = isAddress ? X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str())
                            : X509_VERIFY_PARAM_set1_host(wanted, host.data(), host.size());
  X509_VERIFY_PARAM_set_hostflags(wanted, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  if (set != 1) error_ = "cannot use TLS with the name " + host;
}

Stream::Stream(Descriptor socket, std::shared_ptr<const Tls> tls) : socket_(std::move(socket)), tls_(std::move(tls)) {
  startTls(true);
}

Stream::Stream(Stream&&) noexcept = default;
Stream& Stream::operator=(Stream&&) noexcept = default;

Stream::~Stream() {
  if (!ssl_ || !SSL_is_init_finished(ssl_.get())) return;
  ERR_clear_error();
  SSL_shutdown(ssl_.get());  // does not wait for the answer, which would be of no use
}

bool Stream::startTls(bool isServer) {
  ERR_clear_error();
  ssl_.reset(SSL_new(tls_->context()));
  if (!ssl_ || SSL_set_fd(ssl_.get(), socket_.get()) != 1) {
    error_ = "cannot use TLS";
    return false;
  }
  isServer ? SSL_set_accept_state(ssl_.get()) : SSL_set_connect_state(ssl_.get());
  return true;
}

Stream::Result Stream::handshake() {
  if (!error_.empty()) return Result::kFailed;
  if (!ssl_) return Result::kDone;
  ERR_clear_error();
  errno = 0;
  return outcome(SSL_do_handshake(ssl_.get()));
}

Stream::Result Stream::read(std::span<char> room, std::size_t& count) {
  if (ssl_) {
    ERR_clear_error();
    errno = 0;
    const int got = SSL_read(ssl_.get(), room.data(), atMostInt(room.size()));
    count = static_cast<std::size_t>(std::max(got, 0));
    return outcome(got);
  }
  const ssize_t got = recv(socket_.get(), room.data(), room.size(), 0);
  count = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  if (got == 0) return Result::kEnd;
  events_ = POLLIN;
  return got > 0 ? Result::kDone : failedBySystem();
}

Stream::Result Stream::write(std::string_view bytes, std::size_t& count) {
  if (ssl_) {
    ERR_clear_error();
    errno = 0;
    const int put = SSL_write(ssl_.get(), bytes.data(), atMostInt(bytes.size()));
    count = static_cast<std::size_t>(std::max(put, 0));
    return outcome(put);
  }
  const ssize_t put = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  count = static_cast<std::size_t>(std::max<ssize_t>(put, 0));
  events_ = POLLOUT;
  return put >= 0 ? Result::kDone : failedBySystem();
}

bool Stream::hasMore() const { return ssl_ && SSL_pending(ssl_.get()) > 0; }

Stream::Result Stream::failedBySystem() {
  if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return Result::kWait;
  error_ = std::strerror(errno);
  return Result::kFailed;
}

/// What a call of OpenSSL that returned this has come to.
Stream::Result Stream::outcome(int returned) {
  const int system = errno;
  switch (SSL_get_error(ssl_.get(), returned)) {
    case SSL_ERROR_NONE:
      return Result::kDone;
    case SSL_ERROR_WANT_READ:
      events_ = POLLIN;
      return Result::kWait;
    case SSL_ERROR_WANT_WRITE:
      events_ = POLLOUT;
      return Result::kWait;
    case SSL_ERROR_ZERO_RETURN:
      return Result::kEnd;
    case SSL_ERROR_SYSCALL:
      if (system == 0) return Result::kEnd;
      error_ = std::strerror(system);
      return Result::kFailed;
    default:
      break;
  }
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  // Many peers close without a word.
  if (ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING) return Result::kEnd;
  const long verified = SSL_get_verify_result(ssl_.get());
  if (verified != X509_V_OK) {
    error_ = std::string("the certificate of the other end is refused: ") + X509_verify_cert_error_string(verified);
    if (verified == X509_V_ERR_HOSTNAME_MISMATCH || verified == X509_V_ERR_IP_ADDRESS_MISMATCH) {
      error_ += ", it is not for " + host_;
    }
    return Result::kFailed;
  }
  const char* const reason = ERR_reason_error_string(code);
  error_ = std::string("TLS: ") + (reason ? reason : "unknown reason");
  return Result::kFailed;
}

}  // namespace quillon::delivery
