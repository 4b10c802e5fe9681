#ifndef QUILLON_SERVER_LISTENER_H_
#define QUILLON_SERVER_LISTENER_H_

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "delivery/transport/Stream.h"
#include "foundation/descriptor.h"
#include "server/ServerConfig.h"

namespace quillon {

/// A place where clients connect, and who may. For one thread.
class Listener {
 public:
  /// Null when it cannot listen, or a file that it needs is no good, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<Listener> open(const ListenerConfig& config, std::string& error);
  /// What open() would say of the files.
  [[nodiscard]] static bool check(const ListenerConfig& config, std::string& error) {
    return Listener(config).load(error);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener();

  /// Reads certificates and tokens, as at the beginning; false with the reason in `error`, and those before stay.
  [[nodiscard]] bool load(std::string& error);

  int descriptor() const { return socket_.get(); }
  const std::string& name() const { return config_.name; }

  struct Accepted {
    delivery::Stream stream;
    std::string peer;  ///< Its address; of a Unix socket the user.
  };
  /// The next one who has connected; nothing when there is none.
  std::optional<Accepted> accept();

  bool allows(std::string_view token) const;

 private:
  explicit Listener(const ListenerConfig& config) : config_(config) {}

  bool listenUnix(std::string& error);

  const ListenerConfig config_;
  Descriptor socket_;
  bool hasMadePath_ = false;
  std::shared_ptr<const delivery::Tls> tls_;
  std::vector<std::string> tokens_;
};

}  // namespace quillon

#endif  // QUILLON_SERVER_LISTENER_H_
