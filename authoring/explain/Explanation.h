#ifndef QUILLON_AUTHORING_EXPLAIN_EXPLANATION_H_
#define QUILLON_AUTHORING_EXPLAIN_EXPLANATION_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "authoring/explain/Alignment.h"
#include "authoring/explain/SlotValues.h"
#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Recorder.h"

class FormatSpec;
class LogDriver;

namespace quillon {

/// A rule of matching that surprises those who read a format string as a pattern.
enum class SurprisingRule {
  kNone,
  kFirstVariable,      ///< $1 is not tried again once a later variable was reached.
  kAttemptLimit,       ///< 100 attempts that fail are the end.
  kEarlierOccurrence,  ///< The constant behind a field stands earlier, too, and there the field ended.
  kTextLeftOver,       ///< A block describes whole messages.
  kTabIsText,          ///< A tab in a format string is no white space, and no word begins with one.
  kWordBegins,         ///< A constant is compared with the beginning of what is left.
};

/// "first-variable", for texts that machines read.
const char* ruleName(SurprisingRule rule);

/// What a variable took of a message. Places are bytes of the message.
struct Taken {
  int variable;
  std::uint32_t from;
  std::uint32_t to;
  std::string text;  ///< These bytes; where the block binds, the value, in which white space is single blanks.
};

/// A block that was tried and did not bind: how far it came in the attempt that came furthest.
struct TriedBlock {
  std::uint32_t place = 0;    ///< In the order of trying.
  std::uint32_t eventId = 0;  ///< In the format file.
  std::string name;
  Outcome outcome = Outcome::kFailed;
  int attempts = 1;
  std::size_t part = 0;  ///< That did not fit; the number of parts when all fit and text was left over.
  std::uint32_t at = 0;  ///< The byte where it stopped: of a constant the first that differs.
  std::string expected;  ///< What it needed there, in words.
};

/// A block that nearly binds a message, and why it does not.
struct NearBlock : TriedBlock {
  std::vector<Part> parts;     ///< Its format string.
  std::vector<Taken> taken;    ///< In the attempt that came furthest.
  std::string found;           ///< The word that the part was tried on; empty where there is none.
  Alignment alignment;         ///< No pieces when the message is too long for one.
  std::uint32_t markFrom = 0;  ///< The place to look at: where the message departs from the format string, as far as
  std::uint32_t markTo = 0;    ///< that can be told. Empty where something is missing.
  bool binds = false;          ///< It does bind, but another block is tried before it.
  bool bindsWhenRepaired = false;  ///< The matcher binds the message with the departures undone.
  std::string repairedMessage;     ///< Then; else empty.
  SurprisingRule rule = SurprisingRule::kNone;
  std::string reason;  ///< Why it does not bind, as sentences.
};

/// The block that binds a message, and what it makes of it.
struct BoundBlock {
  std::uint32_t place = 0;
  std::uint32_t eventId = 0;
  std::string name;
  std::vector<Part> parts;
  std::vector<AlignedPiece> pieces;  ///< What each part took, as the matcher had it.
  std::vector<Taken> taken;
  std::vector<SlotValue> slots;
};

struct Explanation {
  std::string message;  ///< UTF-8; what bound or did not.
  std::optional<BoundBlock> bound;
  std::vector<TriedBlock> tried;   ///< Before the one that binds, or all; in their order.
  std::vector<NearBlock> nearest;  ///< The nearest first. Beside a block that binds only such as say more of the
                                   ///< message than that one does.
};

/// Says why messages bind as they do, by letting the matcher do it and watching. Ends no process and reports nothing.
/// For one thread at a time; others have their own.
class Explainer {
 public:
  struct Options {
    bool fromEventLog = false;  ///< Newlines are white space.
    std::size_t nearest = 3;    ///< At most so many near blocks.
  };

  /// The formats of `driver` in the order of its list, in which they are tried. It must live, and stay as it is, as
  /// long as this object. `formats`, when given, is what FormatSet::make() gives for it now.
  explicit Explainer(const LogDriver& driver, std::shared_ptr<const FormatSet> formats = nullptr);
  Explainer(const Explainer&) = delete;
  Explainer& operator=(const Explainer&) = delete;
  ~Explainer();

  /// `message` is UTF-8, up to its first NUL byte if it has one.
  Explanation explain(std::string_view message, const Options& options);

  /// Why the block at `place` in the order of trying does not bind `message`; or that it does.
  NearBlock explainBlock(std::uint32_t place, std::string_view message, bool fromEventLog = false);

  /// The place of the first block of that name in the order of trying.
  std::optional<std::uint32_t> find(std::string_view name) const;

 private:
  class State;
  const std::unique_ptr<State> state_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_EXPLANATION_H_
