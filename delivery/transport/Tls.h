#ifndef QUILLON_DELIVERY_TRANSPORT_TLS_H_
#define QUILLON_DELIVERY_TRANSPORT_TLS_H_

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace quillon::delivery {

/// What one end of TLS connections has; paths of PEM files.
struct TlsOptions {
  std::string ca;           ///< Whose certificates are believed; empty: those of the system, or nobody's at a server.
  std::string certificate;  ///< One's own, with those between it and the CA; empty: none.
  std::string key;          ///< Empty: it is in `certificate`.
  bool verify = true;       ///< Of a client; false: whoever answers is taken for the server.

  bool operator==(const TlsOptions&) const = default;
};

/// The options, read and found good: TLS 1.2 and later (OpenSSL). Never changes, for any number of threads; shared by
/// connections, which keep it.
class Tls {
 public:
  /// Null when something cannot be read or does not fit, with the reason in `error`.
  [[nodiscard]] static std::shared_ptr<const Tls> client(const TlsOptions& options, std::string& error);
  /// A server with a `ca` takes clients only that have a certificate of it.
  [[nodiscard]] static std::shared_ptr<const Tls> server(const TlsOptions& options, std::string& error);

  ssl_ctx_st* context() const { return context_.get(); }

 private:
  struct Free {
    void operator()(ssl_ctx_st* context) const;
  };
  Tls() = default;
  static std::shared_ptr<const Tls> make(const TlsOptions& options, bool isServer, std::string& error);

  std::unique_ptr<ssl_ctx_st, Free> context_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_TRANSPORT_TLS_H_
