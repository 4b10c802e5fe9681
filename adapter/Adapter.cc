#include "adapter/Adapter.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>
#include <variant>

#include "foundation/checkpoint.h"

namespace quillon {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Messages of one source before the next one has its turn.
constexpr std::size_t kTurn = 1024;
/// How often positions are kept while there is much to do.
constexpr milliseconds kKeepInterval(100);
constexpr milliseconds kPublishInterval(500);
constexpr seconds kOutputRetry(1);
constexpr seconds kOpenRetry(10);
/// How long a reader that does not read can hold up the end.
constexpr seconds kEndPatience(5);
/// How often a blocked file for unmatched messages is tried again.
constexpr milliseconds kBlockedRetry(20);
/// The same for a client without room, which tells when it has some.
constexpr milliseconds kRoomRetry(500);
/// For how long destinations that make no progress are waited for when all has been read.
constexpr seconds kDrainPatience(10);

TimePoint monotonicNow() { return std::chrono::steady_clock::now(); }

sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

/// What poll(2) is to wait at most, in whole milliseconds, rounded up.
int pollTimeout(TimePoint now, TimePoint until) {
  if (until == TimePoint::max()) return -1;
  if (until <= now) return 0;
  return static_cast<int>(std::min<std::int64_t>(std::chrono::ceil<milliseconds>(until - now).count(), 3'600'000));
}

using Input = decltype(SourceConfig::input);

/// True when both are read from the same place, in whatever way. Files are followed in the same way too.
bool areSame(const Input& one, const Input& other) {
  if (one.index() != other.index()) return false;
  if (const auto* const fifo = std::get_if<FifoOptions>(&one)) return fifo->path == std::get<FifoOptions>(other).path;
  if (const auto* const tcp = std::get_if<TcpOptions>(&one)) return tcp->address == std::get<TcpOptions>(other).address;
  if (const auto* const datagrams = std::get_if<DatagramOptions>(&one)) {
    return datagrams->address == std::get<DatagramOptions>(other).address;
  }
  return std::holds_alternative<StreamOptions>(one) || one == other;
}

}  // namespace

Adapter::Adapter(std::string path, std::shared_ptr<const Setup> setup)
    : path_(std::move(path)), setup_(std::move(setup)), events_(std::make_unique<LineOutput>()) {
  log_.configure(config().log);
}

Adapter::~Adapter() = default;

void Adapter::blockSignals() {
  const sigset_t set = handledSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int Adapter::run(bool once) {
  once_ = once;
  if (!start()) return EXIT_FAILURE;
  if (once) {
    for (const auto& runner : runners_) runner->finish(Finish::kDrain);
  }
  loop();
  if (sender_ && finishSending() != EXIT_SUCCESS) status_ = EXIT_FAILURE;
  const bool failed = std::ranges::any_of(runners_, [](const auto& runner) { return runner->hasFailed(); });
  return failed && !stopping_ ? EXIT_FAILURE : status_;
}

void Adapter::tellReady() {
  const auto count =
      std::ranges::count_if(runners_, [this](const auto& runner) { return once_ || !runner->finishing(); });
  const std::string status = "reading " + std::to_string(count) + (count == 1 ? " source" : " sources");
  supervisor_.ready(status);
  log_.info(status);
}

bool Adapter::start() {
  const sigset_t set = handledSignals();
  signals_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  std::string error;
  const auto failed = [this, &error] {
    log_.error(error);
    return false;
  };
  if (config().delivery) {
    sender_ = Sender::open(*config().delivery, log_, error);
    if (!sender_) return failed();
    positions_ = sender_->positions();
  } else if (!openOutput(error)) {
    return failed();
  }
  std::set<std::string> configured;
  for (const SourceConfig& source : config().sources) configured.insert(source.name);
  positions_->forgetDeleted(configured);
  for (std::size_t i = 0; i < config().sources.size(); ++i) {
    auto runner = openSource(*setup_, i, error);
    if (!runner) return failed();
    runners_.push_back(std::move(runner));
  }
  fresh_ = true;
  if (!config().metrics.empty()) {
    metrics_ = Metrics::listen(config().metrics, error);
    if (!metrics_) return failed();
  }
  reloader_ = std::make_unique<Reloader>(path_);
  return true;
}

/// The output that is not sent, and the state that goes with it.
bool Adapter::openOutput(std::string& error) {
  std::string damage;
  positions_ = Positions::open(statePath(config()), error, damage);
  if (!positions_) return false;
  if (!damage.empty()) log_.error(damage);
  if (config().state.empty()) {
    log_.info("no state directory is configured: where reading stopped will not be known at the next start");
  }
  error = events_->open(config().output, LineOutput::Clock::now());
  return error.empty();
}

/// Null with the reason in `error`, which names the source.
std::unique_ptr<SourceRunner> Adapter::openSource(const Setup& setup, std::size_t index, std::string& error) const {
  const SourceConfig& source = setup.config.sources[index];
  auto runner = SourceRunner::open(source, setup.formats[index], positions_->of(source.name), {*events_, sender_.get()},
                                   log_, error);
  if (!runner) error = source.name + ": " + error;
  return runner;
}

void Adapter::loop() {
  while (true) {
    const TimePoint now = monotonicNow();
    const bool canWrite = output_ == Output::kGood || now >= retryAt_;
    const bool busy = canWrite && work(now);
    // What there is must be known before anything comes of it: else a process that is killed before its first record,
    // and a rotation then, would leave a file that nobody knows to have been there.
    if (std::exchange(fresh_, false)) {
      sender_ ? static_cast<void>(writeOut(now)) : keepPositions();
      if (!std::exchange(ready_, true)) tellReady();
    }
    const bool due = !busy || now - keptAt_ >= kKeepInterval;
    if (canWrite && (due || isFull()) && writeOut(now) && due) {
      keptAt_ = now;
      if (!sender_) {
        acknowledge();
        keepPositions();
      }
      std::erase_if(runners_, [this](const auto& runner) {
        return runner->ended() && runner->finishing() && !runner->awaitsStorage() && !ending();
      });
    }
    publish(now);
    supervisor_.alive(now);
    openWaiting(now);
    if (ending() && (output_ == Output::kFailing || (output_ == Output::kBlocked && now >= stopBy_))) return giveUp();
    if (output_ == Output::kGood && due && hasEnded()) return;
    wait(now, busy);
  }
}

/// True when all sources have been read to their end, which live ones have only when they were told to.
bool Adapter::hasEnded() const {
  return waiting_.empty() && std::ranges::all_of(runners_, [](const auto& runner) { return runner->ended(); });
}

bool Adapter::isFull() const {
  return events_->isFull() || (sender_ && sender_->isFull()) ||
         std::ranges::any_of(runners_, [](const auto& runner) { return runner->isFull(); });
}

/// True when some source may have more at once.
bool Adapter::work(TimePoint now) {
  bool more = false;
  for (const auto& runner : runners_) {
    if (!runner->ended()) more = runner->work(now, kTurn) || more;
  }
  return more;
}

void Adapter::wait(TimePoint now, bool busy) {
  std::vector<pollfd> wakers = {{signals_.get(), POLLIN, 0}, {reloader_->descriptor(), POLLIN, 0}};
  if (sender_) {
    wakers.push_back({sender_->descriptor(), POLLIN, 0});
  } else if (output_ == Output::kBlocked) {
    wakers.push_back({events_->descriptor(), POLLOUT, 0});
  }
  if (output_ == Output::kGood) {
    for (const auto& runner : runners_) {
      if (!runner->ended() && runner->descriptor() >= 0) wakers.push_back({runner->descriptor(), POLLIN, 0});
    }
  }
  const int timeout = busy ? 0 : pollTimeout(now, nextDeadline());
  if (poll(wakers.data(), wakers.size(), timeout) <= 0) return;
  if (output_ == Output::kBlocked && wakers[2].revents != 0) retryAt_ = TimePoint::min();
  if (sender_ && wakers[2].revents != 0) tellStored();
  if (wakers[0].revents != 0) receiveSignals();
  if (wakers[1].revents != 0) reload();
}

TimePoint Adapter::nextDeadline() const {
  TimePoint first = std::min(supervisor_.deadline(), metrics_ ? publishAt_ : TimePoint::max());
  if (!waiting_.empty()) first = std::min(first, openAt_);
  if (output_ != Output::kGood) return std::min({first, retryAt_, stopBy_});
  for (const auto& runner : runners_) {
    if (!runner->ended()) first = std::min(first, runner->deadline());
  }
  return first;
}

void Adapter::receiveSignals() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == sizeof info) {
    if (info.ssi_signo != SIGHUP) {
      stop();
    } else if (ending()) {
      reopenOutputs();
    } else {
      supervisor_.reloading();
      reloader_->request();
    }
  }
}

/// Told again while it waits for sources to be read to their end, it ends them where they are.
void Adapter::stop() {
  if (!stopping_) stopBy_ = monotonicNow() + kEndPatience;
  stopping_ = true;
  retryAt_ = TimePoint::min();
  waiting_.clear();
  supervisor_.stopping();
  for (const auto& runner : runners_) runner->finish(Finish::kStop);
}

/// Writes all that was gathered. False when that was not possible: then nothing is read until it goes on.
bool Adapter::writeOut(TimePoint now) {
  const int error = flushOutputs();
  if (error == 0) {
    if (std::exchange(output_, Output::kGood) == Output::kFailing) log_.info("output is written again");
    return true;
  }
  if (error == EAGAIN) {
    output_ = Output::kBlocked;
    retryAt_ = now + (sender_ ? kRoomRetry : kBlockedRetry);
    return false;
  }
  ++figures_.outputErrors;
  if (std::exchange(output_, Output::kFailing) != Output::kFailing) {
    log_.error("cannot write output: " + std::string(std::strerror(error)) + "; nothing is read until it can be");
  }
  retryAt_ = now + kOutputRetry;
  if (error == EPIPE && config().output.path.empty()) stopping_ = true;  // there will be no other reader
  return false;
}

/// Ends without having written everything.
void Adapter::giveUp() {
  status_ = EXIT_FAILURE;
  log_.error("ending without the last events; what they came from is read again at the next start, where it can be");
}

int Adapter::flushOutputs() {
  const LineOutput::Clock::time_point now = LineOutput::Clock::now();
  for (const auto& runner : runners_) {
    if (const int error = runner->flushUnmatched(now)) return error;
  }
  checkpoint("unmatched-written");
  return sender_ ? sendOut() : events_->flush(now);
}

/// Events and the positions behind them go together.
int Adapter::sendOut() {
  acknowledge();
  keepPositions();
  delivery::Client::Ticket ticket = 0;
  const int error = sender_->send(ticket);
  if (error != 0) return error;
  if (ticket != 0) {
    lastTicket_ = ticket;
    checkpoint("batch-sent");
  }
  for (const auto& runner : runners_) {
    runner->sent(lastTicket_);
    runner->stored(sender_->client().safe());  // nothing may have come of the messages
  }
  return 0;
}

/// Whoever keeps messages for a source may forget those that are safe.
void Adapter::tellStored() {
  sender_->client().takeProgress();
  for (const auto& runner : runners_) runner->stored(sender_->client().safe());
}

/// Everything was read and handed over. Gives destinations the time they need, at the end of all sources as long as
/// they get on, and after a signal no longer than that.
int Adapter::finishSending() {
  delivery::Client& client = sender_->client();
  const delivery::Client::Ticket last = lastTicket_;
  std::uint64_t waiting = UINT64_MAX;
  TimePoint until = monotonicNow() + kDrainPatience;
  while (!stopping_ && monotonicNow() < until && !client.waitDelivered(last, monotonicNow() + milliseconds(100))) {
    std::uint64_t left = 0;
    for (const auto& destination : client.figures().destinations) left += destination.waiting;
    if (left < waiting) until = monotonicNow() + kDrainPatience;
    waiting = left;
    receiveSignals();
    supervisor_.alive(monotonicNow());
  }
  const delivery::Client::Rest rest = client.stop(stopping_ ? stopBy_ : monotonicNow() + kEndPatience);
  tellStored();
  for (const auto& destination : client.figures().destinations) {
    if (destination.waiting > 0) log_.info(destination.name + ": what it has not got waits in the cache");
  }
  if (rest == delivery::Client::Rest::kInBuffer) giveUp();
  return rest == delivery::Client::Rest::kInBuffer ? EXIT_FAILURE : EXIT_SUCCESS;
}

/// Everything that was gathered is where it belongs.
void Adapter::acknowledge() {
  for (const auto& runner : runners_) runner->written();
}

/// At the end also waits until events and positions are on the disk.
void Adapter::keepPositions() {
  int error = ending() && !sender_ ? events_->sync() : 0;
  for (const auto& runner : runners_) {
    const int failed = positions_->keep(runner->config().name, runner->takeChanges(), ending());
    if (failed != 0) error = failed;
  }
  checkpoint("positions-kept");
  if (error != 0 && !positionsFailing_) {
    log_.error("cannot keep positions: " + std::string(std::strerror(error)) + "; events go on");
  }
  if (error == 0 && positionsFailing_) log_.info("positions are kept again");
  if (error != 0 && ending()) status_ = EXIT_FAILURE;
  positionsFailing_ = error != 0;
}

void Adapter::publish(TimePoint now) {
  if (!metrics_ || now < publishAt_) return;
  publishAt_ = now + kPublishInterval;
  figures_.sources.clear();
  for (const auto& runner : runners_) {
    if (once_ || !runner->finishing()) figures_.sources.push_back(runner->figures(now));
  }
  figures_.outputBytes = events_->bytes();
  if (sender_) figures_.delivery = sender_->client().figures();
  metrics_->publish(figures_);
}

void Adapter::reopenOutputs() {
  if (const int error = sender_ ? 0 : events_->reopen())
    log_.error("cannot open the output anew: " + std::string(std::strerror(error)));
  for (const auto& runner : runners_) {
    if (const int error = runner->reopen()) {
      log_.error(runner->config().name + ": cannot open the unmatched messages anew: " + std::strerror(error));
    }
  }
  retryAt_ = TimePoint::min();
}

void Adapter::reload() {
  std::optional<Reloader::Result> result = reloader_->take();
  if (!result || ending()) return;
  for (const SetupReport& report : result->reports) {
    report.isError ? log_.error(report.text) : log_.warning(report.text);
  }
  reopenOutputs();
  if (result->setup && apply(result->setup)) {
    ++figures_.reloads;
    log_.info("configuration reloaded");
  } else {
    ++figures_.failedReloads;
    log_.error("the configuration was not reloaded; the one before goes on");
  }
  tellReady();
}

/// Takes over another configuration between two messages, whole or, when something of it cannot be opened, not at all.
/// Sources whose input is the same go on; the others end, and new ones begin. One that follows files begins when the
/// one of its name that was before has ended and its positions are known.
bool Adapter::apply(const std::shared_ptr<const Setup>& setup) {
  const Config& next = setup->config;
  std::string error;
  const auto refused = [&] {
    log_.error(error);
    return false;
  };
  if (next.delivery.has_value() != config().delivery.has_value()) {
    error = "a change between [output] and [delivery] needs a new start";
    return refused();
  }
  const auto isRaw = [](delivery::RecordForm form) { return form == delivery::RecordForm::kRaw; };
  if (sender_ && isRaw(sender_->form()) != isRaw(next.delivery->form)) {
    error = "a change to form = \"raw\", or from it, needs a new start";
    return refused();
  }
  auto output = std::make_unique<LineOutput>();
  if (next.output != config().output) {
    error = output->open(next.output, LineOutput::Clock::now());
    if (!error.empty()) return refused();
  }
  std::vector<std::optional<LineOutput>> unmatched(next.sources.size());
  std::vector<std::unique_ptr<SourceRunner>> opened;
  std::vector<std::size_t> waiting;
  for (std::size_t i = 0; i < next.sources.size(); ++i) {
    if (const SourceRunner* const same = sameInput(next.sources[i])) {
      unmatched[i] = same->openUnmatched(next.sources[i], error);
      if (!error.empty()) return refused();
    } else if (std::holds_alternative<FileOptions>(next.sources[i].input)) {
      waiting.push_back(i);
    } else {
      opened.push_back(openSource(*setup, i, error));
      if (!opened.back()) return refused();
    }
  }

  if (next.state != config().state || next.metrics != config().metrics) {
    log_.warning("changes of state and metrics take effect at the next start");
  }
  if (next.deliveryText != config().deliveryText) {
    log_.warning("changes of delivery and destinations take effect at the next start");
  }
  if (next.output != config().output) {
    output->takeOver(*events_);
    *events_ = std::move(*output);
  }
  std::vector<const SourceRunner*> staying;
  for (std::size_t i = 0; i < next.sources.size(); ++i) {
    SourceRunner* const same = sameInput(next.sources[i]);
    if (!same) continue;
    if (same->config().input != next.sources[i].input) {
      log_.warning(next.sources[i].name + ": goes on as it was opened; how it reads changes at the next start");
    }
    same->reconfigure(next.sources[i], setup->formats[i], std::move(unmatched[i]));
    staying.push_back(same);
  }
  for (const auto& runner : runners_) {
    if (std::ranges::find(staying, runner.get()) == staying.end()) runner->finish(Finish::kStop);
  }
  for (auto& runner : opened) runners_.push_back(std::move(runner));
  fresh_ = fresh_ || !opened.empty();
  setup_ = setup;
  log_.configure(next.log);
  waiting_ = std::move(waiting);
  openAt_ = TimePoint::min();
  return true;
}

/// The source that is at work on this input under this name. What is not followed by a position must not be closed only
/// because it is to be read in another way: writers would be cut off, and lines torn.
SourceRunner* Adapter::sameInput(const SourceConfig& source) const {
  const auto isSame = [&](const auto& runner) {
    return !runner->finishing() && runner->config().name == source.name &&
           areSame(runner->config().input, source.input);
  };
  const auto found = std::ranges::find_if(runners_, isSame);
  return found == runners_.end() ? nullptr : found->get();
}

void Adapter::openWaiting(TimePoint now) {
  if (waiting_.empty() || now < openAt_) return;
  std::erase_if(waiting_, [&](std::size_t index) {
    const auto isBefore = [&](const auto& runner) { return runner->config().name == config().sources[index].name; };
    if (std::ranges::any_of(runners_, isBefore)) return false;
    std::string error;
    if (auto runner = openSource(*setup_, index, error)) {
      runners_.push_back(std::move(runner));
      fresh_ = true;
      return true;
    }
    log_.error(error + "; tried again in 10 s");
    openAt_ = now + kOpenRetry;
    return false;
  });
}

}  // namespace quillon
