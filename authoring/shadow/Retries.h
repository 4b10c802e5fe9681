#ifndef QUILLON_AUTHORING_SHADOW_RETRIES_H_
#define QUILLON_AUTHORING_SHADOW_RETRIES_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "src/adapters/logfile/match/FormatSet.h"

namespace quillon {

/// A block with a "%s*" or "%s+" that can take the constant that ends it for a part of its value, and loses the
/// message. Blocks go by their place in the order of trying.
struct LostEnd {
  std::uint32_t block;
  std::uint32_t component;  ///< The field, by its place in FormatSpec::getComponents(),
  int variable;             ///< and as the N of its $N.
  /// Of the constant, in the value in `witness`; with one less the message binds. 1: the field is the first variable,
  /// which is not tried again once what is behind it was reached. 101: there were too many failures.
  int occurrences;
  std::string witness;  ///< A message that the block describes, and does not bind.
};

/// What trying a block can cost.
struct BlockCost {
  std::uint32_t block;
  double readings;      ///< How often each byte of `message` is read, on average; a component tried counts as a byte.
  std::string message;  ///< The worst one found.
};

struct Retries {
  std::vector<LostEnd> lostEnds;      ///< By block.
  std::vector<BlockCost> costly;      ///< By block: those whose readings are many times the usual ones.
  double usualReadings = 0;           ///< Nine of ten blocks have at most so many.
  std::uint64_t undecidedBlocks = 0;  ///< Not looked at, for the budget.
};

struct RetryBudget {
  std::uint64_t work = 20'000'000;  ///< Bytes read, in all messages that are tried.
  /// Look at all constants. Otherwise at those that are a word of letters, as any text may hold, between blanks; who
  /// writes "(%s*)" does not expect 100 brackets in the value.
  bool anyConstant = false;
  double factor = 10;  ///< From how many times the usual readings on a block counts as costly.
};

/// Tries each block on messages that make it try again: for each field that a constant ends, the message has that
/// constant many times in the field's value. All counts are those of the matcher, so they are the same on every
/// machine. Linear in the number of formats up to the budget. Ends no process; for any number of threads.
Retries findRetries(const std::shared_ptr<const FormatSet>& formats, const RetryBudget& budget = {});

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SHADOW_RETRIES_H_
