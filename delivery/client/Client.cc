#include "delivery/client/Client.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "delivery/client/Bell.h"
#include "delivery/client/DestinationFeed.h"
#include "delivery/client/RateLimit.h"
#include "delivery/client/TicketIndex.h"
#include "delivery/client/client_id.h"
#include "foundation/checkpoint.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;

/// Batches are written together up to this size: each write, and each wait for the disk, then is for many.
constexpr std::uint64_t kWriteBytes = 1 << 20;
/// From here on a batch is taken over with its room, and not copied into the room of another one.
constexpr std::uint64_t kCopyBytes = kWriteBytes / 4;
/// How often a cache that is full or fails is tried again, if no destination makes room before.
constexpr milliseconds kRetry(1000);
constexpr milliseconds kTidy(1000);

std::uint64_t sizeOf(const Batch& batch) {
  std::uint64_t size = batch.bytes();
  for (const auto& [name, value] : batch.positions()) size += name.size() + value.size() + 8;
  return size;
}

}  // namespace

class Client::Impl {
 public:
  Impl(const DeliveryConfig& config, Report report)
      : config_(config), report_(std::move(report)), rateLimit_(config.rateLimit) {}
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() { end(); }

  bool start(std::string& error);

  const Positions& positions() const { return positions_; }
  bool wants(const Record& record);
  Result send(Batch& batch, Ticket& ticket);
  Ticket safe() const { return safe_; }
  Ticket delivered(std::size_t destination) const;
  int descriptor() const { return progressBell_.descriptor(); }
  void takeProgress() { progressBell_.clear(); }
  template <class Holds>
  bool wait(Clock::time_point until, Holds holds) {
    std::unique_lock lock(mutex_);
    return progress_.wait_until(lock, until, holds);
  }
  bool isDelivered(Ticket ticket) const;
  Rest stop(Clock::time_point until);
  Figures figures() const;

 private:
  /// Batches that are written together.
  struct Pending {
    Batch batch;
    Ticket ticket = 0;  ///< Of the last of them.
    std::uint64_t bytes = 0;
  };
  struct Running {
    std::unique_ptr<DestinationFeed> feed;
    std::thread thread;
    bool hasEnded = false;  ///< Under the mutex.
  };

  void report(Feed::Level level, const std::string& text);
  void run(std::size_t destination);
  void write();
  bool append(std::unique_lock<std::mutex>& lock, Clock::time_point now);
  void tell(Cache::Result result);
  void noteProgress();
  void deliveryProgressed();
  void end();

  const DeliveryConfig config_;
  const Report report_;
  std::mutex reporting_;
  RateLimit rateLimit_;
  std::unique_ptr<Cache> cache_;
  Positions positions_;
  std::vector<Running> destinations_;
  Bell progressBell_;
  std::atomic<std::uint64_t> taken_ = 0;
  std::atomic<std::uint64_t> filtered_ = 0;
  std::atomic<std::uint64_t> rateLimited_ = 0;
  std::atomic<Ticket> safe_ = 0;

  mutable std::mutex mutex_;          ///< For what follows.
  std::condition_variable work_;      ///< For the writer.
  std::condition_variable progress_;  ///< For those who wait for tickets, or for the end.
  std::deque<Pending> queue_;
  Pending inHand_;  ///< What the writer works on, when it has a ticket.
  Batch spare_;     ///< Empty, with room.
  std::uint64_t buffered_ = 0;
  Ticket last_ = 0;
  TicketIndex tickets_;
  std::uint64_t deliveries_ = 0;  ///< How often destinations have told of any.
  bool isRefusing_ = false;       ///< send() has said that there is no room.
  bool isClosed_ = false;         ///< send() takes nothing more.
  bool isEnding_ = false;         ///< The writer is to return.
  Cache::Result lastResult_ = Cache::Result::kTaken;
  std::thread writer_;
};

bool Client::Impl::start(std::string& error) {
  CacheOptions options = config_.cache;
  options.report = [this](const std::string& text) { report(Feed::Level::kError, text); };
  cache_ = Cache::open(options, error);
  if (!cache_) return false;
  const std::string id = clientId(config_.client, options.directory, *cache_, error);
  if (id.empty()) return false;
  positions_ = cache_->positions();
  for (const std::string& name : cache_->readers()) {
    if (std::ranges::find(config_.destinations, name, &DestinationConfig::name) != config_.destinations.end()) continue;
    report(Feed::Level::kWarning, name + ": is no destination any more; what it had not got is not kept for it");
    cache_->forget(name);
  }
  destinations_.resize(config_.destinations.size());
  for (std::size_t i = 0; i < destinations_.size(); ++i) {
    const DestinationConfig& destination = config_.destinations[i];
    const DestinationFeed::Observer observer{
        .report = [this](Feed::Level level, std::string_view text) { report(level, std::string(text)); },
        .progress = [this] { deliveryProgressed(); }};
    destinations_[i].feed =
        std::make_unique<DestinationFeed>(destination, id, cache_->reader(destination.name), observer);
  }
  writer_ = std::thread([this] { write(); });
  for (std::size_t i = 0; i < destinations_.size(); ++i) destinations_[i].thread = std::thread([this, i] { run(i); });
  return true;
}

void Client::Impl::report(Feed::Level level, const std::string& text) {
  const std::scoped_lock hold(reporting_);
  if (report_) report_(level, text);
}

/// The thread of a destination.
void Client::Impl::run(std::size_t destination) {
  config_.destinations[destination].destination->run(*destinations_[destination].feed);
  const std::scoped_lock hold(mutex_);
  destinations_[destination].hasEnded = true;
  progress_.notify_all();
}

bool Client::Impl::wants(const Record& record) {
  const auto isWantedBy = [&](const DestinationConfig& destination) { return destination.filter.passes(record); };
  if (!config_.filter.passes(record) || std::ranges::none_of(config_.destinations, isWantedBy)) {
    ++filtered_;
    return false;
  }
  if (rateLimit_.passes(Clock::now())) return true;
  ++rateLimited_;
  return false;
}

Client::Result Client::Impl::send(Batch& batch, Ticket& ticket) {
  const std::uint64_t size = sizeOf(batch);
  if (size > kMaxBatchBytes) return Result::kTooLarge;
  const std::size_t events = batch.events();
  {
    const std::scoped_lock hold(mutex_);
    if (isClosed_ || (buffered_ > 0 && buffered_ + size > config_.bufferBytes)) {
      isRefusing_ = true;
      return Result::kFull;
    }
    ticket = ++last_;
    buffered_ += size;
    if (queue_.empty() || queue_.back().bytes + size > kWriteBytes) {
      queue_.emplace_back().batch = std::exchange(spare_, Batch());
    }
    Batch& last = queue_.back().batch;
    if (last.empty() && size > kCopyBytes) {
      std::swap(last, batch);
    } else {
      last.add(batch);
    }
    queue_.back().ticket = ticket;
    queue_.back().bytes += size;
  }
  work_.notify_one();
  batch.clear();
  taken_ += events;
  return Result::kTaken;
}

Client::Ticket Client::Impl::delivered(std::size_t destination) const {
  const std::scoped_lock hold(mutex_);
  return tickets_.below(destinations_[destination].feed->acknowledged());
}

/// Under the mutex.
bool Client::Impl::isDelivered(Ticket ticket) const {
  return std::ranges::all_of(destinations_, [&](const Running& destination) {
    return tickets_.below(destination.feed->acknowledged()) >= ticket;
  });
}

/// The writer's thread.
void Client::Impl::write() {
  std::unique_lock lock(mutex_);
  const milliseconds interval =
      config_.cache.sync == Sync::kInterval ? std::min(kTidy, config_.cache.syncInterval) : kTidy;
  Clock::time_point tidyAt = Clock::now() + interval;
  Clock::time_point retryAt = Clock::time_point::min();
  while (!isEnding_) {
    const Clock::time_point now = Clock::now();
    if (inHand_.ticket == 0 && !queue_.empty()) {
      inHand_ = std::move(queue_.front());
      queue_.pop_front();
      retryAt = now;
    }
    const std::uint64_t deliveries = deliveries_;
    const bool isTrying = inHand_.ticket != 0 && now >= retryAt;
    if (isTrying && !append(lock, now)) retryAt = now + kRetry;
    if (now >= tidyAt) {
      lock.unlock();
      cache_->tidy(now);
      lock.lock();
      tidyAt = Clock::now() + interval;
      noteProgress();
    }
    const auto isAwaited = [&] {
      if (inHand_.ticket == 0) return isEnding_ || !queue_.empty();
      return isEnding_ || (lastResult_ == Cache::Result::kFull && deliveries_ != deliveries);
    };
    const Clock::time_point until = inHand_.ticket == 0 ? tidyAt : std::min(tidyAt, retryAt);
    if (work_.wait_until(lock, until, isAwaited) && inHand_.ticket != 0) retryAt = Clock::time_point::min();
  }
}

/// False when what is in hand has to be tried again.
bool Client::Impl::append(std::unique_lock<std::mutex>& lock, Clock::time_point now) {
  lock.unlock();
  const Cache::Result result = cache_->append(inHand_.batch, now);
  checkpoint("buffer-written");
  lock.lock();
  if (result != lastResult_) tell(result);
  lastResult_ = result;
  if (result == Cache::Result::kFull || result == Cache::Result::kFailed) return false;
  tickets_.add(inHand_.ticket, cache_->end());
  buffered_ -= inHand_.bytes;
  inHand_.batch.clear();
  spare_ = std::move(inHand_.batch);
  inHand_ = Pending();
  noteProgress();
  for (const Running& destination : destinations_) destination.feed->wake();
  return true;
}

void Client::Impl::tell(Cache::Result result) {
  switch (result) {
    case Cache::Result::kTaken:
      return report(Feed::Level::kInfo, "the cache takes events again");
    case Cache::Result::kFull:
      return report(Feed::Level::kWarning, "the cache is full; events wait until destinations have taken more");
    case Cache::Result::kFailed:
      return report(Feed::Level::kError, "the cache cannot be written; events wait until it can be");
    case Cache::Result::kTooLarge:
      return report(Feed::Level::kError, "events are lost that are too large for the cache");
  }
}

/// Of what is safe, and of room. Under the mutex.
void Client::Impl::noteProgress() {
  std::uint64_t least = cache_->safe();
  const Ticket safe = tickets_.below(least);
  for (const Running& destination : destinations_) least = std::min(least, destination.feed->acknowledged());
  tickets_.forgetBelow(least);
  const bool isSafer = safe > safe_;
  if (isSafer) safe_ = safe;
  const bool hasRoom = isRefusing_ && buffered_ < config_.bufferBytes;
  if (hasRoom) isRefusing_ = false;
  if (isSafer || hasRoom) progressBell_.ring();
  progress_.notify_all();
}

void Client::Impl::deliveryProgressed() {
  const std::scoped_lock hold(mutex_);
  ++deliveries_;
  progress_.notify_all();
  if (inHand_.ticket != 0) work_.notify_one();
}

Client::Rest Client::Impl::stop(Clock::time_point until) {
  std::unique_lock lock(mutex_);
  isClosed_ = true;
  const bool isWritten = progress_.wait_until(lock, until, [&] { return queue_.empty() && inHand_.ticket == 0; });
  if (isWritten) {
    for (const Running& destination : destinations_) destination.feed->drain();
    const auto hasEnded = [](const Running& destination) { return destination.hasEnded; };
    progress_.wait_until(lock, until, [&] { return std::ranges::all_of(destinations_, hasEnded); });
  }
  lock.unlock();
  end();
  if (cache_->safe() < cache_->end()) static_cast<void>(cache_->sync());
  lock.lock();
  noteProgress();
  if (safe_ < last_) return Rest::kInBuffer;
  const auto hasAll = [&](const Running& destination) { return destination.feed->acknowledged() >= cache_->end(); };
  return std::ranges::all_of(destinations_, hasAll) ? Rest::kNone : Rest::kInCache;
}

/// Ends all threads.
void Client::Impl::end() {
  for (const Running& destination : destinations_) {
    if (destination.feed) destination.feed->stop();
  }
  for (Running& destination : destinations_) {
    if (destination.thread.joinable()) destination.thread.join();
  }
  {
    const std::scoped_lock hold(mutex_);
    isClosed_ = isEnding_ = true;
  }
  work_.notify_one();
  if (writer_.joinable()) writer_.join();
}

Client::Figures Client::Impl::figures() const {
  Figures figures;
  const std::uint64_t end = cache_->end();
  figures.destinations.reserve(destinations_.size());
  for (std::size_t i = 0; i < destinations_.size(); ++i) {
    DestinationFeed::Figures own = destinations_[i].feed->figures();
    const std::uint64_t acknowledged = destinations_[i].feed->acknowledged();
    figures.destinations.push_back({config_.destinations[i].name, own.isConnected, own.delivered, own.filtered,
                                    end - std::min(end, acknowledged), std::move(own.counts)});
  }
  figures.taken = taken_;
  figures.filtered = filtered_;
  figures.rateLimited = rateLimited_;
  const CacheCounts counts = cache_->counts();
  figures.damaged = counts.damaged;
  figures.dropped = counts.dropped;
  figures.failures = counts.failures;
  figures.cacheBytes = cache_->bytes();
  const std::scoped_lock hold(mutex_);
  figures.buffered = buffered_;
  return figures;
}

Client::Client(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Client::~Client() = default;

std::unique_ptr<Client> Client::start(const DeliveryConfig& config, Report report, std::string& error) {
  auto impl = std::make_unique<Impl>(config, std::move(report));
  if (!impl->start(error)) return nullptr;
  return std::unique_ptr<Client>(new Client(std::move(impl)));
}

const Positions& Client::positions() const { return impl_->positions(); }
bool Client::wants(const Record& record) { return impl_->wants(record); }
Client::Result Client::send(Batch& batch, Ticket& ticket) { return impl_->send(batch, ticket); }
Client::Ticket Client::safe() const { return impl_->safe(); }
Client::Ticket Client::delivered(std::size_t destination) const { return impl_->delivered(destination); }
int Client::descriptor() const { return impl_->descriptor(); }
void Client::takeProgress() { impl_->takeProgress(); }
bool Client::waitSafe(Ticket ticket, Clock::time_point until) {
  return impl_->wait(until, [&] { return impl_->safe() >= ticket; });
}
bool Client::waitDelivered(Ticket ticket, Clock::time_point until) {
  return impl_->wait(until, [&] { return impl_->isDelivered(ticket); });
}
Client::Rest Client::stop(Clock::time_point until) { return impl_->stop(until); }
Client::Figures Client::figures() const { return impl_->figures(); }

}  // namespace quillon::delivery
