#include "tests/delivery/support/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace quillon::delivery {
namespace {

std::string unzipped(std::string zipped) {
  z_stream stream{};
  if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK) return "";
  std::string text(64 << 20, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(zipped.data());
  stream.avail_in = static_cast<uInt>(zipped.size());
  stream.next_out = reinterpret_cast<Bytef*>(text.data());
  stream.avail_out = static_cast<uInt>(text.size());
  const int status = inflate(&stream, Z_FINISH);
  text.resize(status == Z_STREAM_END ? stream.total_out : 0);
  inflateEnd(&stream);
  return text;
}

/// Waits for more bytes of the client; false at the end of the connection, or of the server.
bool receive(int connection, ssl_st* session, std::string& bytes, const std::atomic<bool>& ends) {
  while (!ends) {
    pollfd waiting{connection, POLLIN, 0};
    if (!(session && SSL_pending(session) > 0) && poll(&waiting, 1, 20) <= 0) continue;
    char room[65536];
    const ssize_t got = session ? SSL_read(session, room, sizeof room) : recv(connection, room, sizeof room, 0);
    if (got <= 0) return false;
    bytes.append(room, static_cast<std::size_t>(got));
    return true;
  }
  return false;
}

}  // namespace

HttpServer::HttpServer(std::shared_ptr<const Tls> tls)
    : tls_(std::move(tls)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (bind(listener_.get(), any, size) != 0 || listen(listener_.get(), 8) != 0) std::abort();
  getsockname(listener_.get(), any, &size);
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

HttpServer::~HttpServer() {
  ends_ = true;
  thread_.join();
}

void HttpServer::answer(std::vector<Answer> answers) {
  const std::lock_guard lock(mutex_);
  answers_.assign(answers.begin(), answers.end());
}

std::vector<HttpServer::Request> HttpServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void HttpServer::serve() {
  while (!ends_) {
    pollfd waiting{listener_.get(), POLLIN, 0};
    if (poll(&waiting, 1, 20) <= 0) continue;
    const Descriptor connection(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection) continue;
    const std::unique_ptr<ssl_st, void (*)(ssl_st*)> session(tls_ ? SSL_new(tls_->context()) : nullptr, SSL_free);
    if (session && (SSL_set_fd(session.get(), connection.get()) != 1 || SSL_accept(session.get()) != 1)) continue;
    serveConnection(connection.get(), session.get());
  }
}

void HttpServer::serveConnection(int connection, ssl_st* session) {
  std::string bytes;
  for (;;) {
    std::size_t head = 0;
    while ((head = bytes.find("\r\n\r\n")) == std::string::npos) {
      if (!receive(connection, session, bytes, ends_)) return;
    }
    const char* const length = strcasestr(bytes.c_str(), "\r\nContent-Length: ");
    const std::size_t body = length ? std::strtoul(length + 18, nullptr, 10) : 0;
    while (bytes.size() < head + 4 + body) {
      if (!receive(connection, session, bytes, ends_)) return;
    }
    Request request{bytes.substr(0, head), bytes.substr(head + 4, body), std::chrono::steady_clock::now()};
    if (request.head.find("Content-Encoding: gzip") != std::string::npos) request.body = unzipped(request.body);
    bytes.erase(0, head + 4 + body);
    Answer answer;
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(std::move(request));
      if (!answers_.empty()) {
        answer = answers_.front();
        answers_.pop_front();
      }
    }
    const auto at = std::chrono::steady_clock::now() + answer.after;
    while (!ends_ && std::chrono::steady_clock::now() < at) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      char byte = 0;
      if (recv(connection, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0) return;  // the client has given up
    }
    const std::string reply = "HTTP/1.1 " + answer.head + "\r\nContent-Length: " + std::to_string(answer.body.size()) +
                              "\r\n\r\n" +
                              answer.body.substr(0, answer.cut ? answer.body.size() / 2 : std::string::npos);
    const auto sent = session ? SSL_write(session, reply.data(), static_cast<int>(reply.size()))
                              : send(connection, reply.data(), reply.size(), MSG_NOSIGNAL);
    if (sent <= 0 || answer.cut) return;
  }
}

}  // namespace quillon::delivery
