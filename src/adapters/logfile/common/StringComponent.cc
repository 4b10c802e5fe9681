// A plain field takes the word at the cursor, or the part of it before its bound. "%s" before ":" takes "a" of
// "a:b:c d" in its first attempt, "a:b" in its second; in the third there is no ":" left, so it fails. Of "abc d" it
// takes "abc", and since ":" is not in the word, its steps become -1: there is no other end. A width shortens what is
// kept, not what is taken, unless `newStringMeaning` says so.
//
// Cost: a search of the word for each attempt (ConstComponent.cc). A field never goes beyond its word.

#include "src/adapters/logfile/common/StringComponent.h"

#include "foundation/characters.h"
#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/Modifier_expand.h"
#include "src/adapters/logfile/common/NewlineComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"

int newStringMeaning = 0;
int starFallback = 1;

namespace {

using Star = StarModifier<StringComponent>;
using Plus = PlusModifier<StringComponent>;

StringComponent* shared_string = nullptr;
Star* shared_star = nullptr;
Plus* shared_plus = nullptr;

}  // namespace

thread_local constinit int StringComponent::shared_steps[kSharedFields] = {};

void StringComponent::init() {
  if (shared_string) return;
  shared_string = new StringComponent("%s", kPlainField);
  shared_star = new Star("%s*", kStarField);
  shared_plus = new Plus("%s+", shared_star, kPlusField);
  share(shared_string);
  share(shared_star);
  share(shared_plus);
}

StringComponent* StringComponent::create(const char* token) {
  const std::string_view text(token);
  if (text.size() > 1 && quillon::isDigit(text[1])) {
    if (text.back() == '*') return new Star(token);
    if (text.back() == '+') return new Plus(token, new Star(token));
    return new StringComponent(token);
  }
  if (text == "%s*") return shared_star;
  if (text == "%s+") return shared_plus;
  if (text.size() > 2) error("bad %s specification", token);
  return shared_string;
}

StringComponent::StringComponent(const char* text, SharedField shared)
    : FormatComponent(text),
      sharedField_(shared),
      width(quillon::leadingNumber(text + 1)),
      endsAtFirst_(view().ends_with('*') || view().ends_with('+')) {}

int StringComponent::matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) {
  const std::string_view captured = capture(msg, next);
  value.append(captured);
  return !captured.empty();
}

ConstComponent* StringComponent::lookahead(qlList<FormatComponent*>& list, int /*i*/) {
  list++;
  return list.has() && list()->isconst() ? static_cast<ConstComponent*>(list()) : ConstComponent::none();
}

std::string_view StringComponent::capture(SysLogMsg& msg, const ConstComponent* next) {
  const std::string_view whole = msg.word();
  const std::size_t limit = static_cast<std::size_t>(width);
  int& steps = this->steps();
  if (whole.empty()) return {};
  std::size_t length = whole.size();
  int occurrence = 0;
  if (next == NewlineComponent::shared()) {
    length = std::min(length, whole.find('\n'));
    if (length < whole.size()) steps = -1;
  } else if (next != ConstComponent::none()) {
    occurrence = endsAtFirst_ ? -1 : ++steps;
    if (width == 0 || !newStringMeaning) {
      length = next->cut(whole, occurrence, msg.latestFound(occurrence));
    } else if (whole.size() < limit) {
      --steps;
      return {};
    }
  }
  if (length == whole.size() && occurrence >= 0) steps = -1;  // the constant is not inside this word
  std::string_view captured = whole.substr(0, length);
  if (width != 0) {
    if (length >= limit) {
      captured = captured.substr(0, limit);
      if (newStringMeaning) length = limit;
    } else if (newStringMeaning) {
      return {};
    }
  }
  msg += static_cast<int>(length);
  return captured;
}
