#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_MATCHER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_MATCHER_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Recorder.h"

namespace quillon {

/// What a message was bound to.
struct Match {
  std::uint32_t place;    ///< Of the format in the order of trying, from 0.
  std::uint32_t eventId;  ///< Of its block in the format file, from 0.

  /// $1, $2, ...: at most 64, in UTF-8. They point into the message or into the matcher, and are valid as long as the
  /// message is and until the matcher binds the next one.
  std::span<const std::string_view> values;
};

/// What became of one format in all messages of a matcher.
struct FormatCounts {
  std::uint64_t bound = 0;
  std::uint64_t tried = 0;    ///< Messages that it was held against, bound or not; the index rules most formats out.
  std::uint64_t givenUp = 0;  ///< Of these, those that ended at 100 failures.
};

/// Binds messages to the formats of a set, with the result that LogDriver::bind has: the same format, the same values.
///
/// Holds all that changes while binding, so each thread has one of its own. A matcher that has seen messages as long as
/// the next one allocates nothing for it.
class Matcher {
 public:
  explicit Matcher(std::shared_ptr<const FormatSet> formats);
  Matcher(const Matcher&) = delete;
  Matcher& operator=(const Matcher&) = delete;
  ~Matcher();

  const FormatSet& formats() const { return *formats_; }

  /// The first format that binds `message`; null when none does. The message is UTF-8, ends at its first NUL byte, if
  /// it has one, and takes at most 1 GiB. Bytes behind its end may be loaded, up to the end of the page of memory that
  /// the message ends in, and have no influence. `fromEventLog` makes newlines white space.
  const Match* bind(std::string_view message, bool fromEventLog = false);

  /// The same, and measures the time that each format takes, which costs about 50 ns for each that is tried.
  const Match* bindTimed(std::string_view message, bool fromEventLog = false);

  /// The same, with every attempt told to `recorder`: all formats are tried in their order up to the one that binds, as
  /// if there were no index. Nothing is counted.
  const Match* bind(std::string_view message, bool fromEventLog, Recorder& recorder);

  /// Binds `message` to the format at `place` alone. Nothing is counted.
  const Match* bindOne(std::uint32_t place, std::string_view message, bool fromEventLog, Recorder& recorder);
  const Match* bindOne(std::uint32_t place, std::string_view message, bool fromEventLog = false);

  /// Of the format at `place`.
  FormatCounts counts(std::uint32_t place) const;
  /// What its trials by bindTimed() have taken.
  std::chrono::nanoseconds time(std::uint32_t place) const;

 private:
  class State;

  std::shared_ptr<const FormatSet> formats_;
  std::unique_ptr<State> state_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_MATCHER_H_
