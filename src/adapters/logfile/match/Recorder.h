#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_RECORDER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_RECORDER_H_

#include <cstdint>

namespace quillon {

/// One component of a format, tried at one place of a message. All places are bytes from the start of the message.
struct Trial {
  std::uint32_t component;  ///< Its place in FormatSpec::getComponents().
  std::uint32_t from;       ///< Where it was tried.
  std::uint32_t to;         ///< Where what it matched ends; `from` when it failed.
  int variable;             ///< The N of its $N; 0 for a component that captures nothing.
  int steps;                ///< Occurrences of its bound used up by now; not above 0 when it has no other end.
};

/// How a format ended.
enum class Outcome {
  kBound,
  kFailed,   ///< No field has another end.
  kGaveUp,   ///< 100 failures were not enough.
  kUnbound,  ///< It has no variables, and text was left over.
};

/// Watches formats being tried, for those who explain it. The matcher calls it in the order of what happens, only from
/// the entries that take one; the others know nothing of it. The base class ignores everything. Called on the
/// thread of the matcher.
class Recorder {
 public:
  Recorder() = default;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  virtual ~Recorder() = default;

  /// The format at `place` in the order of trying is tried from here on.
  virtual void begins(std::uint32_t /*place*/) {}
  virtual void matched(const Trial& /*trial*/) {}
  /// In a format without variables such a component is passed over, and nothing comes of it.
  virtual void failed(const Trial& /*trial*/) {}
  /// The last component matched and ends at `from`, but text is left over behind it. Counts as a failure.
  virtual void leftOver(std::uint32_t /*from*/) {}
  /// `failures` so far: goes on from the variable $`variable`, which begins at `from` and looks for a later end.
  virtual void goesBack(int /*variable*/, std::uint32_t /*from*/, int /*failures*/) {}
  virtual void ends(Outcome /*outcome*/) {}
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_RECORDER_H_
