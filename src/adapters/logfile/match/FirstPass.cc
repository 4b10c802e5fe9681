#include "src/adapters/logfile/match/FirstPass.h"

#include <algorithm>
#include <cstring>

namespace quillon {

/// One message in one program. The place is `at_`, and `word_` the word that it is in or at the end of; behind white
/// space at the end of the message, and in a message without words, that is the empty word there.
///
/// What is common is inlined and never lets anyone else see this object, so that the compiler keeps it in registers.
/// What is rare works on a copy: see rarely().
class FirstPass::Run {
 public:
  Run(const char* texts, const Words& words, Values& values)
      : texts_(texts),
        words_(words),
        values_(values),
        message_(words.text()),
        limit_(words.limit()),
        contentEnd_(words.contentEnd()),
        word_(&words[0]),
        at_(word_->start) {}

  [[gnu::always_inline]] Result run(const Step* const first) {
    for (const Step* step = first;; ++step) {
      if (!takeField(*step)) return Run(*this).judge(first, step);
      if (step->size != 0 && !takeText(*step)) return Run(*this).judge(first, step + 1);
      if (!step->last) continue;
      if (at_ < contentEnd_) return Run(*this).judge(first, step + 1);
      values_.count = reached_;
      return Result::kBound;
    }
  }

 private:
  [[gnu::always_inline]] bool takeField(const Step& step) {
    switch (step.field) {
      case Step::Field::kNone:
        return true;
      case Step::Field::kWords:
        return takeWords(step.words);
      case Step::Field::kUpTo:
        return takeUpTo(step);
      case Step::Field::kTime:
        return takeTime();
      case Step::Field::kRest:
        return takeRest();
      default:
        return rarely([&step](Run& copy) { return copy.takeOther(step); });
    }
  }

  [[gnu::noinline]] bool takeOther(const Step& step) {
    switch (step.field) {
      case Step::Field::kLine:
        return takeLine();
      case Step::Field::kTimeUpTo:
        return takeTimeUpTo(step);
      case Step::Field::kStar:
        return takeStar(step);
      case Step::Field::kPlus:
        return takePlus(step);
      case Step::Field::kRestPlus:
        return restOfWord() > 0 ? takeRest() : reachedInVain();
      default:
        return takeRest();
    }
  }

  /// Does something to a copy, which then becomes this object.
  template <class Action>
  [[gnu::always_inline]] bool rarely(const Action& action) {
    Run copy(*this);
    const bool done = action(copy);
    word_ = copy.word_;
    at_ = copy.at_;
    reached_ = copy.reached_;
    hopeless_ = copy.hopeless_;
    undecided_ = copy.undecided_;
    joining_ = copy.joining_;
    return done;
  }

  std::uint32_t wordEnd() const { return word_->end; }
  std::uint32_t restOfWord() const { return wordEnd() - at_; }
  Bytes from(std::uint32_t offset) const { return {message_ + offset, limit_}; }
  std::string_view view(std::uint32_t from, std::uint32_t to) const { return {message_ + from, to - from}; }
  std::string_view bound(const Step& step) const { return {texts_ + step.text + step.boundAt, step.boundSize}; }
  const Word* lastWord() const { return &words_[words_.count()]; }  ///< The empty one behind all.

  [[gnu::always_inline]] bool takeBlank() {
    if (at_ != wordEnd() || word_ == lastWord()) return false;
    ++word_;
    at_ = word_->start;
    return word_ != lastWord() || words_.size() > contentEnd_;
  }

  [[gnu::always_inline]] bool takeWords(std::uint32_t count) {
    for (;;) {
      if (restOfWord() == 0) return reachedInVain();
      values_.views[reached_++] = view(at_, wordEnd());
      at_ = wordEnd();
      if (--count == 0) return true;
      if (!takeBlank()) return false;
    }
  }

  [[gnu::always_inline]] bool takeText(const Step& step) {
    const std::uint32_t end = at_ + step.size;
    if (end > contentEnd_ || !sameText(from(at_), texts_ + step.text, step.size)) {
      const bool otherwise = step.blanks > 0 && (end > contentEnd_ || !words_.regular(at_, contentEnd_));
      return otherwise && rarely([this, &step](Run& copy) {
               return copy.takeTextByWord({texts_ + step.text, step.size});
             });
    }
    word_ += step.blanks;
    at_ = step.endsBlank ? word_->start : end;
    return true;
  }

  /// For white space of more than one blank where the text has one, and for white space at the end of the message.
  [[gnu::noinline]] bool takeTextByWord(std::string_view rest) {
    for (;;) {
      const std::size_t size = std::min(rest.find(' '), rest.size());
      if (size > restOfWord() || std::memcmp(message_ + at_, rest.data(), size) != 0) return false;
      at_ += static_cast<std::uint32_t>(size);
      if (size == rest.size()) return true;
      rest.remove_prefix(size + 1);
      if (!takeBlank()) return false;
    }
  }

  /// A field up to its bound in the word at hand. The bound stays: it begins the text of the step.
  [[gnu::always_inline]] bool takeUpTo(const Step& step) {
    const std::uint32_t start = at_;
    if (!findBound(step)) return reachedInVain();
    values_.views[reached_++] = view(start, at_);
    return true;
  }

  /// Looks for it behind the byte at hand. At the start of the field it is no end, and no attempt will find another
  /// one.
  [[gnu::always_inline]] bool findBound(const Step& step) {
    const std::uint32_t rest = restOfWord();
    if (rest == 0) return false;
    const std::size_t found = findText(from(at_ + 1), rest - 1, bound(step));
    if (found == rest - 1) {
      hopeless_ = rest >= step.boundSize && std::memcmp(message_ + at_, bound(step).data(), step.boundSize) == 0;
      return false;
    }
    at_ += 1 + static_cast<std::uint32_t>(found);
    return true;
  }

  bool takeLine() {
    const char* const start = message_ + at_;
    const void* const newline = std::memchr(start, '\n', restOfWord());
    const auto size = newline ? static_cast<std::uint32_t>(static_cast<const char*>(newline) - start) : restOfWord();
    if (size == 0) return reachedInVain();
    values_.views[reached_++] = view(at_, at_ + size);
    at_ += size;
    return true;
  }

  [[gnu::always_inline]] bool takeTime() {
    const std::uint32_t start = at_;
    if (!takeTwoWords() || restOfWord() == 0) return reachedInVain();
    at_ = wordEnd();
    keep(start);
    return true;
  }

  /// Its bound has no other occurrence to offer: the step counter of a time never gets beyond 0.
  bool takeTimeUpTo(const Step& step) {
    const std::uint32_t start = at_;
    const bool taken = takeTwoWords() && findBound(step);
    hopeless_ = false;
    if (!taken) return reachedInVain();
    keep(start);
    return true;
  }

  [[gnu::always_inline]] bool takeTwoWords() {
    for (int i = 0; i < 2; ++i) {
      if (restOfWord() == 0) return false;
      at_ = wordEnd();
      if (!takeBlank()) return false;
    }
    return true;
  }

  bool takeStar(const Step& step) {
    if (restOfWord() > 0) return takeWordsUpTo(step, at_);
    values_.views[reached_++] = view(at_, at_);
    return true;
  }

  /// At its own bound it takes the first byte of it.
  bool takePlus(const Step& step) {
    undecided_ = restOfWord() == 0;
    return !undecided_ && takeWordsUpTo(step, at_ + 1);
  }

  /// Everything up to the first occurrence of the bound behind `from`, less white space in front of that.
  bool takeWordsUpTo(const Step& step, std::uint32_t from) {
    const std::uint32_t rest = contentEnd_ - from;
    const std::size_t found = findText(Run::from(from), rest, bound(step));
    undecided_ = found == rest;
    if (undecided_) return false;
    const std::uint32_t start = at_;
    at_ = from + static_cast<std::uint32_t>(found);
    while (wordEnd() <= at_) ++word_;
    if (at_ == word_->start && at_ > start) at_ = (--word_)->end;
    keep(start);
    return true;
  }

  [[gnu::always_inline]] bool takeRest() {
    const std::uint32_t start = at_;
    if (restOfWord() > 0) {
      at_ = contentEnd_;
      word_ = lastWord() - 1;
    }
    keep(start);
    return true;
  }

  [[gnu::always_inline]] bool reachedInVain() {
    ++reached_;
    return false;
  }

  /// The value of the next variable is what stands between `start` and the place, with single blanks for white space.
  [[gnu::always_inline]] void keep(std::uint32_t start) {
    if (words_.regular(start, at_)) {
      values_.views[reached_++] = view(start, at_);
    } else {
      rarely([start](Run& copy) { return copy.keepJoined(start); });
    }
  }

  [[gnu::noinline]] bool keepJoined(std::uint32_t start) {
    values_.views[reached_++] = joined(start);
    return true;
  }

  std::string_view joined(std::uint32_t start) {
    const Word* word = word_;
    while (word->start > start) --word;
    if (word == word_) return view(start, at_);
    Scratch& scratch = values_.joined;
    if (!joining_) {
      // The values together are shorter than the message, so that the views of the first stay valid.
      scratch.clear();
      scratch.reserve(words_.size());
      joining_ = true;
    }
    const std::size_t before = scratch.size();
    for (; word < word_; start = (++word)->start) scratch.append(view(start, word->end)) += ' ';
    scratch.append(view(start, at_));
    return std::string_view(scratch).substr(before);
  }

  /// What becomes of the format when the pass has failed at `failed`. The literal algorithm would go back to the latest
  /// field that may have another end, the first one only if no other was reached. When there is no such field, it is
  /// over. When that is a plain field whose bound does not occur again in its word, it is over too: the field would
  /// fail where it stands, and again, until the limit of failures is reached. Else only a trial can tell.
  [[gnu::noinline]] Result judge(const Step* first, const Step* failed) const {
    if (undecided_) return Result::kUndecided;
    if (hopeless_ || reached_ == 0) return Result::kRefused;
    const Step* latest = nullptr;
    std::uint32_t latestVariable = 0;
    std::uint32_t variable = 0;
    for (const Step* step = first; step != failed; ++step) {
      const bool retried =
          step->field == Step::Field::kUpTo || step->field == Step::Field::kStar || step->field == Step::Field::kPlus;
      if (retried && (variable > 0 || reached_ == 1)) {
        latest = step;
        latestVariable = variable;
      }
      variable += variablesOf(*step);
    }
    if (!latest) return Result::kRefused;
    if (latest->field != Step::Field::kUpTo) return Result::kUndecided;
    return boundOccursAgain(*latest, values_.views[latestVariable]) ? Result::kUndecided : Result::kRefused;
  }

  static std::uint32_t variablesOf(const Step& step) {
    return step.field == Step::Field::kNone ? 0 : step.field == Step::Field::kWords ? step.words : 1;
  }

  /// Whether the bound of a field occurs a second time in its word, perhaps overlapping the first.
  bool boundOccursAgain(const Step& field, std::string_view value) const {
    const char* const from = value.data() + value.size() + 1;
    const char* to = from;
    const char* const end = message_ + contentEnd_;
    while (to < end && !endsWord(*to)) ++to;
    const auto size = static_cast<std::size_t>(to - from);
    return findText({from, limit_}, size, bound(field)) != size;
  }

  const char* texts_;
  const Words& words_;
  Values& values_;
  const char* message_;
  const char* limit_;
  std::uint32_t contentEnd_;
  const Word* word_;
  std::uint32_t at_;
  std::uint32_t reached_ = 0;  ///< Variables so far.
  bool joining_ = false;       ///< Some value is in the scratch area.
  bool hopeless_ = false;
  bool undecided_ = false;
};

FirstPass::Result FirstPass::run(std::uint32_t program, const Words& words, Values& values) const {
  return Run(texts_.data(), words, values).run(steps_.data() + program);
}

void FirstPass::Builder::add(std::uint32_t place) {
  const std::size_t first = made_.steps_.size();
  const std::uint32_t variables = literal_.variables(place);
  const bool possible = literal_.starFallback() && variables > 0 && variables <= FormatSpec::kMaxVariables;
  if (possible && translate(literal_.begin(place), literal_.end(place))) {
    made_.programs_.push_back(static_cast<std::uint32_t>(first));
  } else {
    made_.steps_.resize(first);
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
  const std::size_t first = made_.steps_.size();
  while (operation != last) {
    Step step{};
    const Operation* const field = operation;
    if (field->isField()) {
      ++operation;
      if (!translateField(*field, operation == last, step)) return false;
    }
    if (!translateText(operation, last, step)) return false;
    if (field->isField() && field->bound() == Bound::kConstant && !placeBound(*field, step)) return false;
    Step* const before = made_.steps_.size() > first ? &made_.steps_.back() : nullptr;
    const bool more = step.field == Step::Field::kWords && before && before->field == Step::Field::kWords &&
                      before->size == 1 && before->endsBlank && before->words < UINT8_MAX;
    if (more) {
      step.words = before->words;
      ++step.words;
      *before = step;
    } else {
      made_.steps_.push_back(step);
    }
  }
  made_.steps_.back().last = true;
  return true;
}

bool FirstPass::Builder::translateField(const Operation& field, bool isLast, Step& step) {
  const Bound bound = field.bound();
  const bool isWord = field.kind() == ComponentKind::kString;
  if (field.own || (bound == Bound::kNewline && !isWord)) return false;
  if (bound == Bound::kNone && !isLast && field.kind() >= ComponentKind::kStar) return false;
  const bool bounded = bound == Bound::kConstant;
  switch (field.kind()) {
    case ComponentKind::kStar:
      step.field = bounded ? Step::Field::kStar : Step::Field::kRest;
      break;
    case ComponentKind::kPlus:
      step.field = bounded ? Step::Field::kPlus : Step::Field::kRestPlus;
      break;
    case ComponentKind::kTime:
      step.field = bounded ? Step::Field::kTimeUpTo : Step::Field::kTime;
      break;
    default:
      step.field = bounded ? Step::Field::kUpTo : bound == Bound::kNewline ? Step::Field::kLine : Step::Field::kWords;
      step.words = 1;
  }
  return true;
}

/// Constants, line breaks and white space up to the next field. A constant that is empty or has white space in it is
/// not a part of a text.
bool FirstPass::Builder::translateText(const Operation*& operation, const Operation* last, Step& step) {
  joined_.clear();
  std::size_t blanks = 0;
  for (; operation != last && !operation->isField(); ++operation) {
    if (operation->kind() == ComponentKind::kBlank) {
      if (joined_.ends_with(' ')) return false;  // nothing is left for the second one
      joined_ += ' ';
      ++blanks;
      continue;
    }
    const std::string_view text = operation->kind() == ComponentKind::kNewline ? "\n" : literal_.text(*operation);
    if (text.empty() || std::any_of(text.begin(), text.end(), endsWord)) return false;
    joined_ += text;
  }
  if (blanks > UINT8_MAX || joined_.size() > UINT16_MAX) return false;
  step.blanks = static_cast<std::uint8_t>(blanks);
  step.size = static_cast<std::uint16_t>(joined_.size());
  step.endsBlank = joined_.ends_with(' ');
  step.text = texts_.keep(joined_);
  return true;
}

/// The bound of a star may stand behind a blank, or behind other fields.
bool FirstPass::Builder::placeBound(const Operation& field, Step& step) {
  const std::string_view bound = literal_.text(field);
  if (bound.empty() || bound.size() > UINT8_MAX || std::any_of(bound.begin(), bound.end(), endsWord)) return false;
  step.boundSize = static_cast<std::uint8_t>(bound.size());
  const std::string_view text = joined_;
  if (text.starts_with(bound)) return true;
  step.boundAt = 1;
  if (text.starts_with(' ') && text.substr(1).starts_with(bound)) return true;
  if (text.size() > UINT8_MAX) return false;
  step.boundAt = static_cast<std::uint8_t>(text.size());
  step.text = texts_.keep(joined_ += bound);
  return true;
}

}  // namespace quillon
