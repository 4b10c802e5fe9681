#include "src/adapters/logfile/match/FirstPass.h"

#include <algorithm>
#include <cstring>

namespace quillon {

/// One message in one program. The place is `at_`, and `word_` the word that it is in or at the end of; behind white
/// space at the end of the message, and in a message without words, that is the empty word there.
class FirstPass::Run {
 public:
  Run(const char* texts, const Words& words, Values& values)
      : texts_(texts), words_(words), values_(values), at_(words[0].start) {}

  Result run(const Step* const first) {
    for (const Step* step = first;; ++step) {
      if (!take(*step)) return judge(first, step);
      if (step->kind == Step::Kind::kEnd) break;
      if (step->thenBlank && !takeBlank()) return judge(first, step + 1);
    }
    values_.count = reached_;
    return Result::kBound;
  }

 private:
  bool take(const Step& step) {
    switch (step.kind) {
      case Step::Kind::kWords:
        return takeWords(step.count);
      case Step::Kind::kText:
        return takeText(step);
      case Step::Kind::kFieldText:
        return takeFieldText(step, at_, at_);
      case Step::Kind::kFieldNewline:
        return takeFieldNewline();
      case Step::Kind::kTime:
        return takeTime();
      case Step::Kind::kTimeText:
        return takeTimeText(step);
      case Step::Kind::kStar:
        return takeStar(step);
      case Step::Kind::kPlus:
        return takePlus(step);
      case Step::Kind::kRest:
        return takeRest();
      case Step::Kind::kRestPlus:
        return restOfWord() > 0 ? takeRest() : reachedInVain();
      case Step::Kind::kBlank:
        return takeBlank();
      case Step::Kind::kEnd:
        return at_ >= words_.contentEnd();
    }
    return false;
  }

  std::uint32_t wordEnd() const { return words_[word_].end; }
  std::uint32_t restOfWord() const { return wordEnd() - at_; }
  std::string_view view(std::uint32_t from, std::uint32_t to) const { return {words_.text() + from, to - from}; }
  std::string_view text(const Step& step) const { return {texts_ + step.text, step.size}; }

  bool takeBlank() {
    if (at_ != wordEnd() || word_ == words_.count()) return false;
    ++word_;
    at_ = words_[word_].start;
    return word_ < words_.count() || words_.size() > words_.contentEnd();
  }

  bool takeWords(std::uint32_t count) {
    for (;;) {
      if (restOfWord() == 0) return reachedInVain();
      values_.views[reached_++] = view(at_, wordEnd());
      at_ = wordEnd();
      if (--count == 0) return true;
      if (!takeBlank()) return false;
    }
  }

  bool takeText(const Step& step) {
    const bool fits = step.size <= words_.contentEnd() - std::min(at_, words_.contentEnd());
    if (!fits || !sameText(words_.from(at_), texts_ + step.text, step.size)) {
      return step.count > 0 && at_ <= words_.irregular() && takeTextByWord(text(step));
    }
    at_ += step.size;
    word_ += step.count;
    return true;
  }

  /// For white space of more than one blank where the text has one.
  bool takeTextByWord(std::string_view rest) {
    for (;;) {
      const std::size_t size = std::min(rest.find(' '), rest.size());
      if (size > restOfWord() || std::memcmp(words_.text() + at_, rest.data(), size) != 0) return false;
      at_ += static_cast<std::uint32_t>(size);
      if (size == rest.size()) return true;
      rest.remove_prefix(size + 1);
      if (!takeBlank()) return false;
    }
  }

  /// A field whose value begins at `start`, and whose bound is looked for in the word at hand behind the byte at
  /// `from`.
  bool takeFieldText(const Step& step, std::uint32_t start, std::uint32_t from) {
    const std::uint32_t rest = wordEnd() - from;
    if (rest == 0) return reachedInVain();
    const std::size_t found = findText(words_.from(from + 1), rest - 1, text(step));
    if (found == rest - 1) {
      // At the start of the field it is no end: no attempt will find another one.
      hopeless_ = rest >= step.size && sameText(words_.from(from), texts_ + step.text, step.size);
      return reachedInVain();
    }
    const std::uint32_t end = from + 1 + static_cast<std::uint32_t>(found);
    keep(start, end);
    at_ = end + step.size;
    return true;
  }

  bool takeFieldNewline() {
    const char* const start = words_.text() + at_;
    const void* const newline = std::memchr(start, '\n', restOfWord());
    const auto size = newline ? static_cast<std::uint32_t>(static_cast<const char*>(newline) - start) : restOfWord();
    if (size == 0) return reachedInVain();
    values_.views[reached_++] = view(at_, at_ + size);
    at_ += size;
    return true;
  }

  bool takeTime() {
    const std::uint32_t start = at_;
    if (!takeTwoWords() || restOfWord() == 0) return reachedInVain();
    keep(start, wordEnd());
    at_ = wordEnd();
    return true;
  }

  /// Its bound has no other occurrence to offer: the step counter of a time never gets beyond 0.
  bool takeTimeText(const Step& step) {
    const std::uint32_t start = at_;
    if (!takeTwoWords()) return reachedInVain();
    const bool taken = takeFieldText(step, start, at_);
    hopeless_ = false;
    return taken;
  }

  bool takeTwoWords() {
    for (int i = 0; i < 2; ++i) {
      if (restOfWord() == 0) return false;
      at_ = wordEnd();
      if (!takeBlank()) return false;
    }
    return true;
  }

  bool takeStar(const Step& step) {
    if (restOfWord() == 0) {
      values_.views[reached_++] = view(at_, at_);
      return true;
    }
    return takeUpTo(step, at_);
  }

  /// At its own bound it takes the first byte of it.
  bool takePlus(const Step& step) {
    undecided_ = restOfWord() == 0;
    return !undecided_ && takeUpTo(step, at_ + 1);
  }

  /// Everything up to the first occurrence of the bound behind `from`, less white space in front of that.
  bool takeUpTo(const Step& step, std::uint32_t from) {
    const std::uint32_t rest = words_.contentEnd() - from;
    const std::size_t found = findText(words_.from(from), rest, text(step));
    undecided_ = found == rest;
    if (undecided_) return false;
    const std::uint32_t start = at_;
    at_ = from + static_cast<std::uint32_t>(found);
    while (wordEnd() <= at_) ++word_;
    if (at_ == words_[word_].start && at_ > start) at_ = words_[--word_].end;
    keep(start, at_);
    return true;
  }

  bool takeRest() {
    const std::uint32_t start = at_;
    if (restOfWord() > 0) {
      at_ = words_.contentEnd();
      word_ = words_.count() - 1;
    }
    keep(start, at_);
    return true;
  }

  bool reachedInVain() {
    ++reached_;
    return false;
  }

  /// The value of the next variable is what stands between `start` and `end`, with single blanks for its white space.
  void keep(std::uint32_t start, std::uint32_t end) {
    const bool asItStands = start > words_.irregular();
    values_.views[reached_++] = asItStands ? view(start, end) : joined(start, end);
  }

  std::string_view joined(std::uint32_t start, std::uint32_t end) {
    std::uint32_t word = word_;
    while (words_[word].start > start) --word;
    if (word == word_) return view(start, end);
    Scratch& scratch = values_.joined;
    if (!joining_) {
      // The values together are shorter than the message, so that the views of the first stay valid.
      scratch.clear();
      scratch.reserve(words_.size());
      joining_ = true;
    }
    const std::size_t at = scratch.size();
    for (; word < word_; start = words_[++word].start) scratch.append(view(start, words_[word].end)) += ' ';
    scratch.append(view(start, end));
    return std::string_view(scratch).substr(at);
  }

  /// What becomes of the format when the pass has failed at `failed`. The literal algorithm would go back to the latest
  /// field that may have another end, the first one only if no other was reached. When there is no such field, it is
  /// over. When that is a plain field whose bound does not occur again in its word, it is over too: the field would
  /// fail where it stands, and again, until the limit of failures is reached. Else only a trial can tell.
  Result judge(const Step* first, const Step* failed) const {
    if (undecided_) return Result::kUndecided;
    if (hopeless_ || reached_ == 0) return Result::kRefused;
    const Step* latest = nullptr;
    std::uint32_t latestVariable = 0;
    std::uint32_t variable = 0;
    for (const Step* step = first; step != failed; ++step) {
      const bool retried =
          step->kind == Step::Kind::kFieldText || step->kind == Step::Kind::kStar || step->kind == Step::Kind::kPlus;
      if (retried && (variable > 0 || reached_ == 1)) {
        latest = step;
        latestVariable = variable;
      }
      variable += variablesOf(*step);
    }
    if (!latest) return Result::kRefused;
    if (latest->kind != Step::Kind::kFieldText) return Result::kUndecided;
    return boundOccursAgain(*latest, values_.views[latestVariable]) ? Result::kUndecided : Result::kRefused;
  }

  static std::uint32_t variablesOf(const Step& step) {
    switch (step.kind) {
      case Step::Kind::kWords:
        return step.count;
      case Step::Kind::kText:
      case Step::Kind::kBlank:
      case Step::Kind::kEnd:
        return 0;
      default:
        return 1;
    }
  }

  /// Whether the bound of a field occurs a second time in its word, perhaps overlapping the first.
  bool boundOccursAgain(const Step& field, std::string_view value) const {
    const char* const from = value.data() + value.size() + 1;
    const char* to = from;
    const char* const end = words_.text() + words_.contentEnd();
    while (to < end && !endsWord(*to)) ++to;
    const auto size = static_cast<std::size_t>(to - from);
    return findText({from, words_.limit()}, size, text(field)) != size;
  }

  const char* const texts_;
  const Words& words_;
  Values& values_;
  std::uint32_t at_;
  std::uint32_t word_ = 0;
  std::uint32_t reached_ = 0;  ///< Variables so far.
  bool joining_ = false;
  bool hopeless_ = false;
  bool undecided_ = false;
};

FirstPass::Result FirstPass::run(std::uint32_t program, const Words& words, Values& values) const {
  return Run(texts_.data(), words, values).run(steps_.data() + program);
}

void FirstPass::Builder::add(std::uint32_t place) {
  first_ = made_.steps_.size();
  const std::uint32_t variables = literal_.variables(place);
  const bool possible = literal_.starFallback() && variables > 0 && variables <= FormatSpec::kMaxVariables;
  if (possible && translate(literal_.begin(place), literal_.end(place))) {
    made_.programs_.push_back(static_cast<std::uint32_t>(first_));
  } else {
    made_.steps_.resize(first_);
    made_.programs_.push_back(kNoProgram);
  }
}

FirstPass FirstPass::Builder::finish() {
  made_.programs_.shrink_to_fit();
  made_.steps_.shrink_to_fit();
  made_.texts_ = texts_.finish();
  return std::move(made_);
}

bool FirstPass::Builder::translate(const Operation* operation, const Operation* last) {
  while (operation != last) {
    if (operation->kind() == ComponentKind::kBlank) {
      append(Step::Kind::kBlank);
      ++operation;
      continue;
    }
    if (operation->isField() ? !translateField(operation, last) : !translateTexts(operation, last)) return false;
  }
  return append(Step::Kind::kEnd);
}

/// A blank that follows becomes part of the step before it.
bool FirstPass::Builder::thenBlank(const Operation*& operation, const Operation* last) {
  if (operation == last || operation->kind() != ComponentKind::kBlank) return false;
  made_.steps_.back().thenBlank = 1;
  ++operation;
  return true;
}

bool FirstPass::Builder::append(Step::Kind kind, std::size_t count, std::string_view text) {
  if (count > UINT8_MAX || text.size() >= 1U << 15) return false;
  Step step{};
  step.kind = kind;
  step.count = static_cast<std::uint8_t>(count);
  step.size = static_cast<std::uint16_t>(text.size()) & 0x7fff;
  step.text = texts_.keep(text);
  made_.steps_.push_back(step);
  return true;
}

/// Constants and line breaks side by side, and those behind a blank.
bool FirstPass::Builder::translateTexts(const Operation*& operation, const Operation* last) {
  joined_.clear();
  std::size_t blanks = 0;
  for (;; ++operation) {
    while (operation != last && !operation->isField() && operation->kind() != ComponentKind::kBlank) {
      const std::string_view text = operation->kind() == ComponentKind::kNewline ? "\n" : literal_.text(*operation);
      if (text.empty() || std::any_of(text.begin(), text.end(), endsWord)) return false;
      joined_ += text;
      ++operation;
    }
    const bool goesOn = last - operation > 1 && operation->kind() == ComponentKind::kBlank && !operation[1].isField() &&
                        operation[1].kind() != ComponentKind::kBlank;
    if (!goesOn) break;
    joined_ += ' ';
    ++blanks;
  }
  if (!append(Step::Kind::kText, blanks, joined_)) return false;
  thenBlank(operation, last);
  return true;
}

bool FirstPass::Builder::translateField(const Operation*& operation, const Operation* last) {
  const Operation& field = *operation++;
  if (field.own) return false;
  const std::string_view bound = field.bound() == Bound::kConstant ? literal_.text(field) : std::string_view();
  if (field.bound() == Bound::kConstant && (bound.empty() || std::any_of(bound.begin(), bound.end(), endsWord))) {
    return false;
  }
  const bool unbounded = field.bound() == Bound::kNone;
  bool appended = false;
  switch (field.kind()) {
    case ComponentKind::kStar:
    case ComponentKind::kPlus: {
      const bool plus = field.kind() == ComponentKind::kPlus;
      if (field.bound() == Bound::kNewline || (unbounded && operation != last)) return false;
      const Step::Kind rest = plus ? Step::Kind::kRestPlus : Step::Kind::kRest;
      appended = append(unbounded ? rest : plus ? Step::Kind::kPlus : Step::Kind::kStar, 0, bound);
      break;
    }
    case ComponentKind::kTime:
      if (field.bound() == Bound::kNewline) return false;
      appended = append(unbounded ? Step::Kind::kTime : Step::Kind::kTimeText, 0, bound);
      if (!unbounded) ++operation;
      break;
    default:
      if (field.bound() == Bound::kConstant) {
        appended = append(Step::Kind::kFieldText, 0, bound);
        ++operation;
      } else if (field.bound() == Bound::kNewline) {
        appended = append(Step::Kind::kFieldNewline);
      } else {
        Step* const before = made_.steps_.size() > first_ ? &made_.steps_.back() : nullptr;
        const bool more =
            before && before->kind == Step::Kind::kWords && before->thenBlank && before->count < UINT8_MAX;
        if (more) before->thenBlank = 0, ++before->count;
        appended = more || append(Step::Kind::kWords, 1);
      }
  }
  if (appended) thenBlank(operation, last);
  return appended;
}

}  // namespace quillon
