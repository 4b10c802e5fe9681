#ifndef QUILLON_SERVER_SERVER_H_
#define QUILLON_SERVER_SERVER_H_

#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "daemon/Exposition.h"
#include "daemon/Log.h"
#include "daemon/Supervisor.h"
#include "delivery/client/Client.h"
#include "foundation/descriptor.h"
#include "server/ClassSets.h"
#include "server/Connection.h"
#include "server/Intake.h"
#include "server/Listener.h"
#include "server/ServerConfig.h"
#include "server/Throttle.h"

struct nxl_cs;

namespace quillon {

/// The running event server: one loop in one thread has all clients take their turns and hands what they sent to a
/// delivery::Client, all of one turn as one batch: its threads write it and bring it on. What is safe then is
/// acknowledged. While that takes nothing, nothing is read.
///
/// SIGTERM and SIGINT end it in good order; SIGHUP reads certificates, tokens and class definitions again. These
/// signals must be blocked in every thread before one is made (blockSignals()).
class Server {
 public:
  explicit Server(ServerConfig config);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  static void blockSignals();

  /// Reads class definitions, certificates and tokens, and says what is wrong. Listens nowhere, writes nothing. True
  /// when nothing is.
  static bool check(const ServerConfig& config, const Log& log);

  /// Runs until it is told to end. Returns the exit status.
  int run();

 private:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Connections = std::list<std::unique_ptr<Connection>>;

  bool start();
  void loop();
  void wait(bool isBusy);
  void receiveSignals();
  void reload();
  void acceptFrom(Listener& listener, TimePoint now);
  bool serve(TimePoint now);
  bool workWith(Connection& connection, TimePoint now);
  void partFromOthers(const Connection& connection);
  void close(Connections::iterator connection);
  void tick(TimePoint now);
  void publish();
  int finish();

  const ServerConfig config_;
  Log log_{"quillon-server"};
  Supervisor supervisor_;
  Descriptor signals_;
  nxl_cs* codeset_ = nullptr;
  std::unique_ptr<ClassSets> sets_;
  std::unique_ptr<delivery::Client> client_;
  std::unique_ptr<Intake> intake_;
  std::vector<std::unique_ptr<Listener>> listeners_;
  std::unique_ptr<Exposition> metrics_;
  Connections connections_;
  std::chrono::milliseconds interval_;  ///< Between two looks at the clock for all connections.
  TimePoint tickAt_ = TimePoint::min();
  TimePoint lookAt_ = TimePoint::min();  ///< When class definitions are looked for.
  bool isEnding_ = false;
  Throttle throttle_;
  std::uint64_t accepted_ = 0;
  std::uint64_t refused_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_SERVER_SERVER_H_
