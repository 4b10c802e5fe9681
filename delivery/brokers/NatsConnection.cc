#include "delivery/brokers/NatsConnection.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <optional>
#include <random>

#include "foundation/descriptor.h"

namespace quillon::delivery {
namespace {

constexpr int kConnectMs = 2000;
constexpr int kRequestMs = 2000;
/// After so long without an answer to two pings a connection is lost.
constexpr int kPingMs = 5000;
/// How long a write may wait for a server that does not read.
constexpr int kWriteMs = 5000;
/// For the library's threads to leave a connection that was closed.
constexpr std::chrono::seconds kLeaveLimit(10);

std::optional<std::string> firstLineOf(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line)) return std::nullopt;
  line.erase(line.find_last_not_of(" \t\r") + 1);
  return line;
}

std::int64_t nanoseconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
}

/// Before the n-th round over all servers.
std::int64_t reconnectDelay(natsConnection* /*connection*/, int round, void* /*none*/) {
  constexpr std::int64_t kMostMs = 5000;
  const std::int64_t whole = std::min(kMostMs, std::int64_t{50} << std::min(round, 10));
  thread_local std::minstd_rand random{std::random_device{}()};
  return std::uniform_int_distribution<std::int64_t>(whole / 2, whole)(random);
}

}  // namespace

/// What the library's threads fill in. They may be at it when the connection's owner wants to go, who waits for them.
struct NatsConnection::Shared {
  Descriptor bell{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::mutex mutex;
  std::condition_variable left;
  std::vector<NatsPtr<natsMsg>> arrived;
  std::uint64_t epoch = 0;
  std::string lastError;
  int inside = 0;  ///< Of the connection and its subscription, those that may still call.

  std::shared_ptr<Shared> kept;  ///< Itself, when it is not to go.

  void ring() const { eventfd_write(bell.get(), 1); }
  void changed(natsConnection* connection, bool isConnected) {
    {
      const std::lock_guard lock(mutex);
      const char* text = nullptr;
      const natsStatus status = natsConnection_GetLastError(connection, &text);
      if (isConnected) ++epoch;
      if (!isConnected) lastError = status == NATS_OK ? "" : text && *text ? text : natsStatus_GetText(status);
    }
    ring();
  }
  void enter() {
    const std::lock_guard lock(mutex);
    ++inside;
  }
  void leave() {
    const std::lock_guard lock(mutex);
    --inside;
    left.notify_all();
  }

  static void onConnected(natsConnection* connection, void* shared) {
    static_cast<Shared*>(shared)->changed(connection, true);
  }
  static void onDisconnected(natsConnection* connection, void* shared) {
    static_cast<Shared*>(shared)->changed(connection, false);
  }
  static void onClosed(natsConnection* connection, void* shared) {
    static_cast<Shared*>(shared)->changed(connection, false);
    static_cast<Shared*>(shared)->leave();
  }
  static void onMessage(natsConnection* /*connection*/, natsSubscription* /*inbox*/, natsMsg* message, void* shared) {
    auto& self = *static_cast<Shared*>(shared);
    {
      const std::lock_guard lock(self.mutex);
      self.arrived.emplace_back(message);
    }
    self.ring();
  }
  static void onInboxLeft(void* shared) { static_cast<Shared*>(shared)->leave(); }
  static void onError(natsConnection* /*connection*/, natsSubscription* /*inbox*/, natsStatus status, void* shared) {
    auto& self = *static_cast<Shared*>(shared);
    const std::lock_guard lock(self.mutex);
    self.lastError = natsStatus_GetText(status);
  }
};

namespace {

/// Sets what the configuration says; the first status that is not NATS_OK ends it.
class OptionSetter {
 public:
  OptionSetter(natsOptions* options, std::string& error) : options_(options), error_(error) {}

  bool set(const NatsOptions& from, const std::string& name) {
    std::vector<const char*> servers;
    servers.reserve(from.servers.size());
    for (const std::string& server : from.servers) servers.push_back(server.c_str());
    return check(natsOptions_SetServers(options_, servers.data(), static_cast<int>(servers.size()))) &&
           check(natsOptions_SetName(options_, name.c_str())) && check(natsOptions_SetTimeout(options_, kConnectMs)) &&
           check(natsOptions_SetMaxReconnect(options_, -1)) &&
           check(natsOptions_SetCustomReconnectDelay(options_, reconnectDelay, nullptr)) &&
           check(natsOptions_SetPingInterval(options_, kPingMs)) && check(natsOptions_SetMaxPingsOut(options_, 2)) &&
           check(natsOptions_SetWriteDeadline(options_, kWriteMs)) &&
           check(natsOptions_SetMaxPendingMsgs(options_, 1 << 20)) && setWho(from) && setTls(from);
  }

 private:
  bool check(natsStatus status) {
    if (status != NATS_OK) error_ = natsError(status);
    return status == NATS_OK;
  }

  bool setWho(const NatsOptions& from) {
    if (!from.credentials.empty() &&
        !check(natsOptions_SetUserCredentialsFromFiles(options_, from.credentials.c_str(), nullptr))) {
      return false;
    }
    const auto read = [this](const std::string& path, std::string& secret) {
      if (path.empty()) return true;
      const std::optional<std::string> line = firstLineOf(path);
      if (line) secret = *line;
      if (!line) error_ = "cannot read " + path;
      return line.has_value();
    };
    std::string password, token;
    if (!read(from.passwordFile, password) || !read(from.tokenFile, token)) return false;
    if (!from.user.empty() && !check(natsOptions_SetUserInfo(options_, from.user.c_str(), password.c_str()))) {
      return false;
    }
    return token.empty() || check(natsOptions_SetToken(options_, token.c_str()));
  }

  bool setTls(const NatsOptions& from) {
    if (!from.tls) return true;
    return check(natsOptions_SetSecure(options_, true)) &&
           (from.verify || check(natsOptions_SkipServerVerification(options_, true))) &&
           (from.ca.empty() || check(natsOptions_LoadCATrustedCertificates(options_, from.ca.c_str()))) &&
           (from.certificate.empty() ||
            check(natsOptions_LoadCertificatesChain(options_, from.certificate.c_str(), from.key.c_str())));
  }

  natsOptions* const options_;
  std::string& error_;
};

}  // namespace

std::string natsError(natsStatus status) {
  natsStatus last = NATS_OK;
  const char* const more = nats_GetLastError(&last);
  std::string text = natsStatus_GetText(status);
  if (last == status && more && *more) {
    const std::string_view told = more;  // "(conn.c:1905): Authorization Violation"
    const std::size_t place = told.starts_with('(') ? told.find("): ") : std::string_view::npos;
    const std::string_view reason = told.substr(place == std::string_view::npos ? 0 : place + 3);
    if (reason != text) (text += ": ") += reason;
  }
  return text;
}

NatsConnection::NatsConnection() : shared_(std::make_shared<Shared>()) {}

std::unique_ptr<NatsConnection> NatsConnection::open(const NatsOptions& options, const std::string& name,
                                                     std::string& error) {
  natsOptions* made = nullptr;
  if (const natsStatus status = natsOptions_Create(&made); status != NATS_OK) {
    error = natsError(status);
    return nullptr;
  }
  const NatsPtr<natsOptions> chosen(made);
  if (!OptionSetter(made, error).set(options, name)) return nullptr;
  std::unique_ptr<NatsConnection> opened(new NatsConnection);
  Shared* const shared = opened->shared_.get();
  natsOptions_SetReconnectedCB(made, Shared::onConnected, shared);
  natsOptions_SetDisconnectedCB(made, Shared::onDisconnected, shared);
  natsOptions_SetClosedCB(made, Shared::onClosed, shared);
  natsOptions_SetErrorHandler(made, Shared::onError, shared);

  shared->inside = 1;
  shared->epoch = 1;

  natsConnection* connection = nullptr;
  natsStatus status = natsConnection_Connect(&connection, made);
  if (status == NATS_OK) {
    opened->connection_.reset(connection);
    status = opened->openInbox();
  }
  if (status == NATS_OK) return opened;
  error = natsError(status);
  return nullptr;
}

natsStatus NatsConnection::openInbox() {
  jsOptions how;
  jsOptions_Init(&how);
  how.Wait = kRequestMs;
  jsCtx* jetStream = nullptr;
  natsStatus status = natsConnection_JetStream(&jetStream, connection_.get(), &how);
  jetStream_.reset(jetStream);
  if (status != NATS_OK) return status;

  natsInbox* name = nullptr;
  status = natsInbox_Create(&name);
  if (status != NATS_OK) return status;
  inboxName_ = name;
  natsInbox_Destroy(name);

  natsSubscription* inbox = nullptr;
  status = natsConnection_Subscribe(&inbox, connection_.get(), (inboxName_ + ".*").c_str(), Shared::onMessage,
                                    shared_.get());
  if (status != NATS_OK) return status;
  inbox_.reset(inbox);
  natsSubscription_SetPendingLimits(inbox, -1, -1);  // bounded by what was asked for
  shared_->enter();
  natsSubscription_SetOnCompleteCB(inbox, Shared::onInboxLeft, shared_.get());
  return NATS_OK;
}

NatsConnection::~NatsConnection() {
  if (!connection_) return;
  natsConnection_Close(connection_.get());
  std::unique_lock lock(shared_->mutex);
  const bool left = shared_->left.wait_for(lock, kLeaveLimit, [this] { return shared_->inside == 0; });
  lock.unlock();
  // Memory that nobody will free is better than memory that the library still writes to.
  if (!left) shared_->kept = shared_;
}

std::uint64_t NatsConnection::epoch() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->epoch;
}

std::string NatsConnection::lastError() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->lastError.empty() ? "the connection was lost" : shared_->lastError;
}

natsStatus NatsConnection::publish(const std::string& subject, const std::string& reply, std::string_view data,
                                   const std::string& id, const char* contentType) {
  natsMsg* made = nullptr;
  const natsStatus status = natsMsg_Create(&made, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), data.data(),
                                           static_cast<int>(data.size()));
  if (status != NATS_OK) return status;
  const NatsPtr<natsMsg> message(made);
  if (!id.empty()) natsMsgHeader_Set(made, "Nats-Msg-Id", id.c_str());
  if (contentType) natsMsgHeader_Set(made, "Content-Type", contentType);
  return natsConnection_PublishMsg(connection_.get(), made);
}

std::vector<NatsPtr<natsMsg>> NatsConnection::take() {
  eventfd_t ignored = 0;
  eventfd_read(shared_->bell.get(), &ignored);
  const std::lock_guard lock(shared_->mutex);
  return std::exchange(shared_->arrived, {});
}

int NatsConnection::descriptor() const { return shared_->bell.get(); }

bool ensureStream(NatsConnection& connection, const NatsStream& stream, const std::string& subject,
                  std::string& error) {
  if (stream.name.empty()) return true;
  jsErrCode code = static_cast<jsErrCode>(0);
  jsStreamInfo* info = nullptr;
  natsStatus status = js_GetStreamInfo(&info, connection.jetStream(), stream.name.c_str(), nullptr, &code);
  if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr) {
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    const char* subjects[] = {subject.c_str()};
    config.Name = stream.name.c_str();
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Replicas = static_cast<std::int64_t>(stream.replicas);
    config.Retention = stream.isWorkQueue ? js_WorkQueuePolicy : js_LimitsPolicy;
    config.MaxAge = nanoseconds(stream.maxAge);
    if (stream.maxBytes > 0) config.MaxBytes = static_cast<std::int64_t>(stream.maxBytes);
    if (stream.maxBytes > 0) config.Discard = js_DiscardNew;  // the cache waits; the oldest would be lost
    config.Duplicates = nanoseconds(stream.duplicates);
    status = js_AddStream(&info, connection.jetStream(), &config, nullptr, &code);
  }
  const NatsPtr<jsStreamInfo> found(info);
  if (status == NATS_OK) return true;
  error = "cannot make sure of the stream " + stream.name + ": " + natsError(status);
  return false;
}

}  // namespace quillon::delivery
