// How fields of several words find their end.
//
// A star field with the bound "x", held against "a x b x": with 1 step it takes "a" and stops before the blank, since
// the next word begins with its bound. With 2 steps it goes on over that: the first character of the bound is
// swallowed, which makes "x" a word like any other, and the field takes "a x b". With 3 steps there is no third bound:
// the end of the message is reached and the steps become -1, no alternative left. Runs of white space within a value
// become one blank.
//
// A plus field takes its first word as a plain field does and lets a star of its own take the rest, with one step less.
//
// Cost: the text up to the end of the field, once for each attempt. A field does not look at what stands behind its
// bound: whether that was the right end is found out by the components that follow, and told by another attempt.

#include "src/adapters/logfile/common/Modifier_expand.h"

#include <string_view>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"

namespace {

/// A field that stands before its own constant swallows the constant's first character on the way to a later
/// occurrence. Before white space there is nothing to swallow.
void swallowOne(SysLogMsg& msg, qlStrobj& value) {
  const std::string_view first = msg.word().substr(0, 1);
  value.append(first);
  msg += static_cast<int>(first.size());
}

}  // namespace

template <class Field>
int StarModifier<Field>::matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) {
  if (next != ConstComponent::none()) ++this->steps();
  if (Field::matches(msg, next, value)) return fillUp(msg, next, value, true, 0);
  if (this->steps() <= 1) return 1;
  if (msg.end()) {
    this->steps() = -1;
    return 0;
  }
  swallowOne(msg, value);
  return fillUp(msg, next, value, false, 1);
}

/// Goes on behind the first word: captures words until the constant has been met as often as the steps say. `matched`
/// tells whether the last piece ended as a field should, `failures` how often the field stood before its constant.
template <class Field>
int StarModifier<Field>::fillUp(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value, bool matched,
                                int failures) {
  for (;;) {
    const int run = msg.whitesp();
    if (run == 0 && matched && !msg.end() && failures >= this->steps()) return 1;
    msg += run;
    const std::string_view word = this->capture(msg, next);
    if (word.empty()) {
      if (++failures >= this->steps()) {
        msg -= run;
        return starFallback || matched;
      }
      if (msg.end()) break;
    }
    matched = !word.empty();
    if (run > 0) value.append(" ");
    if (matched) {
      value.append(word);
    } else {
      swallowOne(msg, value);
    }
  }
  if (this->steps() != 0) this->steps() = -1;
  return 0;
}

template <class Field>
ConstComponent* StarModifier<Field>::lookahead(qlList<FormatComponent*>& list, int /*i*/) {
  for (list++; list.has(); list++) {
    if (list()->isconst()) return static_cast<ConstComponent*>(list());
  }
  return ConstComponent::none();
}

template <class Field>
PlusModifier<Field>::PlusModifier(const char* text, StarModifier<Field>* more, typename Field::SharedField shared)
    : StarModifier<Field>(text, shared), star(more) {
  quillon::retain(star);
}

template <class Field>
PlusModifier<Field>::~PlusModifier() {
  quillon::release(star);
}

template <class Field>
int PlusModifier<Field>::matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) {
  const bool bounded = next != ConstComponent::none();
  if (bounded) ++this->steps();
  // The first word as a plain field takes it, not as a star does.
  if (!Field::matches(msg, next, value)) {  // NOLINT(bugprone-parent-virtual-call)
    if (this->steps() == 0) return 0;
    if (msg.end()) {
      this->steps() = -1;
      return 0;
    }
    swallowOne(msg, value);
  }
  const int run = msg.whitesp();
  msg += run;
  if (this->steps() != 0) star->set_steps(this->steps() - 1);
  qlStrobj rest;
  star->matches(msg, next, rest);
  if (bounded && star->get_steps() == -1) {
    this->steps() = -1;
    return 0;
  }
  if (rest.size() == 0) {
    msg -= run;
    return 1;
  }
  if (run > 0) value.append(" ");
  value << rest;
  return 1;
}

template <class Field>
ConstComponent* PlusModifier<Field>::lookahead(qlList<FormatComponent*>& list, int i) {
  return star->lookahead(list, i);
}

template class StarModifier<StringComponent>;
template class PlusModifier<StringComponent>;
