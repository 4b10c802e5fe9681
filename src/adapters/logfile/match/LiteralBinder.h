#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_LITERALBINDER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_LITERALBINDER_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "src/adapters/logfile/match/Literal.h"
#include "src/adapters/logfile/match/MessageText.h"
#include "src/adapters/logfile/match/Recorder.h"
#include "src/adapters/logfile/match/Value.h"

namespace quillon {

/// What the literal algorithm knows of one variable.
struct Attempt {
  const Operation* field = nullptr;
  const char* start = nullptr;  ///< Where the field was first reached; null before.
  int steps = 0;                ///< Occurrences of the bound used up; not above 0 when there is no alternative.
  Value value;
  std::size_t scratchEnd = 0;  ///< How much of the scratch area the values up to this one take.
};

/// Room that the literal algorithm keeps from one format to the next.
struct LiteralRoom {
  std::vector<Attempt> attempts;
  Scratch scratch;
  /// The steps of all fields: those of "%s", "%t", "%s*" and "%s+", then those of fields with a width. "%s*" shares its
  /// steps with the star inside each "%s+".
  std::vector<int> steps;
  std::uint64_t gaveUp = 0;  ///< How often a format ended at the limit of failures.

  void fit(const Literal& literal) {
    attempts.resize(literal.mostVariables());
    steps.assign(literal.stepsPlaces(), 0);
  }
};

struct NoRecorder {};

/// One message against one format, exactly as the components themselves would match it: FormatSpec::bindConverted on
/// flat operations, with steps of its own. It is the slow way that decides where the quick ones cannot, and it works
/// for every message and every format. A pass over the message costs about as much as reading it; there are at most
/// 101.
///
/// `Record` is Recorder, or NoRecorder, which costs nothing.
template <class Record>
class LiteralBinder {
 public:
  LiteralBinder(const Literal& literal, LiteralRoom& room, const MessageText& message, std::uint32_t place,
                Record& recorder)
      : literal_(literal),
        room_(room),
        message_(message),
        first_(literal.begin(place)),
        last_(literal.end(place)),
        operation_(first_),
        variables_(static_cast<int>(literal.variables(place))),
        cursor_(message.start),
        recorder_(recorder) {
    for (int i = 0; i < variables_; ++i) attempt(i).start = nullptr, attempt(i).steps = 0;
    room_.scratch.clear();
    // A field's steps are set when it is first reached, but for those of the star inside a plus.
    if (literal_.starFallback()) room_.steps[kSharedStar] = 0;
  }

  bool run() {
    const bool bound = runToEnd();
    if (gaveUp_) ++room_.gaveUp;
    if constexpr (kRecords) {
      recorder_.ends(bound             ? Outcome::kBound
                     : gaveUp_         ? Outcome::kGaveUp
                     : variables_ == 0 ? Outcome::kUnbound
                                       : Outcome::kFailed);
    }
    return bound;
  }

 private:
  static constexpr bool kRecords = !std::is_same_v<Record, NoRecorder>;
  static constexpr int kMaxFailures = 100;
  static constexpr std::uint32_t kSharedStar =
      static_cast<std::uint32_t>(ComponentKind::kStar) - static_cast<std::uint32_t>(ComponentKind::kString);

  Attempt& attempt(int variable) { return room_.attempts[static_cast<std::size_t>(variable)]; }

  bool runToEnd() {
    while (operation_ != last_) {
      if (!matchNext() && (hopeless_ || !goBack())) return false;
    }
    return atEnd();
  }

  /// Matches the operation at hand and moves on. Without variables there is nothing to try again, and every operation
  /// passes: what decides is whether the message is used up.
  bool matchNext() {
    const Operation& operation = *operation_++;
    const char* const from = cursor_;
    const bool matched = operation.isField() ? matchField(operation) : matchFixed(operation);
    if constexpr (kRecords) record(operation, from, matched);
    if (variables_ == 0) return true;
    if (matched && operation_ == last_ && !atEnd()) {
      if constexpr (kRecords) recorder_.leftOver(message_.offset(cursor_));
      return false;
    }
    if (!matched) return false;
    if (operation.isField()) {
      attempt(variable_).steps = steps(operation);
      attempt(variable_).scratchEnd = room_.scratch.size();
    }
    return true;
  }

  bool matchFixed(const Operation& operation) {
    if (operation.kind() == ComponentKind::kBlank) {
      const std::size_t run = whiteSpace().size();
      cursor_ += run;
      return run > 0;
    }
    const std::string_view text = operation.kind() == ComponentKind::kNewline ? "\n" : literal_.text(operation);
    const std::string_view rest = word();
    if (rest.empty() || !rest.starts_with(text)) return false;
    cursor_ += text.size();
    return true;
  }

  bool matchField(const Operation& operation) {
    Attempt& reached = attempt(++variable_);
    if (!reached.start) {
      reached.field = &operation;
      reached.start = cursor_;
      if (operation.own && operation.kind() == ComponentKind::kPlus && literal_.starFallback())
        starStepsOf(operation) = 0;
    }
    reached.value.clear();
    int& steps = this->steps(operation);
    if (operation.bound() == Bound::kConstant) {
      steps = reached.steps;
    } else if (reached.steps == 0 && literal_.starFallback()) {
      steps = 0;
    }
    switch (operation.kind()) {
      case ComponentKind::kTime:
        return matchTime(operation, steps, reached.value);
      case ComponentKind::kStar:
        return matchStar(operation, steps, reached.value);
      case ComponentKind::kPlus:
        return matchPlus(operation, steps, reached.value);
      default:
        return matchString(operation, steps, reached);
    }
  }

  /// A plain field that asks for an occurrence that does not exist would ask for the one behind that next, at the same
  /// place as long as it stands where it was first reached, and so on to the limit: the format fails at once. Elsewhere
  /// its next attempt would begin where it was first reached, and might succeed.
  bool matchString(const Operation& operation, int& steps, Attempt& reached) {
    const bool atStart = cursor_ == reached.start;
    const std::string_view captured = capture(operation, operation.bound(), steps);
    reached.value.append(captured, room_.scratch);
    if (!captured.empty()) return true;
    if constexpr (!kRecords)
      hopeless_ = atStart && steps >= 1 && operation.bound() == Bound::kConstant && !operation.own;
    return false;
  }

  bool matchTime(const Operation& operation, int& steps, Value& value) {
    for (int i = 0; i < 2; ++i) {
      const std::string_view captured = capture(operation, Bound::kNone, steps);
      value.append(captured, room_.scratch);
      if (captured.empty()) return false;
      const std::string_view run = whiteSpace();
      if (run.empty()) return false;
      value.appendBlank(run, room_.scratch);
      cursor_ += run.size();
    }
    const std::string_view captured = capture(operation, operation.bound(), steps);
    value.append(captured, room_.scratch);
    return !captured.empty();
  }

  bool matchStar(const Operation& operation, int& steps, Value& value) {
    if (operation.bound() != Bound::kNone) ++steps;
    const std::string_view captured = capture(operation, operation.bound(), steps);
    value.append(captured, room_.scratch);
    if (!captured.empty()) return fillUp(operation, steps, value, true, 0);
    if (steps <= 1) return true;
    if (atEnd()) {
      steps = -1;
      return false;
    }
    swallowOne(value);
    return fillUp(operation, steps, value, false, 1);
  }

  /// Goes on behind the first word: captures words until the bound has been met as often as the steps say. `matched`
  /// tells whether the last piece ended as a field should, `failures` how often the field stood before its bound.
  bool fillUp(const Operation& operation, int& steps, Value& value, bool matched, int failures) {
    for (;;) {
      const std::string_view run = whiteSpace();
      if (run.empty() && matched && !atEnd() && failures >= steps) return true;
      cursor_ += run.size();
      const std::string_view captured = capture(operation, operation.bound(), steps);
      if (captured.empty()) {
        if (++failures >= steps) {
          cursor_ -= run.size();
          return literal_.starFallback() || matched;
        }
        if (atEnd()) break;
      }
      matched = !captured.empty();
      if (!run.empty()) value.appendBlank(run, room_.scratch);
      if (matched) {
        value.append(captured, room_.scratch);
      } else {
        swallowOne(value);
      }
    }
    if (steps != 0) steps = -1;
    return false;
  }

  bool matchPlus(const Operation& operation, int& steps, Value& value) {
    const bool bounded = operation.bound() != Bound::kNone;
    if (bounded) ++steps;
    const std::string_view captured = capture(operation, operation.bound(), steps);
    value.append(captured, room_.scratch);
    if (captured.empty()) {
      if (steps == 0) return false;
      if (atEnd()) {
        steps = -1;
        return false;
      }
      swallowOne(value);
    }
    const std::string_view run = whiteSpace();
    cursor_ += run.size();
    int& starSteps = starStepsOf(operation);
    if (steps != 0) starSteps = steps - 1;
    Value rest;
    matchStar(operation, starSteps, rest);
    if (bounded && starSteps == -1) {
      steps = -1;
      return false;
    }
    if (rest.empty()) {
      cursor_ -= run.size();
      return true;
    }
    if (!run.empty()) value.appendBlank(run, room_.scratch);
    value.append(rest, room_.scratch);
    return true;
  }

  /// The part of the word at the cursor that a field takes in one go, and over which the cursor moves; what is returned
  /// may be shorter. Nothing means that the field fails.
  std::string_view capture(const Operation& operation, Bound bound, int& steps) {
    const std::string_view whole = word();
    if (whole.empty()) return {};
    const std::size_t width = operation.own ? static_cast<std::size_t>(literal_.own(operation).width) : 0;
    std::size_t length = whole.size();
    int occurrence = 0;
    if (bound == Bound::kNewline) {
      length = std::min(length, whole.find('\n'));
      if (length < whole.size()) steps = -1;
    } else if (bound == Bound::kConstant) {
      occurrence = operation.kind() >= ComponentKind::kStar ? -1 : ++steps;
      if (width == 0 || !literal_.newStringMeaning()) {
        length = cut(whole, literal_.text(operation), occurrence);
      } else if (whole.size() < width) {
        --steps;
        return {};
      }
    }
    if (length == whole.size() && occurrence >= 0) steps = -1;  // the bound is not inside this word
    std::string_view captured = whole.substr(0, length);
    if (width != 0) {
      if (length >= width) {
        captured = captured.substr(0, width);
        if (literal_.newStringMeaning()) length = width;
      } else if (literal_.newStringMeaning()) {
        return {};
      }
    }
    cursor_ += length;
    return captured;
  }

  /// The length of `word` before an occurrence of `text`: see ConstComponent::cut.
  static std::size_t cut(std::string_view word, std::string_view text, int n) {
    const auto next = [&](std::size_t from) {
      const std::size_t at = word.find(text, from);
      return at == std::string_view::npos ? 0 : at;
    };
    std::size_t at = word.find(text);
    if (at == std::string_view::npos) return word.size();
    if (at == 0 && n >= 0) at = next(1);
    while (at != 0 && --n > 0) at = next(at + 1);
    return at;
  }

  /// A field that stands before its own bound swallows the bound's first character on the way to a later occurrence.
  /// Before white space there is nothing to swallow.
  void swallowOne(Value& value) {
    const std::string_view first = word().substr(0, 1);
    value.append(first, room_.scratch);
    cursor_ += first.size();
  }

  /// Returns to the latest field with another alternative. The first one counts only when nothing behind it was
  /// reached: formats in use rely on which messages they do not match.
  bool goBack() {
    if (++failures_ > kMaxFailures) gaveUp_ = variable_ >= 0;
    if (failures_ > kMaxFailures || variable_ < 0) return false;
    attempt(variable_).steps = steps(*attempt(variable_).field);
    if (attempt(variable_).steps >= 1) return returnTo(variable_);
    for (int i = variable_ - 1; i >= 1; --i) {
      if (attempt(i).steps > 0) return returnTo(i);
      attempt(i).steps = 0;
    }
    return false;
  }

  bool returnTo(int variable) {
    cursor_ = attempt(variable).start;
    operation_ = attempt(variable).field;
    variable_ = variable - 1;
    room_.scratch.resize(variable > 0 ? attempt(variable - 1).scratchEnd : 0);
    if constexpr (kRecords) recorder_.goesBack(variable + 1, message_.offset(cursor_), failures_);
    return true;
  }

  bool atEnd() const { return cursor_ >= message_.contentEnd; }

  /// The word at the cursor, up to white space or the end of the text. Asking again within one word costs nothing.
  std::string_view word() {
    if (cursor_ < wordStart_ || cursor_ >= wordEnd_) {
      wordStart_ = wordEnd_ = cursor_;
      while (wordEnd_ != message_.end && !endsWord(*wordEnd_)) ++wordEnd_;
    }
    return {cursor_, static_cast<std::size_t>(wordEnd_ - cursor_)};
  }

  std::string_view whiteSpace() const {
    const char* p = cursor_;
    while (p != message_.end && message_.isSpace(*p)) ++p;
    return {cursor_, static_cast<std::size_t>(p - cursor_)};
  }

  int& steps(const Operation& field) {
    const std::uint32_t shared = field.component - static_cast<std::uint32_t>(ComponentKind::kString);
    return room_.steps[field.own ? literal_.own(field).steps : shared];
  }

  int& starStepsOf(const Operation& plus) { return room_.steps[plus.own ? literal_.own(plus).steps + 1 : kSharedStar]; }

  void record(const Operation& operation, const char* from, bool matched) {
    Trial trial{};
    trial.component = static_cast<std::uint32_t>(&operation - first_);
    trial.from = message_.offset(from);
    trial.to = message_.offset(matched ? cursor_ : from);
    if (operation.isField()) {
      trial.variable = variable_ + 1;
      trial.steps = steps(operation);
    }
    if (matched) {
      recorder_.matched(trial);
    } else {
      recorder_.failed(trial);
    }
  }

  const Literal& literal_;
  LiteralRoom& room_;
  const MessageText& message_;
  const Operation* const first_;
  const Operation* const last_;
  const Operation* operation_;  ///< The next one to match.
  const int variables_;
  int variable_ = -1;  ///< The latest one reached, from 0.
  int failures_ = 0;
  bool gaveUp_ = false;
  bool hopeless_ = false;  ///< Every further attempt would fail as the last one did.
  const char* cursor_;
  const char* wordStart_ = nullptr;  ///< From here to wordEnd_ there is no end of a word: the last one found.
  const char* wordEnd_ = nullptr;
  Record& recorder_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_LITERALBINDER_H_
