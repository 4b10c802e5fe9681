#include "delivery/client/TicketIndex.h"

#include <algorithm>
#include <iterator>

namespace quillon::delivery {

void TicketIndex::add(std::uint64_t ticket, std::uint64_t end) {
  entries_.push_back({ticket, end});
  if (entries_.size() < kMost) return;
  for (std::size_t i = 0; i < kMost / 2; ++i) entries_[i] = entries_[2 * i + 1];
  entries_.resize(kMost / 2);
}

std::uint64_t TicketIndex::below(std::uint64_t number) const {
  const auto behind = std::ranges::upper_bound(entries_, number, {}, &Entry::end);
  return behind == entries_.begin() ? forgotten_ : std::prev(behind)->ticket;
}

void TicketIndex::forgetBelow(std::uint64_t number) {
  while (!entries_.empty() && entries_.front().end <= number) {
    forgotten_ = entries_.front().ticket;
    entries_.pop_front();
  }
}

}  // namespace quillon::delivery
