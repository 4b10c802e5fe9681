#include "delivery/client/DestinationFeed.h"

#include <algorithm>
#include <limits>

namespace quillon::delivery {
namespace {

/// How often one and the same text is told.
constexpr std::chrono::seconds kToldAgain(10);
/// When a cache that could not be read is tried again.
constexpr std::chrono::seconds kReadAgain(1);

/// What poll(2) is to wait at most, in whole milliseconds, rounded up.
int pollTimeout(Feed::Clock::time_point until) {
  if (until == Feed::Clock::time_point::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Feed::Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace

DestinationFeed::DestinationFeed(const DestinationConfig& config, std::string clientId, std::unique_ptr<Reader> reader,
                                 Observer observer)
    : config_(config),
      clientId_(std::move(clientId)),
      reader_(std::move(reader)),
      observer_(std::move(observer)),
      acknowledged_(reader_->acknowledged()),
      readEnd_(reader_->acknowledged()) {}

void DestinationFeed::drain() {
  isDraining_ = true;
  bell_.ring();
}

void DestinationFeed::stop() {
  isStopping_ = true;
  bell_.ring();
}

bool DestinationFeed::read(Events& events) {
  while (!isStopping_) {
    const Reader::Result result = reader_->read(read_);
    isFailing_ = result == Reader::Result::kFailed;
    if (result != Reader::Result::kEvents) break;
    readEnd_ = read_.end;
    if (!config_.filter.isEmpty()) filter(read_.events);
    if (!read_.events.empty()) {
      events.events.swap(read_.events);
      events.end = read_.end;
      given_.push_back({read_.end, events.events.size()});
      return true;
    }
    if (given_.empty()) acknowledge(readEnd_);  // else with what was given before it
  }
  // What was dropped, or is missing, counts as taken care of.
  if (reader_->acknowledged() > acknowledged_) acknowledge(reader_->acknowledged());
  return false;
}

void DestinationFeed::filter(std::vector<Event>& events) {
  const std::size_t removed = std::erase_if(
      events, [&](const Event& event) { return decode(event.bytes, record_) && !config_.filter.passes(record_); });
  filtered_ += removed;
}

void DestinationFeed::delivered(std::uint64_t end) {
  std::uint64_t count = 0;
  while (!given_.empty() && given_.front().end <= end) {
    count += given_.front().events;
    given_.pop_front();
  }
  delivered_ += count;
  acknowledge(given_.empty() ? std::max(end, readEnd_) : end);
}

void DestinationFeed::acknowledge(std::uint64_t end) {
  reader_->acknowledge(end);
  acknowledged_ = reader_->acknowledged();
  observer_.progress();
}

void DestinationFeed::again() { rewind(reader_->acknowledged()); }

void DestinationFeed::rewind(std::uint64_t number) {
  given_.clear();
  reader_->rewind(number);
  readEnd_ = acknowledged_ = reader_->acknowledged();
}

void DestinationFeed::wait(Clock::time_point until, std::span<pollfd> others) {
  if (isFailing_) until = std::min(until, Clock::now() + kReadAgain);
  polled_.assign(1, {bell_.descriptor(), POLLIN, 0});
  polled_.insert(polled_.end(), others.begin(), others.end());
  if (poll(polled_.data(), polled_.size(), pollTimeout(until)) < 0) {
    for (pollfd& one : polled_) one.revents = 0;
  }
  std::copy(polled_.begin() + 1, polled_.end(), others.begin());
  if (polled_[0].revents != 0) bell_.clear();
}

void DestinationFeed::report(Level level, std::string_view text) {
  const Clock::time_point now = Clock::now();
  if (text == toldLast_ && now < toldAt_ + kToldAgain) return;
  toldLast_ = text;
  toldAt_ = now;
  observer_.report(level, config_.name + ": " + std::string(text));
}

void DestinationFeed::count(std::string_view name, std::uint64_t more) {
  const std::scoped_lock hold(mutex_);
  const auto found = counts_.find(name);
  if (found != counts_.end()) {
    found->second += more;
  } else {
    counts_.emplace(name, more);
  }
}

DestinationFeed::Figures DestinationFeed::figures() const {
  Figures figures{isConnected_, delivered_, filtered_, {}};
  const std::scoped_lock hold(mutex_);
  figures.counts.assign(counts_.begin(), counts_.end());
  return figures;
}

}  // namespace quillon::delivery
