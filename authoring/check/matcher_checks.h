#ifndef QUILLON_AUTHORING_CHECK_MATCHER_CHECKS_H_
#define QUILLON_AUTHORING_CHECK_MATCHER_CHECKS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "authoring/check/CheckedFile.h"
#include "authoring/report/Finding.h"
#include "authoring/shadow/Shadows.h"

namespace quillon {

/// What the matcher would do with the blocks of a file.
struct MatcherFindings {
  std::vector<Finding> findings;  ///< In the order of the file.
  std::uint64_t undecidedBlocks = 0;
  std::uint64_t undecidedPairs = 0;

  /// "3 blocks and 12 pairs of blocks undecided"; empty when everything was decided.
  std::string undecided() const;
};

/// Blocks that lose messages to others, that nothing binds, that cost much (Shadows.h, Retries.h), when the blocks are
/// tried in `order`. Nothing of a file that does not compile: what its blocks are to be is not known yet.
MatcherFindings checkMatcher(const CheckedFile& file, TryOrder order);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_CHECK_MATCHER_CHECKS_H_
