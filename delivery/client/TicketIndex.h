#ifndef QUILLON_DELIVERY_CLIENT_TICKETINDEX_H_
#define QUILLON_DELIVERY_CLIENT_TICKETINDEX_H_

#include <cstddef>
#include <cstdint>
#include <deque>

namespace quillon::delivery {

/// Which tickets are in the cache up to which number. What is asked for becomes coarser when there is much of it: then
/// a ticket counts as there with one that came a little later. For one thread at a time.
class TicketIndex {
 public:
  static constexpr std::size_t kMost = 1 << 16;

  /// The tickets up to this one are in the cache below the number `end`. Both grow.
  void add(std::uint64_t ticket, std::uint64_t end);
  /// The last ticket that is there as a whole below this number.
  std::uint64_t below(std::uint64_t number) const;
  /// Nobody asks for lower numbers any more.
  void forgetBelow(std::uint64_t number);

 private:
  struct Entry {
    std::uint64_t ticket;
    std::uint64_t end;
  };

  std::uint64_t forgotten_ = 0;  ///< The last ticket of what was forgotten.
  std::deque<Entry> entries_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_TICKETINDEX_H_
