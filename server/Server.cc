#include "server/Server.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "codeset/codeset.h"
#include "foundation/visible.h"
#include "server/Metrics.h"

namespace quillon {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kLook(1000);
/// What destinations have at the end to bring away what is in the cache; the rest waits there for the next start.
constexpr seconds kEndPatience(5);
/// New connections that are taken of one place before others have their turn.
constexpr int kMostAccepted = 64;

sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

/// In milliseconds, rounded up. Some deadlines lie at the beginning of time.
int pollTimeout(std::chrono::steady_clock::time_point now, std::chrono::steady_clock::time_point until) {
  if (until <= now) return 0;
  return static_cast<int>(std::min(std::chrono::ceil<milliseconds>(until - now), kLook).count());
}

ClassSets::Report reportTo(const Log& log) {
  return [&log](bool isError, const std::string& text) { isError ? log.error(text) : log.info(text); };
}

/// Null, with `error`, when there is no such codeset.
nxl_cs* openCodeset(const std::string& name, std::string& error) {
  nxl_cs* const codeset = name.empty() ? nullptr : nxl_cs_new(name.c_str());
  if (!name.empty() && !codeset) error = "there is no codeset " + name;
  return codeset;
}

}  // namespace

Server::Server(ServerConfig config)
    : config_(std::move(config)), interval_(std::clamp(config_.patience / 6, milliseconds(10), milliseconds(250))) {
  log_.configure(config_.log);
}

Server::~Server() {
  intake_.reset();
  client_.reset();
  sets_.reset();
  nxl_cs_free(codeset_);
}

void Server::blockSignals() {
  const sigset_t set = handledSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool Server::check(const ServerConfig& config, const Log& log) {
  std::string error;
  nxl_cs* const codeset = openCodeset(config.codeset, error);
  bool isGood = error.empty();
  if (!isGood) log.error(error);
  isGood = ClassSets(config.definitions, codeset, reportTo(log)).scan() && isGood;
  nxl_cs_free(codeset);
  for (const ListenerConfig& listener : config.listeners) {
    if (Listener::check(listener, error)) continue;
    log.error(listener.name + ": " + error);
    isGood = false;
  }
  return isGood;
}

int Server::run() {
  if (!start()) return EXIT_FAILURE;
  loop();
  return finish();
}

bool Server::start() {
  const sigset_t set = handledSignals();
  signals_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  std::string error;
  const auto failed = [this, &error] {
    log_.error(error);
    return false;
  };
  codeset_ = openCodeset(config_.codeset, error);
  if (!error.empty()) return failed();
  sets_ = std::make_unique<ClassSets>(config_.definitions, codeset_, reportTo(log_));
  sets_->scan();  // what is bad was told, and the others go on
  const auto report = [this](delivery::Feed::Level level, std::string_view text) {
    if (level == delivery::Feed::Level::kInfo) return log_.info(text);
    level == delivery::Feed::Level::kError ? log_.error(text) : log_.warning(text);
  };
  client_ = delivery::Client::start(config_.delivery, report, error);
  if (!client_) return failed();
  intake_ = std::make_unique<Intake>(config_, *client_, *sets_, log_);
  if (!intake_->open(error)) return failed();
  for (const ListenerConfig& config : config_.listeners) {
    listeners_.push_back(Listener::open(config, error));
    if (!listeners_.back()) {
      log_.error(config.name + ": " + error);
      return false;
    }
  }
  if (!config_.metrics.empty() && !(metrics_ = Exposition::listen(config_.metrics, error))) return failed();
  const std::string status =
      "listening at " + std::to_string(listeners_.size()) + (listeners_.size() == 1 ? " place" : " places");
  supervisor_.ready(status);
  log_.info(status);
  return true;
}

void Server::loop() {
  bool isBusy = false;
  while (!isEnding_) {
    wait(isBusy);
    const TimePoint now = std::chrono::steady_clock::now();
    client_->takeProgress();
    if (intake_->isBlocked()) intake_->flush();
    isBusy = serve(now);
    isBusy = intake_->takeParked() || isBusy;
    intake_->flush();
    intake_->settle();
    for (const auto& connection : connections_) connection->speak(now);
    tick(now);
    supervisor_.alive(now);
    isBusy = isBusy && !intake_->isBlocked();
  }
}

/// Waits until there is something to do, and takes new connections and signals.
void Server::wait(bool isBusy) {
  std::vector<pollfd> wakers = {{signals_.get(), POLLIN, 0}, {client_->descriptor(), POLLIN, 0}};
  for (const auto& listener : listeners_) wakers.push_back({listener->descriptor(), POLLIN, 0});
  for (const auto& connection : connections_) {
    short events = connection->events();
    if (intake_->isBlocked()) events &= POLLOUT;
    wakers.push_back({connection->descriptor(), events, 0});
  }
  const TimePoint until = std::min({tickAt_, lookAt_, supervisor_.deadline()});
  const int timeout = isBusy ? 0 : pollTimeout(std::chrono::steady_clock::now(), until);
  if (poll(wakers.data(), wakers.size(), timeout) <= 0) return;
  if (wakers[0].revents != 0) receiveSignals();
  const TimePoint now = std::chrono::steady_clock::now();
  auto waker = wakers.begin() + 2;
  const auto listening = waker;
  waker += static_cast<std::ptrdiff_t>(listeners_.size());
  for (const auto& connection : connections_) {
    if ((waker++)->revents != 0) connection->wake();
  }
  for (std::size_t i = 0; i < listeners_.size(); ++i) {
    if (listening[static_cast<std::ptrdiff_t>(i)].revents != 0) acceptFrom(*listeners_[i], now);
  }
}

void Server::receiveSignals() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == sizeof info) {
    if (info.ssi_signo == SIGHUP) {
      reload();
    } else {
      isEnding_ = true;
    }
  }
}

void Server::reload() {
  supervisor_.reloading();
  for (const auto& listener : listeners_) {
    std::string error;
    if (!listener->load(error)) log_.error(listener->name() + ": " + error + "; what it had before goes on");
  }
  sets_->scan();
  lookAt_ = std::chrono::steady_clock::now() + kLook;
  supervisor_.ready("reloaded");
  log_.info("certificates, tokens and class definitions were read again");
}

void Server::acceptFrom(Listener& listener, TimePoint now) {
  for (int i = 0; i < kMostAccepted; ++i) {
    auto accepted = listener.accept();
    if (!accepted) return;
    ++accepted_;
    connections_.push_back(std::make_unique<Connection>(std::move(*accepted), listener, config_, *intake_, now));
    if (connections_.size() > config_.connections) {
      connections_.back()->refuse(delivery::RefusalCode::kBusy, "there are too many connections");
    }
  }
}

/// True when some client may have more at once.
bool Server::serve(TimePoint now) {
  bool hasMore = false;
  for (auto connection = connections_.begin(); connection != connections_.end();) {
    if ((*connection)->isAwake() && !intake_->isBlocked()) hasMore = workWith(**connection, now) || hasMore;
    const auto next = std::next(connection);
    if ((*connection)->isOver()) close(connection);
    connection = next;
  }
  return hasMore;
}

bool Server::workWith(Connection& connection, TimePoint now) {
  const bool wasKnown = connection.sender() != nullptr;
  const bool hasMore = connection.work(now);
  if (!wasKnown && connection.sender()) partFromOthers(connection);
  return hasMore;
}

/// Another connection of the same client is a leftover, or soon will be.
void Server::partFromOthers(const Connection& connection) {
  for (const auto& other : connections_) {
    if (other.get() == &connection || other->sender() != connection.sender()) continue;
    other->refuse(delivery::RefusalCode::kEnding, "another connection of the same client took over");
  }
  connection.sender()->isConnected = true;
  log_.info(connection.listener().name() + ": " + visible(connection.sender()->id) + " has connected from " +
            connection.peer());
}

void Server::close(Connections::iterator connection) {
  const Connection& gone = **connection;
  Intake::Sender* const sender = gone.sender();
  const std::string who = sender ? visible(sender->id) : gone.peer();
  if (gone.wasRefused()) ++refused_;
  if (!gone.reason().empty() && throttle_.admits(gone.listener().name() + gone.reason().substr(0, 20))) {
    log_.warning(gone.listener().name() + ": " + who + (gone.wasRefused() ? " is refused: " : " has gone: ") +
                 visible(gone.reason()));
  } else if (sender && gone.reason().empty()) {
    log_.info(gone.listener().name() + ": " + who + " has gone");
  }
  connections_.erase(connection);
  if (!sender) return;
  const auto isSame = [sender](const auto& other) { return other->sender() == sender; };
  sender->isConnected = std::ranges::any_of(connections_, isSame);
}

/// What is done by the clock.
void Server::tick(TimePoint now) {
  if (now >= tickAt_) {
    tickAt_ = connections_.empty() ? now + kLook : now + interval_;
    for (const auto& connection : connections_) connection->checkTime(now);
  }
  if (now < lookAt_) return;
  lookAt_ = now + kLook;
  sets_->scan();
  intake_->tidy();
  publish();
}

void Server::publish() {
  if (!metrics_) return;
  metrics_->publish(describeServer({.intake = intake_->figures(),
                                    .delivery = client_->figures(),
                                    .connections = connections_.size(),
                                    .accepted = accepted_,
                                    .refused = refused_,
                                    .sets = sets_->size()}));
}

int Server::finish() {
  supervisor_.stopping();
  for (const auto& connection : connections_) {
    connection->refuse(delivery::RefusalCode::kEnding, "the server ends");
  }
  intake_->flush();
  const delivery::Client::Rest rest = client_->stop(std::chrono::steady_clock::now() + kEndPatience);
  if (rest != delivery::Client::Rest::kInBuffer) return EXIT_SUCCESS;
  log_.error("ending without the last events, which no client was told of; they come again");
  return EXIT_FAILURE;
}

}  // namespace quillon
