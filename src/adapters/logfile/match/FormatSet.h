#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FORMATSET_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FORMATSET_H_

#include <cstddef>
#include <cstdint>
#include <memory>

class LogDriver;

namespace quillon {

struct Engine;

/// The formats of a driver, made ready for binding: `FormatSet::make(driver)` once, then a Matcher for each thread.
///
/// Immutable, so threads share it without a lock, and self-contained: it keeps nothing of the driver, whose formats may
/// change or go. A reload makes a new set and swaps the pointer; matchers made from the old one keep it alive. It does
/// not know how an event looks: that is for those who have the formats.
class FormatSet {
 public:
  /// From the formats of `driver` in the order of its list, in which they are tried. What newStringMeaning and
  /// starFallback say is taken now. Throws std::length_error when the constants of all formats take more than 4 GiB.
  static std::shared_ptr<const FormatSet> make(const LogDriver& driver);

  FormatSet(const FormatSet&) = delete;
  FormatSet& operator=(const FormatSet&) = delete;
  ~FormatSet();

  std::size_t size() const;

  /// The place in the format file of the block at `place` in the order of trying; that is its class's `_event_id`.
  std::uint32_t eventId(std::uint32_t place) const;

  /// What matchers run on.
  const Engine& engine() const { return *engine_; }

 private:
  explicit FormatSet(std::unique_ptr<const Engine> engine);

  std::unique_ptr<const Engine> engine_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FORMATSET_H_
