#ifndef QUILLON_AUTHORING_SHADOW_SHADOWS_H_
#define QUILLON_AUTHORING_SHADOW_SHADOWS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "src/adapters/logfile/match/FormatSet.h"

class LogDriver;

namespace quillon {

/// In which order the blocks of a file are tried.
enum class TryOrder {
  kLastFirst,  ///< As the adapter does.
  kFileOrder,
};

/// The formats of `driver`, whatever the order of its list, to be tried in `order`.
std::shared_ptr<const FormatSet> formatsInOrder(const LogDriver& driver, TryOrder order);

/// One block loses messages to another one, which is tried before it. Blocks go by their place in the order of trying.
struct Shadow {
  enum class Loss {
    kAll,      ///< Every message: proven, so the block never binds.
    kTypical,  ///< Messages with whatever values, as far as was tried, so in all likelihood nearly every one.
    kOverlap,  ///< Some. Each of the two describes what the other one does not, and this one says more than the other.
    kDetail,   ///< Some. The other one is rightly tried first: it describes part of what this one does, or says more.
  };

  std::uint32_t block;
  std::uint32_t by;
  Loss loss;
  std::string witness;  ///< A message that both bind and that goes to `by`.
  /// Of a kOverlap: all values of `block` in the witness begin with a letter or digit. In the others text of `by` that
  /// looks like the frame of a message stands where nobody writes it, say "[" as the name of a user.
  bool plausible = false;
};

/// A block that binds no message of ordinary words in the form of its format string, only others. "%s* %s: up" does not
/// bind "x x: up", because the star goes on to the colon.
struct OddBlock {
  std::uint32_t block;
  std::string unbound;  ///< A message in that form, which does not bind.
  std::string bound;    ///< One that does.
};

/// A block that no message can bind: proven.
struct ImpassableBlock {
  std::uint32_t block;
  std::uint32_t component;  ///< Which no message gets past, by its place in FormatSpec::getComponents().
};

struct Shadows {
  std::vector<Shadow> found;  ///< By block, then by the one that takes.
  std::vector<OddBlock> odd;  ///< By block, as is the next.
  std::vector<ImpassableBlock> impassable;
  /// Blocks for which no message was found, and no proof that there is none.
  std::uint64_t undecidedBlocks = 0;
  /// Pairs of which it is not known whether the one tried later loses a message to the other one. When the budget is
  /// used up, they are those that nobody looked at.
  std::uint64_t undecidedPairs = 0;
};

/// How much may be tried. The same amount of work gives the same result, however long it takes.
struct ShadowBudget {
  std::uint64_t pairs = 40'000;      ///< Pairs of blocks for which a common message is looked for.
  std::uint64_t cells = 10'000'000;  ///< Places of the tables that are filled for it; 100 million are about 1.5 s.
  /// Of the walk over the messages of a pair; more for long ones, and ten times as many for small formats.
  std::uint64_t steps = 400;
};

/// What blocks lose to those that are tried before them. Each message in the result was bound by the matcher, to both
/// formats alone and to the one that takes it among all. Time is linear in the number of formats up to the budget.
///
/// First, typical messages of each block are bound among all formats, which finds those that are hidden behind more
/// general blocks and behind blocks of the same form. Then pairs of blocks that could have messages in common get
/// messages that are made for both (CommonMessages).
///
/// Messages are those of log files: a newline is text. Ends no process; for any number of threads.
Shadows findShadows(const std::shared_ptr<const FormatSet>& formats, const ShadowBudget& budget = {});

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SHADOW_SHADOWS_H_
