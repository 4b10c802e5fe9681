#ifndef QUILLON_DELIVERY_BROKERS_NATSCONNECTION_H_
#define QUILLON_DELIVERY_BROKERS_NATSCONNECTION_H_

#include <nats/nats.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "delivery/brokers/nats_options.h"

namespace quillon::delivery {

/// Frees what libnats gives.
struct NatsFree {
  void operator()(natsConnection* it) const { natsConnection_Destroy(it); }
  void operator()(natsSubscription* it) const { natsSubscription_Destroy(it); }
  void operator()(natsOptions* it) const { natsOptions_Destroy(it); }
  void operator()(natsMsg* it) const { natsMsg_Destroy(it); }
  void operator()(jsCtx* it) const { jsCtx_Destroy(it); }
  void operator()(jsStreamInfo* it) const { jsStreamInfo_Destroy(it); }
  void operator()(jsConsumerInfo* it) const { jsConsumerInfo_Destroy(it); }
};
template <class T>
using NatsPtr = std::unique_ptr<T, NatsFree>;

/// A connection that comes back by itself, with growing, jittered waits. For one thread.
class NatsConnection {
 public:
  /// Null when no server takes it, with the reason in `error`; a server that does not answer takes two seconds. `name`
  /// is shown by servers.
  [[nodiscard]] static std::unique_ptr<NatsConnection> open(const NatsOptions& options, const std::string& name,
                                                            std::string& error);
  NatsConnection(const NatsConnection&) = delete;
  NatsConnection& operator=(const NatsConnection&) = delete;
  /// Returns when no callback of the library is under way any more.
  ~NatsConnection();

  natsConnection* get() const { return connection_.get(); }
  jsCtx* jetStream() const { return jetStream_.get(); }

  bool isConnected() const { return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED; }
  /// It will not come back, as after the wrong password: somebody has to open another one.
  bool isClosed() const { return natsConnection_IsClosed(connection_.get()); }
  /// How often it was connected.
  std::uint64_t epoch() const;
  /// Why it is not connected now, or was not before.
  std::string lastError() const;

  /// A subject that answers can be sent to: what comes for "INBOX.anything" is kept until take().
  const std::string& inbox() const { return inboxName_; }
  /// Publishes; `id` goes into the header Nats-Msg-Id when it is not empty.
  [[nodiscard]] natsStatus publish(const std::string& subject, const std::string& reply, std::string_view data,
                                   const std::string& id = "", const char* contentType = nullptr);
  std::vector<NatsPtr<natsMsg>> take();

  /// Readable when something came, or the state of the connection has changed, since take() was called last.
  int descriptor() const;

 private:
  struct Shared;
  NatsConnection();
  natsStatus openInbox();

  std::shared_ptr<Shared> shared_;  ///< With the library's threads.
  NatsPtr<natsConnection> connection_;
  NatsPtr<jsCtx> jetStream_;
  std::string inboxName_;
  NatsPtr<natsSubscription> inbox_;
};

/// Sees to it that the stream is there and has the subject. False, with the reason in `error`, when that fails.
[[nodiscard]] bool ensureStream(NatsConnection& connection, const NatsStream& stream, const std::string& subject,
                                std::string& error);

/// The reason, in words, with what the library can add to it. For the thread that got the status.
std::string natsError(natsStatus status);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_BROKERS_NATSCONNECTION_H_
