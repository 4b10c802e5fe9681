#ifndef QUILLON_TESTS_MATCH_SUPPORT_TRIALS_H_
#define QUILLON_TESTS_MATCH_SUPPORT_TRIALS_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/match/support/format_list.h"
#include "tests/match/support/log_lines.h"

namespace quillon {

/// What came of holding the engine against the plain bind. The tests run the trials in small, scripts/soak in full.
struct Finding {
  std::uint64_t pairs = 0;  ///< How many times a message was bound by both.
  std::uint64_t bound = 0;  ///< How many of these bound; where there are few it says little.
  std::string failure;      ///< The first difference, made small, and the seed that gives it; empty when there is none.

  Finding& operator+=(const Finding& other);
};

/// All formats of up to `components` components over {a, b, %s, %s*, %s+, white space, %n}, each alone, against all
/// messages of up to `characters` characters over {a, b, blank, newline}, as a log's message and as an event log's.
Finding tryAllFormats(std::size_t components, std::size_t characters);

/// `sets` random sets of these formats, with up to 4 components, against all these messages.
Finding trySetsOfAllFormats(std::uint64_t seed, std::size_t sets, std::size_t characters);

/// Random sets, each in both orders, until `pairs` are done; the seeds of the sets count up from `seed`.
Finding tryRandomSets(std::uint64_t seed, std::uint64_t pairs);

/// Lines of a real log, whole, with other numbers and damaged, with the formats in both orders.
Finding tryDamagedLines(const System& system, std::uint64_t seed, std::uint64_t pairs);

/// `formats` generated formats of a large installation in both orders: their lines, lines of none, and damaged ones.
Finding tryScaledSet(std::size_t formats, std::size_t headers, std::uint64_t seed, std::uint64_t pairs);

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_TRIALS_H_
