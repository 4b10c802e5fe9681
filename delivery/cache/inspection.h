#ifndef QUILLON_DELIVERY_CACHE_INSPECTION_H_
#define QUILLON_DELIVERY_CACHE_INSPECTION_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "delivery/cache/Files.h"
#include "delivery/cache/Ledger.h"
#include "delivery/cache/LogIndex.h"

/// A cache seen from outside, by whoever does not own it: nothing here but repair() writes, and all of it can be done
/// while a process is at work with the cache, whose last batches may then be seen or not.
namespace quillon::delivery {

struct CacheContents {
  Ledger::Contents ledger;
  LogIndex log;
};

/// Reads what a cache says of itself, as it is opened. 0, or an errno with the path concerned in `path`.
[[nodiscard]] int readContents(Files& files, const std::string& directory, CacheContents& contents, std::string& path);

/// What is wrong with a segment, and what is not.
struct SegmentHealth {
  std::uint64_t events = 0;      ///< That can be read.
  std::uint64_t lost = 0;        ///< Numbers of events that are missing or damaged.
  std::uint64_t blemishes = 0;   ///< Batches with damage that costs nothing, as what it hit is there twice.
  std::uint64_t unfinished = 0;  ///< Bytes behind the last batch that counts.
  bool hasPositions = true;      ///< Those of each batch.
  std::uint64_t end = 0;         ///< Number behind the last batch; 0 when there is none.
};

/// Goes through a segment to its end and calls `visit`, unless it is empty, with every event. 0 or an errno.
[[nodiscard]] int examine(Files& files, const std::string& directory, const Segment& segment, SegmentHealth& health,
                          const std::function<void(const Event&)>& visit = nullptr);

/// What repair() did with a segment.
struct Repair {
  std::uint64_t segment = 0;
  std::uint64_t events = 0;  ///< That it has now.
  std::uint64_t lost = 0;
  std::string original;  ///< Where it is kept.
};

/// Writes segments anew that are damaged, with everything of them that can be read; each original is kept under its
/// name with ".damaged" behind it, one that the disk does not give with ".unreadable", and what it does not give is
/// damage. The ledger is left to whoever opens the cache next. Only for who holds the lock. 0, or an errno with the
/// path concerned in `path`; what was repaired until then is.
[[nodiscard]] int repair(Files& files, const std::string& directory, std::vector<Repair>& repairs, std::string& path);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CACHE_INSPECTION_H_
