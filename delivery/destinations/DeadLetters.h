#ifndef QUILLON_DELIVERY_DESTINATIONS_DEADLETTERS_H_
#define QUILLON_DELIVERY_DESTINATIONS_DEADLETTERS_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "delivery/client/Feed.h"

namespace quillon::delivery {

/// The file for events that a receiver will never take, whatever is tried. One object of JSON a line is appended:
///
///     {"number":4711,"why":"400 Bad Request","record":{"class":...}}
///
/// where the record is as in record_json.h. For the thread of its destination.
class DeadLetters {
 public:
  explicit DeadLetters(std::string path) : path_(std::move(path)) {}

  /// Appends them and waits until they are on the disk; where that fails, tells why and tries again. False when the
  /// feed says stop before. Counts them as "refused", and tells of the first of several in a row.
  [[nodiscard]] bool put(Feed& feed, std::span<const Event> events, std::string_view why);
  /// The receiver takes events again: tells how many it did not.
  void endBurst(Feed& feed);

 private:
  const std::string path_;
  std::uint64_t inBurst_ = 0;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_DESTINATIONS_DEADLETTERS_H_
