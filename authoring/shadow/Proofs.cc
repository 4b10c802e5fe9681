// What can be said of formats for all messages, by following how the matcher goes through them; no message is tried.
//
// impassable() follows where the cursor can stand behind each component: at text, at white space with text behind it,
// at white space that ends the message, or at the end. It takes too many places rather than too few, so where none is
// left no message comes through.
//
// bindsAllOf(): "%t %s sshd[%s]: %s*" binds all that "%t %s sshd[%s]: Accepted %s for %s" binds. Up to the blank behind
// "]:" both are the same and do the same with a message: the same attempts, the same ways back, the same number of
// failures. So when the second one gets past this blank for the first time, the first one does too, at the same place,
// and what it has behind it there matches whatever comes: the star takes the rest. Fields that take whole words and
// constants that are whole words cannot go wrong either, if the message has these words; what is known of its words
// for all messages that the second format binds is in Facts. Nothing is said of formats that need a way back behind
// what they have in common, for there the limit of failures and the first field would count.

#include "authoring/shadow/Proofs.h"

#include <algorithm>

#include "src/adapters/logfile/match/Facts.h"

namespace quillon {

namespace {

// Where the cursor can be.
constexpr unsigned kText = 1;   ///< At something that is not white space.
constexpr unsigned kSpace = 2;  ///< At white space, with text behind it.
constexpr unsigned kEdge = 4;   ///< At white space that ends the message.
constexpr unsigned kEnd = 8;
constexpr unsigned kDone = kEdge | kEnd;
constexpr unsigned kAnywhere = kText | kSpace | kDone;

bool hasWhiteSpace(std::string_view text) { return std::any_of(text.begin(), text.end(), endsWord); }

unsigned behindStar(const Operation& star, unsigned from) {
  unsigned to = from & kDone;
  if (star.bound() != Bound::kNone) return (from & (kText | kSpace)) != 0 ? kAnywhere : to;
  // It takes all that is left, but nothing when it does not begin at a word. When it is tried again with steps that
  // another star has left, it may go on from white space.
  if ((from & kText) != 0) to |= kDone;
  if ((from & kSpace) != 0) to |= kSpace | kDone;
  return to;
}

unsigned behind(const Literal& literal, const Operation& operation, unsigned from) {
  const bool atText = (from & kText) != 0;
  switch (operation.kind()) {
    case ComponentKind::kConstant:
      if (!atText || hasWhiteSpace(literal.text(operation))) return 0;
      return literal.text(operation).empty() ? kText : kAnywhere;
    case ComponentKind::kNewline:
      return atText ? kAnywhere : 0;
    case ComponentKind::kBlank:
      return ((from & kSpace) != 0 ? kText : 0) | ((from & kEdge) != 0 ? kEnd : 0);
    case ComponentKind::kString:
    case ComponentKind::kTime:
      if (!atText) return 0;
      return operation.bound() == Bound::kNone && !literal.newStringMeaning() ? kSpace | kDone : kAnywhere;
    case ComponentKind::kStar:
      return literal.newStringMeaning() ? kAnywhere : behindStar(operation, from);
    case ComponentKind::kPlus:
      if (literal.newStringMeaning()) return kAnywhere;
      if (operation.bound() != Bound::kNone) return (from & (kText | kSpace)) != 0 ? kAnywhere : 0;
      return (from & (kText | kSpace)) != 0 ? kDone : 0;
  }
  return kAnywhere;
}

bool isStar(const Operation& operation) {
  return operation.kind() == ComponentKind::kStar || operation.kind() == ComponentKind::kPlus;
}

bool same(const Literal& literal, const Operation& a, const Operation& b) {
  if (a.kind() != b.kind() || a.boundKind != b.boundKind || a.own != b.own) return false;
  if (a.own && literal.own(a).width != literal.own(b).width) return false;
  return literal.text(a) == literal.text(b);
}

/// A format from `operation` on, which begins at a word: words that are one component, with blanks between them, and
/// the rest.
class WholeWords {
 public:
  WholeWords(const Literal& literal, const Facts& facts, const FormatFacts& of, int first)
      : literal_(literal), facts_(facts), of_(of), word_(first) {}

  /// Whether every message that has the facts matches.
  bool match(const Operation* operation, const Operation* const end) {
    for (; operation != end; ++operation) {
      const bool last = operation + 1 == end;
      if (operation->kind() == ComponentKind::kStar) {
        return last && operation->bound() == Bound::kNone && word_ < of_.leastWords;
      }
      if (!matchWord(*operation)) return false;
      if (!last && (++operation)->kind() != ComponentKind::kBlank) return false;
      if (operation + 1 == end && !last) return false;  // a blank at the end
    }
    return of_.exactCount && word_ == of_.leastWords;
  }

 private:
  bool matchWord(const Operation& operation) {
    const int number = word_;
    word_ += operation.kind() == ComponentKind::kTime ? 3 : 1;
    if (word_ > of_.leastWords) return false;
    if (operation.kind() == ComponentKind::kConstant) {
      const WordFact* const fact = facts_.word(of_, number);
      return fact && fact->exact && facts_.head(*fact) == literal_.text(operation) && fact->head > 0;
    }
    const bool whole = operation.kind() == ComponentKind::kString || operation.kind() == ComponentKind::kTime;
    return whole && operation.bound() == Bound::kNone;
  }

  const Literal& literal_;
  const Facts& facts_;
  const FormatFacts& of_;
  int word_;  ///< The next one.
};

}  // namespace

int impassable(const Literal& literal, std::uint32_t place) {
  // Without variables a component that fails is passed over. Beyond the 64th, fields have no bounds.
  const std::uint32_t variables = literal.variables(place);
  if (variables == 0 || variables > 64 || !literal.starFallback()) return -1;
  unsigned cursor = kText | kEnd;
  int at = 0;
  for (const Operation* operation = literal.begin(place); operation != literal.end(place); ++operation, ++at) {
    cursor = behind(literal, *operation, cursor);
    if (cursor == 0) return at;
  }
  return (cursor & kDone) != 0 ? -1 : at - 1;
}

bool bindsAllOf(const Literal& literal, std::uint32_t other, std::uint32_t place) {
  const Operation* one = literal.begin(other);
  const Operation* two = literal.begin(place);
  const Operation* const oneEnd = literal.end(other);
  const Operation* const twoEnd = literal.end(place);
  const auto both = std::mismatch(one, oneEnd, two, twoEnd,
                                  [&](const Operation& a, const Operation& b) { return same(literal, a, b); });
  if (both.first == oneEnd && both.second == twoEnd) return true;
  if (literal.variables(other) == 0 || !literal.starFallback() || literal.newStringMeaning()) return false;
  if (oneEnd - one == 1 && one->kind() == ComponentKind::kStar) return true;
  if (literal.variables(place) == 0 || literal.variables(other) > 64 || literal.variables(place) > 64) return false;
  // Back to a blank, behind which a word begins.
  auto common = both.first - one;
  while (common > 0 && one[common - 1].kind() != ComponentKind::kBlank) --common;
  const Operation* const behindCommon = one + common;
  if (behindCommon + 1 == oneEnd && behindCommon->kind() == ComponentKind::kStar &&
      behindCommon->bound() == Bound::kNone && common > 0) {
    return true;
  }
  if (std::any_of(one, behindCommon, isStar)) return false;  // the word that is reached first need not be the right one
  int words = 0;
  for (const Operation* operation = one; operation != behindCommon; ++operation) {
    words += operation->kind() == ComponentKind::kBlank ? 1 : operation->kind() == ComponentKind::kTime ? 2 : 0;
  }
  Facts facts(literal);
  if (!facts.add(place)) return true;  // nothing binds
  facts.finish();
  return behindCommon != oneEnd && WholeWords(literal, facts, facts.formats()[0], words).match(behindCommon, oneEnd);
}

}  // namespace quillon
