#ifndef QUILLON_DELIVERY_CACHE_LOGINDEX_H_
#define QUILLON_DELIVERY_CACHE_LOGINDEX_H_

#include <cstdint>
#include <string>
#include <vector>

#include "delivery/cache/Files.h"
#include "delivery/cache/Ledger.h"
#include "delivery/cache/format.h"

namespace quillon::delivery {

struct Segment {
  std::uint64_t begin = 0;  ///< Number that its first event has, if it has any.
  std::uint64_t end = 0;    ///< Number behind its last event; what is found behind that is none of the cache.
  std::uint64_t bytes = 0;
  std::uint64_t previous = 0;  ///< Number behind the last event before it; `begin` where that is not known.
  bool hasPositions = false;   ///< It begins with all positions, in a batch that is whole.
};

/// What the segments of a directory hold, found with as little reading as will do: segments that were on the disk
/// before others were begun are believed until somebody reads them.
struct LogIndex {
  std::vector<Segment> segments;  ///< By their numbers.
  std::uint64_t end = 0;          ///< Number behind the last event.
  std::uint64_t next = 0;         ///< A number that no event has had, and none above it.
  std::uint64_t synced = 0;       ///< All events below were on the disk, and so their loss would be damage.
  /// Those behind the last batch before which nothing is missing. Events behind that may be there, but what is missing
  /// may not have been on the disk before a loss of power: the sources go back to before it.
  Positions positions;
  std::uint64_t setBack = 0;  ///< When not 0, the number of the first event that the positions do not count.
  bool havePositions = true;  ///< False when the oldest positions could not be read.
};

/// 0, or an errno with the path concerned in `path`.
[[nodiscard]] int loadLog(Files& files, const std::string& directory, const Ledger::Contents& ledger, LogIndex& index,
                          std::string& path);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CACHE_LOGINDEX_H_
