#include "delivery/transport/Tls.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

namespace quillon::delivery {
namespace {

/// The first thing that OpenSSL has to complain about, and it has none afterwards.
std::string complaint() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  const char* const reason = ERR_reason_error_string(code);
  return reason ? reason : "unknown reason";
}

bool useOwn(SSL_CTX& context, const TlsOptions& options, std::string& error) {
  if (options.certificate.empty()) return true;
  if (SSL_CTX_use_certificate_chain_file(&context, options.certificate.c_str()) != 1) {
    error = "cannot use the certificate " + options.certificate + ": " + complaint();
    return false;
  }
  const std::string& key = options.key.empty() ? options.certificate : options.key;
  if (SSL_CTX_use_PrivateKey_file(&context, key.c_str(), SSL_FILETYPE_PEM) != 1) {
    error = "cannot use the key " + key + ": " + complaint();
    return false;
  }
  return true;
}

bool useAuthorities(SSL_CTX& context, const TlsOptions& options, bool isServer, std::string& error) {
  if (options.ca.empty()) return isServer || SSL_CTX_set_default_verify_paths(&context) == 1;
  if (SSL_CTX_load_verify_locations(&context, options.ca.c_str(), nullptr) != 1) {
    error = "cannot use the CA certificates " + options.ca + ": " + complaint();
    return false;
  }
  if (isServer) SSL_CTX_set_client_CA_list(&context, SSL_load_client_CA_file(options.ca.c_str()));
  return true;
}

}  // namespace

void Tls::Free::operator()(ssl_ctx_st* context) const { SSL_CTX_free(context); }

std::shared_ptr<const Tls> Tls::make(const TlsOptions& options, bool isServer, std::string& error) {
  ERR_clear_error();
  const std::shared_ptr<Tls> tls(new Tls);
  tls->context_.reset(SSL_CTX_new(isServer ? TLS_server_method() : TLS_client_method()));
  SSL_CTX* const context = tls->context();
  if (!context || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1) {
    error = "cannot use TLS: " + complaint();
    return nullptr;
  }
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  // Renegotiation is a way to make a server work, and sessions that are resumed gain nothing over connections that
  // last.
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET);
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  if (!useOwn(*context, options, error) || !useAuthorities(*context, options, isServer, error)) return nullptr;
  int mode = SSL_VERIFY_NONE;
  if (isServer && !options.ca.empty()) mode = SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT;
  if (!isServer && options.verify) mode = SSL_VERIFY_PEER;
  SSL_CTX_set_verify(context, mode, nullptr);
  return tls;
}

std::shared_ptr<const Tls> Tls::client(const TlsOptions& options, std::string& error) {
  return make(options, false, error);
}

std::shared_ptr<const Tls> Tls::server(const TlsOptions& options, std::string& error) {
  return make(options, true, error);
}

}  // namespace quillon::delivery
