#include "tests/logfile/slow_matcher.h"

#include <cstdlib>

namespace quillon {
namespace {

/// `word` before the n-th occurrence of `constant` behind its start; before the very first one when n is negative.
std::string before(const std::string& word, const std::string& constant, int n) {
  std::size_t place = word.find(constant);
  if (n >= 0 && place == 0 && word != constant) {
    place = word.find(constant, 1);
    if (place == std::string::npos) place = 0;
  }
  for (int i = 1; i < n && place != std::string::npos && place != 0; ++i) {
    place = word.find(constant, place + 1);
    if (place == std::string::npos) place = 0;
  }
  return word.substr(0, place);
}

}  // namespace

SlowMatcher::SlowMatcher(const std::vector<std::string>& tokens) {
  for (const std::string& token : tokens) {
    parts_.push_back(makePart(token));
    if (parts_.back()->variable()) visits_.emplace_back();
  }
  values_.resize(visits_.size());
}

std::shared_ptr<SlowMatcher::Part> SlowMatcher::makePart(const std::string& token) {
  const bool field = token[0] == '%' && token.size() > 1;
  const bool withWidth = field && token[1] >= '0' && token[1] <= '9';
  if (field && !withWidth && shared_.contains(token)) return shared_[token];

  auto part = std::make_shared<Part>();
  part->text = token;
  if (token == " ") part->kind = Kind::kBlank;
  if (!field) return part;
  part->width = std::atoi(token.c_str() + 1);
  if (token == "%n") {
    part->kind = Kind::kNewline;
  } else if (token == "%t") {
    part->kind = Kind::kTime;
  } else if (token.back() == '*') {
    part->kind = Kind::kStar;
  } else if (token.back() == '+') {
    part->kind = Kind::kPlus;
    if (withWidth) {
      part->star = std::make_shared<Part>(*part);
      part->star->kind = Kind::kStar;
    } else {
      part->star = makePart("%s*");
    }
  } else {
    part->kind = Kind::kPlain;
  }
  if (!withWidth) shared_[token] = part;
  return part;
}

const SlowMatcher::Part* SlowMatcher::bound(std::size_t i) const {
  const Kind kind = parts_[i]->kind;
  const std::size_t end = kind == Kind::kStar || kind == Kind::kPlus ? parts_.size() : i + 2;
  for (++i; i < end && i < parts_.size(); ++i) {
    if (parts_[i]->kind == Kind::kConstant || parts_[i]->kind == Kind::kNewline) return parts_[i].get();
  }
  return nullptr;
}

void SlowMatcher::start(const std::string& message, bool eventLog) {
  message_ = message;
  cursor_ = 0;
  values_.assign(visits_.size(), "");
  visits_.assign(visits_.size(), Visit());
  failures_ = 0;
  eventLog_ = eventLog;
}

std::optional<SlowMatcher::Values> SlowMatcher::bindOnce(const std::string& message, bool eventLog) {
  start(message, eventLog);
  cursor_ = whiteSpace();
  std::size_t v = 0;
  for (std::size_t i = 0; i < parts_.size(); ++i) {
    parts_[i]->next = bound(i);
    std::string unused;
    if (!matches(*parts_[i], parts_[i]->variable() ? values_[v++] : unused)) return std::nullopt;
  }
  if (!atEnd()) return std::nullopt;
  return values_;
}

std::optional<SlowMatcher::Values> SlowMatcher::bind(const std::string& message, bool eventLog) {
  start(message, false);
  cursor_ = whiteSpace();  // a message becomes one of an event log when its leading white space is already behind it
  eventLog_ = eventLog;
  int v = -1;
  for (int i = 0; i < static_cast<int>(parts_.size()); ++i) {
    Part& part = *parts_[static_cast<std::size_t>(i)];
    std::string unused;
    std::string* value = &unused;
    if (part.variable()) {
      Visit& visit = visits_[static_cast<std::size_t>(++v)];
      value = &values_[static_cast<std::size_t>(v)];
      part.next = bound(static_cast<std::size_t>(i));
      if ((part.next && part.next->kind == Kind::kConstant) || visit.steps == 0) part.steps = visit.steps;
      if (visit.part < 0) visit = {i, cursor_, visit.steps};
    }
    const bool last = i + 1 == static_cast<int>(parts_.size());
    const bool matched = matches(part, *value) || visits_.empty();
    if (matched && (atEnd() || visits_.empty() || !last)) {
      if (part.variable()) visits_[static_cast<std::size_t>(v)].steps = part.steps;
    } else if (!again(i, v)) {
      return std::nullopt;
    }
  }
  if (!atEnd()) return std::nullopt;
  return values_;
}

/// After a failure: puts `i` and `v` in front of the variable to try again, false when there is none.
bool SlowMatcher::again(int& i, int& v) {
  if (++failures_ > 100 || v < 0) return false;
  Visit& last = visits_[static_cast<std::size_t>(v)];
  last.steps = parts_[static_cast<std::size_t>(last.part)]->steps;
  if (last.steps < 1) {
    for (--v; v >= 0 && visits_[static_cast<std::size_t>(v)].steps < 1; --v) {
      visits_[static_cast<std::size_t>(v)].steps = 0;
    }
    if (v < 1) return false;
  }
  const Visit& retried = visits_[static_cast<std::size_t>(v)];
  for (std::size_t k = static_cast<std::size_t>(v); k < values_.size(); ++k) values_[k].clear();
  cursor_ = retried.cursor;
  i = retried.part - 1;
  --v;
  return true;
}

bool SlowMatcher::isSpace(char c) const {
  return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r' || (c == '\n' && eventLog_);
}

std::size_t SlowMatcher::whiteSpace() const {
  std::size_t n = 0;
  while (cursor_ + n < message_.size() && isSpace(message_[cursor_ + n])) ++n;
  return n;
}

std::string SlowMatcher::word() const {
  std::string word;
  for (std::size_t i = cursor_; i < message_.size() && (message_[i] == '\n' || !isSpace(message_[i])); ++i) {
    word += message_[i];
  }
  return word;
}

std::string SlowMatcher::firstCharacter() {
  const std::string first = word().substr(0, 1);
  cursor_ += first.size();
  return first;
}

bool SlowMatcher::matches(Part& part, std::string& value) {
  const std::string next = word();
  switch (part.kind) {
    case Kind::kConstant:
      if (next.empty() || !next.starts_with(part.text)) return false;
      cursor_ += part.text.size();
      return true;
    case Kind::kNewline:
      if (!next.starts_with("\n")) return false;
      ++cursor_;
      return true;
    case Kind::kBlank: {
      const std::size_t n = whiteSpace();
      cursor_ += n;
      return n > 0;
    }
    case Kind::kPlain:
      return plain(part, part.next, value);
    case Kind::kTime:
      return time(part, value);
    case Kind::kStar:
      return star(part, part.next, value);
    case Kind::kPlus:
      return plus(part, value);
  }
  return false;
}

bool SlowMatcher::plain(Part& part, const Part* next, std::string& value) {
  const std::string whole = word();
  if (whole.empty()) return false;
  std::string taken = whole;
  int k = 0;
  if (next && next->kind == Kind::kConstant) {
    k = part.text.back() == '*' || part.text.back() == '+' ? -1 : ++part.steps;
    taken = before(whole, next->text, k);
  } else if (next) {
    taken = whole.substr(0, whole.find('\n'));
    if (taken != whole) part.steps = -1;
  }
  if (taken == whole && k >= 0) part.steps = -1;
  cursor_ += taken.size();
  if (part.width > 0) taken = taken.substr(0, static_cast<std::size_t>(part.width));
  value += taken;
  return !taken.empty();
}

bool SlowMatcher::time(Part& part, std::string& value) {
  for (int i = 0; i < 2; ++i) {
    if (!plain(part, nullptr, value) || whiteSpace() == 0) return false;
    value += " ";
    cursor_ += whiteSpace();
  }
  return plain(part, part.next, value);
}

bool SlowMatcher::star(Part& part, const Part* next, std::string& value) {
  if (next) ++part.steps;
  bool matched = true;
  int failures = 0;
  if (!plain(part, next, value)) {
    if (part.steps <= 1) return true;
    if (atEnd()) {
      part.steps = -1;
      return false;
    }
    value += firstCharacter();
    matched = false;
    failures = 1;
  }
  for (;;) {
    const std::size_t n = whiteSpace();
    if (n == 0 && matched && !atEnd() && failures >= part.steps) return true;
    cursor_ += n;
    std::string more;
    matched = plain(part, next, more);
    if (!matched) {
      if (++failures >= part.steps) {
        cursor_ -= n;
        return true;
      }
      if (atEnd()) break;
      more = firstCharacter();
    }
    if (n > 0) value += " ";
    value += more;
  }
  if (part.steps != 0) part.steps = -1;
  return false;
}

bool SlowMatcher::plus(Part& part, std::string& value) {
  if (part.next) ++part.steps;
  if (!plain(part, part.next, value)) {
    if (part.steps == 0) return false;
    if (atEnd()) {
      part.steps = -1;
      return false;
    }
    value += firstCharacter();
  }
  const std::size_t n = whiteSpace();
  cursor_ += n;
  if (part.steps != 0) part.star->steps = part.steps - 1;
  std::string more;
  star(*part.star, part.next, more);
  if (part.next && part.star->steps == -1) {
    part.steps = -1;
    return false;
  }
  if (more.empty()) {
    cursor_ -= n;
  } else {
    if (n > 0) value += " ";
    value += more;
  }
  return true;
}

}  // namespace quillon
