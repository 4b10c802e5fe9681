// The matching rules once more, as plainly as they can be put, held against the library's matcher.

#include <cstdlib>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

using Bind = LogfileTest;
using Values = std::vector<std::string>;

/// `word` before the n-th occurrence of `constant` behind its start; before the very first one when n is negative.
std::string before(const std::string& word, const std::string& constant, int n) {
  std::size_t place = word.find(constant);
  const auto later = [&] {
    place = word.find(constant, place + 1);
    if (place == std::string::npos) place = 0;
  };
  if (n >= 0 && place == 0 && word != constant) later();
  for (int i = 1; i < n && place != std::string::npos && place != 0; ++i) later();
  return word.substr(0, place);
}

/// Every text is a copy, nothing is remembered between looks at the message, and no code is the library's.
class SlowMatcher {
 public:
  /// `tokens` are the pieces of a format string: "%s", "%12s+", "%t", "%n", " ", or a constant.
  explicit SlowMatcher(const std::vector<std::string>& tokens) {
    for (const std::string& token : tokens) {
      parts_.push_back(makePart(token));
      if (parts_.back()->variable()) visits_.emplace_back();
    }
  }

  /// The captured values; nothing when the message does not match. At most 100 failures are got over.
  std::optional<Values> bind(const std::string& message, bool eventLog) {
    start(message);
    eventLog_ = eventLog;  // not before: leading white space is already skipped when a message becomes an event log's
    int v = -1;
    for (int i = 0; i < static_cast<int>(parts_.size()); ++i) {
      Part& part = *parts_[static_cast<std::size_t>(i)];
      std::string unused;
      std::string* value = &unused;
      if (part.variable()) {
        Visit& visit = visits_[static_cast<std::size_t>(++v)];
        value = &values_[static_cast<std::size_t>(v)];
        part.next = bound(static_cast<std::size_t>(i));
        if (constant(part.next) || visit.steps == 0) part.steps = visit.steps;
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
    return atEnd() ? std::optional(values_) : std::nullopt;
  }

 private:
  struct Part {
    char kind = 'c';  ///< A constant, ' ', 'n', or a variable: 's', 't', '*', '+'.
    std::string text;
    int width = 0;
    int steps = 0;
    Part* star = nullptr;  ///< Of a plus field.
    Part* next = nullptr;  ///< The constant that bounds a field; null when there is none.
    bool variable() const { return kind == 's' || kind == 't' || kind == '*' || kind == '+'; }
  };
  struct Visit {
    int part = -1;  ///< -1 before the variable is first reached.
    std::size_t cursor = 0;
    int steps = 0;
  };

  static bool constant(const Part* part) { return part && part->kind == 'c'; }

  Part* makePart(const std::string& token) {
    const bool field = token[0] == '%';
    const bool withWidth = field && token[1] >= '0' && token[1] <= '9';
    if (field && !withWidth && shared_.contains(token)) return shared_[token];
    Part& part = made_.emplace_back();
    part.text = token;
    part.kind = field ? token.back() : token == " " ? ' ' : 'c';
    part.width = std::atoi(token.c_str() + 1);
    if (part.kind == '+') part.star = makePart(token.substr(0, token.size() - 1) + "*");
    if (field && !withWidth) shared_[token] = &part;
    return &part;
  }

  Part* bound(std::size_t i) const {
    const std::size_t end = parts_[i]->kind == '*' || parts_[i]->kind == '+' ? parts_.size() : i + 2;
    for (++i; i < end && i < parts_.size(); ++i) {
      if (parts_[i]->kind == 'c' || parts_[i]->kind == 'n') return parts_[i];
    }
    return nullptr;
  }

  void start(const std::string& message) {
    message_ = message;
    eventLog_ = false;
    cursor_ = 0;
    cursor_ = whiteSpace();
    values_.assign(visits_.size(), "");
    visits_.assign(visits_.size(), Visit());
    failures_ = 0;
  }

  /// After a failure: puts `i` and `v` in front of the variable to try again, false when there is none.
  bool again(int& i, int& v) {
    if (++failures_ > 100 || v < 0) return false;
    const auto visit = [this](int n) -> Visit& { return visits_[static_cast<std::size_t>(n)]; };
    visit(v).steps = parts_[static_cast<std::size_t>(visit(v).part)]->steps;
    if (visit(v).steps < 1) {
      for (--v; v >= 0 && visit(v).steps < 1; --v) visit(v).steps = 0;
      if (v < 1) return false;
    }
    for (std::size_t k = static_cast<std::size_t>(v); k < values_.size(); ++k) values_[k].clear();
    cursor_ = visit(v).cursor;
    i = visit(v).part - 1;
    --v;
    return true;
  }

  bool isSpace(char c) const {
    return std::string(" \t\v\f\r").find(c) != std::string::npos || (c == '\n' && eventLog_);
  }

  std::size_t whiteSpace() const {
    std::size_t n = 0;
    while (cursor_ + n < message_.size() && isSpace(message_[cursor_ + n])) ++n;
    return n;
  }

  std::string word() const {
    std::size_t n = cursor_;
    while (n < message_.size() && (message_[n] == '\n' || !isSpace(message_[n]))) ++n;
    return message_.substr(cursor_, n - cursor_);
  }

  bool atEnd() const { return cursor_ + whiteSpace() == message_.size(); }

  std::string firstCharacter() {
    const std::string first = word().substr(0, 1);
    cursor_ += first.size();
    return first;
  }

  bool matches(Part& part, std::string& value) {
    if (part.kind == 's') return plain(part, part.next, value);
    if (part.kind == 't') return time(part, value);
    if (part.kind == '*') return star(part, part.next, value);
    if (part.kind == '+') return plus(part, value);
    const std::size_t blanks = whiteSpace();
    const std::string text = part.kind == 'n' ? "\n" : part.text;
    const bool matched = part.kind == ' ' ? blanks > 0 : word().starts_with(text);
    if (matched) cursor_ += part.kind == ' ' ? blanks : text.size();
    return matched;
  }

  bool plain(Part& part, const Part* next, std::string& value) {
    const std::string whole = word();
    if (whole.empty()) return false;
    std::string taken = whole;
    int k = 0;
    if (constant(next)) {
      k = part.kind == '*' || part.kind == '+' ? -1 : ++part.steps;
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

  bool time(Part& part, std::string& value) {
    for (int i = 0; i < 2; ++i) {
      if (!plain(part, nullptr, value) || whiteSpace() == 0) return false;
      value += " ";
      cursor_ += whiteSpace();
    }
    return plain(part, part.next, value);
  }

  bool star(Part& part, const Part* next, std::string& value) {
    if (next) ++part.steps;
    bool matched = plain(part, next, value);
    int failures = matched ? 0 : 1;
    if (!matched) {
      if (part.steps <= 1) return true;
      if (atEnd()) {
        part.steps = -1;
        return false;
      }
      value += firstCharacter();
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
      value += (n > 0 ? " " : "") + more;
    }
    if (part.steps != 0) part.steps = -1;
    return false;
  }

  bool plus(Part& part, std::string& value) {
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
    if (more.empty()) cursor_ -= n;
    if (!more.empty()) value += (n > 0 ? " " : "") + more;
    return true;
  }

  std::deque<Part> made_;
  std::vector<Part*> parts_;
  std::map<std::string, Part*> shared_;  ///< Fields without a width exist once.
  std::string message_;
  bool eventLog_ = false;
  std::size_t cursor_ = 0;
  Values values_;
  std::vector<Visit> visits_;  ///< By variable.
  int failures_ = 0;
};

/// Small random formats, and messages that are made from them or of their letters.
class RandomCases {
 public:
  std::vector<std::string> format() {
    static const char* const tokens[] = {"%s", "%s", "%s*", "%s*", "%s+", "%t",  "%n",   " ",    " ",
                                         " ",  "a",  "b",   "ab",  "x",   "%2s", "%1s*", "%2s+", "aa"};
    std::vector<std::string> format(1 + below(8));
    for (std::string& token : format) token = tokens[below(std::size(tokens))];
    return format;
  }

  std::string message(const std::vector<std::string>& format) {
    std::string text;
    for (const std::string& token : format) {
      if (below(12) == 0) continue;
      if (token == " ") {
        text += std::string(1 + below(2), below(5) == 0 ? '\t' : ' ');
      } else {
        text += token == "%n" ? "\n" : token[0] == '%' ? letters(token == "%t" ? 8 : 5) : token;
      }
    }
    return below(4) == 0 ? letters(14) : text;
  }

  std::size_t below(std::size_t n) { return random_() % n; }

 private:
  std::string letters(std::size_t most) {
    std::string text;
    for (std::size_t n = below(most + 1); n > 0; --n) text += "aabbx  \n"[below(8)];
    return text;
  }

  std::mt19937 random_{20240717};
};

std::string joined(const std::optional<Values>& values) {
  if (!values) return "no";
  std::string text;
  for (const std::string& value : *values) text += (&value == values->data() ? "" : "|") + value;
  return text;
}

TEST_F(Bind, AgreesWithASlowObviousMatcher) {
  RandomCases random;
  int matches = 0;
  for (int i = 0; i < 40000; ++i) {
    const std::vector<std::string> tokens = random.format();
    FormatSpec format("T");
    for (const std::string& token : tokens) format.addFormat(token.c_str());
    format.addLookahead();
    // The fields that all formats share keep their steps from one format to the next; here they start afresh.
    for (const char* token : {"%s", "%s*", "%s+", "%t"}) {
      static_cast<StringComponent*>(FormatComponent::create(token))->set_steps(0);
    }
    SlowMatcher slow(tokens);
    for (int k = 0; k < 3; ++k) {
      const std::string message = random.message(tokens);
      const bool eventLog = random.below(4) == 0;
      const std::string expected = joined(slow.bind(message, eventLog));
      ASSERT_EQ(expected, bound(format, message, eventLog))
          << "format: " << format.getFmtStr().getString() << "\nmessage: " << message << "\neventLog: " << eventLog;
      matches += expected != "no";
    }
  }
  EXPECT_GT(matches, 10000);  // or the cases say little
}

}  // namespace
}  // namespace quillon
