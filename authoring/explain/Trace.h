#ifndef QUILLON_AUTHORING_EXPLAIN_TRACE_H_
#define QUILLON_AUTHORING_EXPLAIN_TRACE_H_

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "src/adapters/logfile/match/Recorder.h"

namespace quillon {

/// Keeps, of each format that is tried, the attempt that came furthest. One thread at a time.
class Trace : public Recorder {
 public:
  struct Tried {
    std::uint32_t place = 0;
    Outcome outcome = Outcome::kFailed;
    int attempts = 1;
    bool leftOver = false;     ///< All components matched, and text was left over.
    Trial stop{};              ///< What did not match; of text left over only `from` is set.
    std::vector<Trial> chain;  ///< What had matched before, or in all when the format has bound.
  };

  /// Is told of each format that was tried, when it ends.
  using Sink = std::function<void(const Tried&)>;

  explicit Trace(Sink sink) : sink_(std::move(sink)) {}

  void begins(std::uint32_t place) override;
  void matched(const Trial& trial) override { chain_.push_back(trial); }
  void failed(const Trial& trial) override { stopAt(trial, false); }
  void leftOver(std::uint32_t from) override { leftOverAt(from); }
  void goesBack(int variable, std::uint32_t from, int failures) override;
  void ends(Outcome outcome) override;

 private:
  bool isFurther(const Trial& trial, bool leftOver) const;
  void stopAt(const Trial& trial, bool leftOver);
  void leftOverAt(std::uint32_t from);

  const Sink sink_;
  Tried tried_;
  bool hasStop_ = false;
  bool isStopped_ = false;  ///< And has not gone back since. A format without variables passes its components over.
  std::vector<Trial> chain_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_TRACE_H_
