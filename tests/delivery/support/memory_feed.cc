#include "tests/delivery/support/memory_feed.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <utility>

namespace quillon::delivery {

MemoryFeed::MemoryFeed(std::string clientId)
    : clientId_(std::move(clientId)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void MemoryFeed::wake() const { eventfd_write(wake_.get(), 1); }

void MemoryFeed::add(std::string bytes, RecordForm form) {
  {
    const std::lock_guard lock(mutex_);
    kept_.push_back({std::move(bytes), form});
  }
  wake();
}

void MemoryFeed::setPerRead(std::size_t events) {
  const std::lock_guard lock(mutex_);
  perRead_ = events;
}

void MemoryFeed::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake();
}

void MemoryFeed::drain() {
  {
    const std::lock_guard lock(mutex_);
    draining_ = true;
  }
  wake();
}

bool MemoryFeed::waitDelivered(std::uint64_t end, std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  return progress_.wait_for(lock, limit, [&] { return delivered_ >= end; });
}

std::vector<std::string> MemoryFeed::reports() const {
  const std::lock_guard lock(mutex_);
  return reports_;
}

std::uint64_t MemoryFeed::counted(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  const auto found = counts_.find(name);
  return found == counts_.end() ? 0 : found->second;
}

bool MemoryFeed::isConnected() const {
  const std::lock_guard lock(mutex_);
  return connected_;
}

int MemoryFeed::repetitions() const {
  const std::lock_guard lock(mutex_);
  return repetitions_;
}

bool MemoryFeed::read(Events& events) {
  const std::lock_guard lock(mutex_);
  const std::uint64_t end = std::min<std::uint64_t>(kept_.size(), read_ + perRead_);
  if (end == read_) return false;
  out_.assign(kept_.begin() + static_cast<std::ptrdiff_t>(read_), kept_.begin() + static_cast<std::ptrdiff_t>(end));
  events.events.clear();
  for (const Kept& kept : out_) {
    events.events.push_back({read_++, static_cast<std::uint32_t>(kept.form), kept.bytes});
  }
  events.end = end;
  return true;
}

void MemoryFeed::delivered(std::uint64_t end) {
  const std::lock_guard lock(mutex_);
  delivered_ = std::max(delivered_, end);
  progress_.notify_all();
}

std::uint64_t MemoryFeed::delivered() const {
  const std::lock_guard lock(mutex_);
  return delivered_;
}

void MemoryFeed::again() {
  const std::lock_guard lock(mutex_);
  read_ = delivered_;
  ++repetitions_;
}

void MemoryFeed::rewind(std::uint64_t number) {
  const std::lock_guard lock(mutex_);
  read_ = delivered_ = std::min(number, delivered_);
  ++repetitions_;
}

void MemoryFeed::wait(Clock::time_point until, std::span<pollfd> others) {
  std::vector<pollfd> all(others.begin(), others.end());
  all.push_back({wake_.get(), POLLIN, 0});
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  poll(all.data(), all.size(), static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000)));
  eventfd_t ignored = 0;
  eventfd_read(wake_.get(), &ignored);
  std::copy_n(all.begin(), others.size(), others.begin());
}

bool MemoryFeed::stopping() const {
  const std::lock_guard lock(mutex_);
  return stopping_;
}

bool MemoryFeed::draining() const {
  const std::lock_guard lock(mutex_);
  return draining_;
}

void MemoryFeed::report(Level /*level*/, std::string_view text) {
  const std::lock_guard lock(mutex_);
  reports_.emplace_back(text);
}

void MemoryFeed::connected(bool isConnected) {
  const std::lock_guard lock(mutex_);
  connected_ = isConnected;
}

void MemoryFeed::count(std::string_view name, std::uint64_t more) {
  const std::lock_guard lock(mutex_);
  const auto found = counts_.emplace(name, 0).first;
  found->second += more;
}

}  // namespace quillon::delivery
