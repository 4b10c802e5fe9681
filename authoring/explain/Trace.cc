#include "authoring/explain/Trace.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace quillon {

void Trace::begins(std::uint32_t place) {
  tried_.place = place;
  tried_.attempts = 1;
  tried_.chain.clear();
  hasStop_ = isStopped_ = false;
  chain_.clear();
}

void Trace::leftOverAt(std::uint32_t from) {
  Trial behind{};
  behind.component = chain_.empty() ? 0 : chain_.back().component + 1;
  behind.from = behind.to = from;
  stopAt(behind, true);
}

void Trace::goesBack(int variable, std::uint32_t /*from*/, int failures) {
  tried_.attempts = failures + 1;
  isStopped_ = false;
  // A field that has failed itself is not in the chain, and all that is stays.
  const auto field =
      std::find_if(chain_.begin(), chain_.end(), [variable](const Trial& trial) { return trial.variable == variable; });
  chain_.erase(field, chain_.end());
}

void Trace::ends(Outcome outcome) {
  tried_.outcome = outcome;
  if (outcome == Outcome::kBound) {
    tried_.chain = chain_;
  } else if (outcome == Outcome::kUnbound && !hasStop_) {
    leftOverAt(chain_.empty() ? 0 : chain_.back().to);
  }
  sink_(tried_);
}

/// The same component may fail at several places, of which the furthest tells most.
bool Trace::isFurther(const Trial& trial, bool leftOver) const {
  if (!hasStop_) return true;
  return std::tie(trial.component, leftOver, trial.from) >
         std::tie(tried_.stop.component, tried_.leftOver, tried_.stop.from);
}

void Trace::stopAt(const Trial& trial, bool leftOver) {
  if (std::exchange(isStopped_, true) || !isFurther(trial, leftOver)) return;
  tried_.stop = trial;
  tried_.leftOver = leftOver;
  tried_.chain = chain_;
  hasStop_ = true;
}

}  // namespace quillon
