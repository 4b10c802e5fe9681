#ifndef QUILLON_TESTS_MATCH_SUPPORT_LOG_LINES_H_
#define QUILLON_TESTS_MATCH_SUPPORT_LOG_LINES_H_

#include <filesystem>
#include <string>
#include <vector>

#include "tests/match/support/random.h"

namespace quillon {

/// One system's format file and a log of it.
struct System {
  std::string name;
  std::filesystem::path formats;
  std::vector<std::string> lines;  ///< Without their newlines.
};

/// Each NAME.fmt in `folder` that has a NAME.log beside it, by name.
std::vector<System> systemsIn(const std::filesystem::path& folder);

/// `line` with other digits in the place of its digits; the first digit of a number stays as it is, so that a number
/// keeps its length and a zero does not grow.
std::string withOtherNumbers(const std::string& line, Random& random);

/// `line` with one to three faults: words lost, doubled or exchanged, white space that is more or other, bytes changed,
/// the end cut off, or a piece of `other` behind it.
std::string damaged(std::string line, const std::string& other, Random& random);

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_LOG_LINES_H_
