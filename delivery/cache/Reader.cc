#include <algorithm>
#include <cerrno>
#include <utility>

#include "delivery/cache/Cache.h"
#include "foundation/checkpoint.h"

namespace quillon::delivery {

Reader::Reader(Cache& cache, std::string name, std::uint64_t number)
    : cache_(cache), name_(std::move(name)), acknowledged_(number), read_(number), lastGiven_(number) {}

/// Where to go on, behind what was dropped meanwhile.
std::optional<Segment> Reader::findNext() {
  const std::scoped_lock hold(cache_.mutex_);
  const auto& cursors = cache_.ledger_.contents().cursors;
  const auto cursor = cursors.find(name_);
  if (cursor != cursors.end() && cursor->second > acknowledged_) {
    acknowledged_ = cursor->second;
    read_ = std::max(read_, acknowledged_);
    lastGiven_ = std::max(lastGiven_, acknowledged_);
  }
  return cache_.find(read_);
}

int Reader::open(const Segment& segment) {
  if (segment_ != segment.begin) {
    const std::string path = cache_.pathOf(segment.begin);
    File file(cache_.files_, cache_.files_.openToRead(path));
    if (!file) return file.error();
    scanner_.emplace(cache_.files_, std::move(file));
    segment_ = segment.begin;
  }
  scanner_->setLimit(segment.bytes);
  scanner_->setNumbers(segment.begin, segment.end);
  return 0;
}

Reader::Result Reader::read(Events& events) {
  events.events.clear();
  std::uint64_t gone = UINT64_MAX;
  while (const std::optional<Segment> segment = findNext()) {
    if (const int error = open(*segment)) {
      // It may have been removed just now; one that is still in the list was taken away by somebody else.
      if (error == ENOENT && std::exchange(gone, segment->begin) != segment->begin) continue;
      if (error == ENOENT) {
        miss(segment->end, *segment);
        continue;
      }
      const std::scoped_lock hold(cache_.mutex_);
      cache_.failed("open", cache_.pathOf(segment->begin), error);
      return Result::kFailed;
    }
    if (segment->previous > read_) miss(segment->previous, *segment);
    if (scanner_->next(found_, read_)) {
      if (!found_.isSkipped) take(*segment, events);
      if (events.events.empty()) continue;
      events.end = lastGiven_ = read_;
      return Result::kEvents;
    }
    if (const int error = scanner_->error()) {
      const std::scoped_lock hold(cache_.mutex_);
      cache_.failed("read", cache_.pathOf(segment->begin), error);
      return Result::kFailed;
    }
    miss(segment->end, *segment);
  }
  if (acknowledged_ == lastGiven_) acknowledge(read_);  // nobody is given what cannot be read
  return Result::kNothing;
}

/// What of the batch found is to be given out.
void Reader::take(const Segment& segment, Events& events) {
  const BatchHeader& header = found_.header;
  if (header.previous > read_) miss(header.previous, segment);
  const std::uint64_t from = std::max(read_, header.first);
  for (const Event& event : found_.events) {
    if (event.number >= from) events.events.push_back(event);
  }
  const std::uint64_t behind = std::max(from, header.first + header.events);
  cache_.countDamage(from, behind - from - events.events.size(), segment.begin);
  read_ = std::max(read_, header.end());
}

void Reader::miss(std::uint64_t end, const Segment& segment) {
  if (end > read_) cache_.countDamage(read_, end - read_, segment.begin);
  read_ = std::max(read_, end);
}

void Reader::acknowledge(std::uint64_t number) {
  number = std::min(number, read_);
  if (number <= acknowledged_) return;
  acknowledged_ = number;
  const std::scoped_lock hold(cache_.mutex_);
  const auto& cursors = cache_.ledger_.contents().cursors;
  const auto cursor = cursors.find(name_);
  if (cursor == cursors.end() || cursor->second >= number) return;
  if (const int error = cache_.ledger_.setCursor(name_, number)) {
    cache_.failed("write", cache_.options_.directory + "/ledger", error);
  }
  checkpoint("acknowledged");
}

void Reader::rewind(std::uint64_t number) {
  segment_ = UINT64_MAX;
  const std::scoped_lock hold(cache_.mutex_);
  const std::uint64_t oldest = cache_.segments_.empty() ? cache_.end_ : cache_.segments_.front().previous;
  read_ = std::min(read_, std::max(number, oldest));
  if (read_ >= acknowledged_) return;
  acknowledged_ = lastGiven_ = read_;
  if (const int error = cache_.ledger_.setCursor(name_, read_)) {
    cache_.failed("write", cache_.options_.directory + "/ledger", error);
  }
}

}  // namespace quillon::delivery
