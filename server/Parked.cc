#include "server/Parked.h"

#include <charconv>
#include <random>
#include <utility>

#include "foundation/checkpoint.h"

namespace quillon {
namespace {

constexpr const char* kIdentity = "identity";
constexpr const char* kReader = "server";

std::uint64_t numberIn(const std::string& text) {
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::string randomIdentity() {
  std::random_device random;
  std::string identity;
  for (int i = 0; i < 16; ++i) identity += "0123456789abcdef"[random() % 16];
  return identity;
}

}  // namespace

std::unique_ptr<Parked> Parked::open(const Options& options, Report report, std::string& error) {
  delivery::CacheOptions cache;
  cache.directory = options.directory;
  cache.maxBytes = options.maxBytes;
  cache.whenFull = options.dropsOldest ? delivery::WhenFull::kDropOldest : delivery::WhenFull::kBlock;
  cache.replayWindow = std::chrono::milliseconds(0);
  cache.report = std::move(report);
  auto opened = delivery::Cache::open(cache, error);
  return opened ? std::unique_ptr<Parked>(new Parked(std::move(opened), options)) : nullptr;
}

Parked::Parked(std::unique_ptr<delivery::Cache> cache, const Options& options)
    : cache_(std::move(cache)), options_(options), reader_(cache_->reader(kReader)) {
  const auto found = cache_->positions().find(kIdentity);
  identity_ = found == cache_->positions().end() ? randomIdentity() : found->second;
}

bool Parked::has(std::string_view client, std::uint64_t number) const {
  const auto found = cache_->positions().find(clientKey(client));
  return found != cache_->positions().end() && number < numberIn(found->second);
}

std::vector<std::pair<std::string, std::uint64_t>> Parked::ends() const {
  std::vector<std::pair<std::string, std::uint64_t>> ends;
  for (const auto& [key, value] : cache_->positions()) {
    if (key.starts_with(kClient)) ends.emplace_back(key.substr(kClient.size()), numberIn(value));
  }
  return ends;
}

bool Parked::hasRoom(std::size_t bytes) const {
  // Before the cache itself would say so: what was added has to go in.
  return options_.dropsOldest || cache_->bytes() + batch_.bytes() + bytes <= options_.maxBytes / 8 * 7;
}

void Parked::add(std::string_view client, const delivery::Event& record) {
  batch_.add(record.bytes, record.kind);
  batch_.setPosition(clientKey(client), std::to_string(record.number + 1));
}

bool Parked::flush() {
  if (batch_.empty()) return true;
  batch_.setPosition(kIdentity, identity_);
  checkpoint("parking");
  if (cache_->append(batch_) != delivery::Cache::Result::kTaken) return false;
  batch_.clear();
  checkpoint("parked");
  return true;
}

void Parked::startAt(std::uint64_t number) {
  start_ = number;
  release(number);
}

std::optional<delivery::Event> Parked::next() {
  while (true) {
    for (; at_ < events_.events.size(); ++at_) {
      if (events_.events[at_].number >= start_) return events_.events[at_++];
    }
    at_ = 0;
    events_.events.clear();
    if (reader_->read(events_) != delivery::Reader::Result::kEvents) return std::nullopt;
  }
}

std::uint64_t Parked::records() const {
  const std::uint64_t end = cache_->end();
  return end > reader_->acknowledged() ? end - reader_->acknowledged() : 0;
}

}  // namespace quillon
