#ifndef QUILLON_TESTS_DELIVERY_SUPPORT_HTTP_SERVER_H_
#define QUILLON_TESTS_DELIVERY_SUPPORT_HTTP_SERVER_H_

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "delivery/transport/Tls.h"
#include "foundation/descriptor.h"

struct ssl_st;

namespace quillon::delivery {

/// A web server on a free port of the loopback address that answers as it is told, and keeps what it was sent. One
/// connection at a time.
class HttpServer {
 public:
  struct Answer {
    std::string head = "200 OK";  ///< Status, then header lines, each behind "\r\n".
    std::string body = "";
    std::chrono::milliseconds after{0};
    bool cut = false;  ///< Half of the body, then the connection ends.
  };
  struct Request {
    std::string head;
    std::string body;  ///< Without its compression.
    std::chrono::steady_clock::time_point at;
  };

  /// With `tls` it speaks that, and nothing else.
  explicit HttpServer(std::shared_ptr<const Tls> tls = nullptr);
  ~HttpServer();

  std::string url() const {
    return (tls_ ? "https://localhost:" : "http://127.0.0.1:") + std::to_string(port_) + "/in";
  }
  /// The next answers; when they are used up it is 200.
  void answer(std::vector<Answer> answers);
  std::vector<Request> requests() const;

 private:
  void serve();
  void serveConnection(int connection, ssl_st* session);

  const std::shared_ptr<const Tls> tls_;
  Descriptor listener_;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::deque<Answer> answers_;
  std::vector<Request> requests_;
  std::atomic<bool> ends_ = false;
  std::thread thread_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_TESTS_DELIVERY_SUPPORT_HTTP_SERVER_H_
