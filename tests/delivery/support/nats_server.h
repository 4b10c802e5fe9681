#ifndef QUILLON_TESTS_DELIVERY_SUPPORT_NATS_SERVER_H_
#define QUILLON_TESTS_DELIVERY_SUPPORT_NATS_SERVER_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace quillon::delivery {

/// A port of the loopback address that nobody has at the moment.
int freePort();

/// A nats-server with JetStream on a free port of the loopback address. It ends with the test, even when that is
/// killed.
class NatsServer {
 public:
  /// Started at once. `more` are further arguments.
  explicit NatsServer(std::string store, std::vector<std::string> more = {}, std::string name = "one");
  ~NatsServer() { kill(); }
  NatsServer(const NatsServer&) = delete;
  NatsServer& operator=(const NatsServer&) = delete;

  std::string url() const { return "nats://127.0.0.1:" + std::to_string(port_); }
  const std::string& store() const { return store_; }
  /// Starts it again, on the same port; returns when it listens.
  void start();
  /// By SIGKILL, as a crash does.
  void kill();
  /// SIGSTOP and SIGCONT: it is there, and does not answer.
  void freeze(bool isFrozen) const;

 private:
  const std::string store_;
  const std::vector<std::string> more_;
  const std::string name_;
  const int port_;
  pid_t process_ = -1;
};

/// A message as a stream has it.
struct StreamMessage {
  std::uint64_t sequence = 0;
  std::string id;
  std::string data;
};
/// All messages of a stream.
std::vector<StreamMessage> messagesIn(const std::string& url, const std::string& stream);

}  // namespace quillon::delivery

#endif  // QUILLON_TESTS_DELIVERY_SUPPORT_NATS_SERVER_H_
