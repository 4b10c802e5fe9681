// The worst message of "a %s* in %s" is "a x in x in x in ... x in x": the star ends before the first "in" and the last
// field takes one word, but text is left over; so the star goes on to the next "in", and so on. 100 failures are got
// over, so the block binds it with 100 "in" too many and does not with 101. "%s* in %s" does not even bind "x in x in
// x": its star is the first variable, to which nothing goes back.
//
// Whether a message is of that kind is asked of the matcher, first with few occurrences, which costs little: most
// fields are found out then.

#include "authoring/shadow/Retries.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "authoring/shadow/Examples.h"
#include "src/adapters/logfile/match/Engine.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "src/adapters/logfile/match/Recorder.h"

namespace quillon {

namespace {

constexpr int kFew = 8;                   ///< Occurrences: enough to see whether each of them is tried.
constexpr int kMany = 101;                ///< One more than the failures that are got over.
constexpr std::size_t kLeastBlocks = 10;  ///< Fewer have no usual cost.

/// What the matcher did with one message and one format.
struct Effort {
  std::uint64_t work = 0;
  int failures = 0;  ///< That were got over.
  Outcome outcome = Outcome::kFailed;
};

/// Counts it.
class Work : public Recorder {
 public:
  Work(const Literal& literal, std::uint32_t place)
      : first_(literal.begin(place)), starts_(static_cast<std::size_t>(literal.end(place) - first_), kNowhere) {}

  void matched(const Trial& trial) override {
    reach(trial);
    if (!hopeless_) effort_.work += 1 + trial.to - trial.from;
  }
  void failed(const Trial& trial) override {
    reach(trial);
    if (hopeless_) return;
    ++effort_.work;
    // From here on every attempt fails like this one, and without a recorder the matcher leaves them out.
    const Operation& operation = first_[trial.component];
    hopeless_ = operation.kind() == ComponentKind::kString && operation.bound() == Bound::kConstant && !operation.own &&
                trial.steps >= 1 && trial.from == starts_[trial.component];
  }
  void goesBack(int /*variable*/, std::uint32_t /*from*/, int failures) override { effort_.failures = failures; }
  void ends(Outcome outcome) override { effort_.outcome = hopeless_ ? Outcome::kFailed : outcome; }

  const Effort& effort() const { return effort_; }

 private:
  static constexpr std::uint32_t kNowhere = UINT32_MAX;

  void reach(const Trial& trial) {
    if (starts_[trial.component] == kNowhere) starts_[trial.component] = trial.from;
  }

  const Operation* const first_;
  std::vector<std::uint32_t> starts_;  ///< Where each component was first reached.
  bool hopeless_ = false;
  Effort effort_;
};

/// A field whose end is looked for again and again.
struct Suspect {
  std::uint32_t place;
  std::uint32_t component;
  int variable;
  bool glued;       ///< The occurrences stand within one word.
  double readings;  ///< With few of them.
};

bool takesWords(const Operation& operation) {
  return operation.kind() == ComponentKind::kStar || operation.kind() == ComponentKind::kPlus;
}

class RetrySearch {
 public:
  RetrySearch(const std::shared_ptr<const FormatSet>& formats, const RetryBudget& budget)
      : literal_(formats->engine().literal), matcher_(formats), examples_(literal_), budget_(budget) {}

  Retries run() {
    for (std::uint32_t place = 0; place < literal_.size(); ++place) {
      if (spent_ < budget_.work) {
        screen(place);
      } else {
        ++result_.undecidedBlocks;
      }
    }
    findCostly();
    return std::move(result_);
  }

 private:
  Effort tryOn(std::uint32_t place, std::string_view message) {
    Work work(literal_, place);
    matcher_.bindOne(place, message, false, work);
    spent_ += work.effort().work;
    return work.effort();
  }

  static double readings(const Effort& effort, const std::string& message) {
    return static_cast<double>(effort.work) / static_cast<double>(message.size() + 1);
  }

  /// Finds the worst field of the format at `place`, and those at which the matcher gives up.
  void screen(std::uint32_t place) {
    Suspect worst{place, 0, 0, false, 0};
    int variable = 0;
    for (const Operation* operation = literal_.begin(place); operation != literal_.end(place); ++operation) {
      if (!operation->isField()) continue;
      ++variable;
      if (operation->bound() != Bound::kConstant || operation->size == 0) continue;
      const bool star = takesWords(*operation);
      bool lost = false;
      for (const bool glued : {false, true}) {
        if (!glued && !star) continue;  // a plain field stays within its word
        Suspect suspect{place, static_cast<std::uint32_t>(operation - literal_.begin(place)), variable, glued, 0};
        const std::string message = worstMessage(suspect, kFew);
        const Effort effort = tryOn(place, message);
        suspect.readings = readings(effort, message);
        if (worst.readings < suspect.readings) worst = suspect;
        const bool expected = budget_.anyConstant || (!glued && isWord(suspect));
        if (star && expected && !lost) lost = losesEnd(suspect, effort);
      }
    }
    suspects_.push_back(worst);
  }

  /// `effort`: with few occurrences of what ends the field.
  bool losesEnd(const Suspect& suspect, const Effort& effort) {
    const bool again = effort.outcome == Outcome::kBound && effort.failures >= kFew;
    if (!again && effort.outcome != Outcome::kFailed) return false;
    const int enough = again ? kMany : 1;
    std::string message = worstMessage(suspect, enough, "word");
    if (tryOn(suspect.place, message).outcome != (again ? Outcome::kGaveUp : Outcome::kFailed)) return false;
    if (tryOn(suspect.place, worstMessage(suspect, enough - 1, "word")).outcome != Outcome::kBound) return false;
    result_.lostEnds.push_back({suspect.place, suspect.component, suspect.variable, enough, std::move(message)});
    return true;
  }

  const Operation& operationOf(const Suspect& suspect) const {
    return literal_.begin(suspect.place)[suspect.component];
  }

  /// Whether what ends the field is a word of its own in the format, made of letters.
  bool isWord(const Suspect& suspect) const {
    const std::string_view text = literal_.text(operationOf(suspect));
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c & 0x80) != 0; };
    if (!std::all_of(text.begin(), text.end(), isLetter)) return false;
    const Operation* const last = literal_.end(suspect.place);
    const Operation* bound = &operationOf(suspect) + 1;
    while (bound != last && bound->kind() != ComponentKind::kConstant) ++bound;
    return bound != last && bound[-1].kind() == ComponentKind::kBlank &&
           (bound + 1 == last || bound[1].kind() == ComponentKind::kBlank);
  }

  std::string worstMessage(const Suspect& suspect, int occurrences, std::string_view word = {}) const {
    if (word.empty()) word = examples_.shortWord();
    const std::string_view bound = literal_.text(operationOf(suspect));
    const std::string_view blank = suspect.glued ? "" : " ";
    std::vector<std::string> values = examples_.values(suspect.place, word);
    std::string& value = values[static_cast<std::size_t>(suspect.variable) - 1];
    for (int i = 0; i < occurrences; ++i) value.append(blank).append(bound).append(blank).append(word);
    return examples_.message(suspect.place, values);
  }

  /// Those far above the others, first by few occurrences, then by many.
  void findCostly() {
    if (suspects_.size() < kLeastBlocks) return;
    const auto less = [](const Suspect& a, const Suspect& b) { return a.readings < b.readings; };
    std::vector<Suspect> sorted = suspects_;
    const auto usual = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() * 9 / 10);
    std::nth_element(sorted.begin(), usual, sorted.end(), less);
    result_.usualReadings = std::max(1.0, readingsOfMany(*usual, nullptr));
    for (const Suspect& suspect : suspects_) {
      if (suspect.readings < 2 * usual->readings || spent_ > 2 * budget_.work) continue;
      if (!takesWords(operationOf(suspect))) continue;  // a word has only so many bytes
      BlockCost cost{suspect.place, 0, {}};
      cost.readings = readingsOfMany(suspect, &cost.message);
      if (cost.readings >= budget_.factor * result_.usualReadings) result_.costly.push_back(std::move(cost));
    }
  }

  double readingsOfMany(const Suspect& suspect, std::string* made) {
    if (suspect.readings == 0) return 0;  // nothing is tried again
    std::string message = worstMessage(suspect, kMany);
    const double times = readings(tryOn(suspect.place, message), message);
    if (made) *made = std::move(message);
    return times;
  }

  const Literal& literal_;
  Matcher matcher_;
  Examples examples_;
  const RetryBudget budget_;
  std::uint64_t spent_ = 0;
  std::vector<Suspect> suspects_;  ///< The worst of each block.
  Retries result_;
};

}  // namespace

Retries findRetries(const std::shared_ptr<const FormatSet>& formats, const RetryBudget& budget) {
  return RetrySearch(formats, budget).run();
}

}  // namespace quillon
