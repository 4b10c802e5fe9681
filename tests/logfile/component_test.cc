// One component at a time: made from a token and held against a place in a message.

#include <string>
#include <utility>
#include <vector>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/NewlineComponent.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

struct Case {
  const char* token;
  const char* next;  ///< "" for none
  int steps;         ///< Before the attempt.
  const char* message;
  int start;             ///< Where in the message.
  const char* expected;  ///< "'captured'@cursor" or "no@cursor", and for a field the steps afterwards.
};

class Match : public LogfileTest {
 protected:
  static void check(const Case& c, bool eventLog = false) {
    const Ref<FormatComponent> component(FormatComponent::create(c.token));
    const Ref<ConstComponent> constant(ConstComponent::create(c.next));
    const ConstComponent* next = constant.get();
    if (std::string(c.next) == "%n") next = NewlineComponent::shared();
    if (std::string(c.next).empty()) next = ConstComponent::none();
    auto* const field = component->variable() ? static_cast<StringComponent*>(component.get()) : nullptr;
    if (field) field->set_steps(c.steps);

    SysLogMsg msg(c.message);
    if (eventLog) msg.setEventFromEventLog();
    msg += c.start - msg.offset();
    qlStrobj value("");
    const bool matched = component->matches(msg, next, value);
    std::string result = (matched ? "'" + std::string(value.view()) + "'" : "no") + "@" + std::to_string(msg.offset());
    if (field) result += " " + std::to_string(field->get_steps());
    EXPECT_EQ(c.expected, result) << c.token << " before '" << c.next << "' steps " << c.steps << ": " << c.message;
  }
  ~Match() override {
    newStringMeaning = 0;
    starFallback = 1;
  }
};

TEST_F(Match, MadeFromTokens) {
  // Its text; "shared" for the one instance of its kind; "$" for a variable, "=" for a bound. Behind a width only the
  // last character counts.
  const std::pair<const char*, const char*> cases[] = {
      {"%s", "%s shared$"},   {"%s*", "%s* shared$"},
      {"%s+", "%s+ shared$"}, {"%sx", "%s shared$"},
      {"%s**", "%s shared$"}, {"%5s", "%5s $"},
      {"%5s*", "%5s* $"},     {"%5s+", "%5s+ $"},
      {"%5sx", "%5sx $"},     {"%t", "%t shared$"},
      {"%5t", "%t shared$"},  {"%t*", "%t shared$"},
      {"%n", "%n shared="},   {"%nabc", "%n shared="},
      {"%5n", "%n shared="},  {" ", "  shared"},
      {"\t", "\t ="},         {"%", "% ="},
      {"%d", "%d ="},         {"%5", "%5 ="},
      {"word", "word ="},     {"", " ="},
  };
  CapturedReports reports;
  for (const auto& [token, expected] : cases) {
    const Ref<FormatComponent> component(FormatComponent::create(token)), again(FormatComponent::create(token));
    std::string result = std::string(component->fmtRep().view()) + " ";
    if (component.get() == again.get()) result += "shared";
    if (component->variable()) result += "$";
    if (component->isconst()) result += "=";
    EXPECT_EQ(expected, result) << "token: " << token;
  }
  std::string expected;
  for (const std::string bad :
       {"s specification `%sx", "s specification `%s**", "t specification `%5t", "t specification `%t*"}) {
    for (int i = 0; i < 2; ++i) expected += "3,2,156 bad %" + bad + "'\n\n";
  }
  EXPECT_EQ(expected, reports.take());
}

TEST_F(Match, TextAndWhiteSpace) {
  const Case cases[] = {
      {"ab", "", 0, "abc", 0, "''@2"},         {"ab", "", 0, "xab", 0, "no@0"},   {"a", "", 0, "", 0, "no@0"},
      {"ab", "", 0, "a b", 0, "no@0"},         {"", "", 0, "x", 0, "''@0"},       {"", "", 0, "", 0, "no@0"},
      {" ", "", 0, "a  \t\v\f\rb", 1, "''@7"}, {" ", "", 0, "a\nb", 1, "no@1"},   {" ", "", 0, "ab", 1, "no@1"},
      {" ", "", 0, "a\xA0", 1, "no@1"},        {"%n", "", 0, "\n\nx", 0, "''@1"}, {"%n", "", 0, "x\n", 0, "no@0"},
  };
  for (const Case& c : cases) check(c);
  check({" ", "", 0, "a\n b", 1, "''@3"}, true);  // an event log has newlines within a line
  check({"%n", "", 0, "a\nb", 1, "''@2"}, true);
  SysLogMsg msg(" a\nb c");
  EXPECT_STREQ("a\nb", msg.peek().getString());  // which belongs to a word all the same
  msg += 3;
  EXPECT_STREQ("", msg.peek().getString());
}

/// The part of a word before an occurrence of a constant: asked for once more each time, and out of order.
TEST_F(Match, OccurrencesOfAConstant) {
  const std::string words[] = {"a]:b]:c", std::string(1000, ']') + ":x]:" + std::string(1000, ']'),
                               "]:" + std::string(999, 'b') + "]:", "]:", std::string(500, 'a')};
  const Ref<ConstComponent> constant(ConstComponent::create("]:"));
  FoundText latest;
  for (int round = 0; round < 3; ++round) {
    for (const std::string& word : words) {
      std::vector<std::size_t> places;  // behind the start
      for (std::size_t at = word.find("]:", 1); at != std::string::npos; at = word.find("]:", at + 1)) {
        places.push_back(at);
      }
      const std::size_t first = word.find("]:");
      for (const int n : {1, 2, 3, 4, -1, 1, 3, 3, 2, -1, -1, 0}) {
        const auto k = static_cast<std::size_t>(n > 0 ? n : 1);
        std::size_t expected = k <= places.size() ? places[k - 1] : 0;
        if (first == std::string::npos || (places.empty() && word == "]:")) expected = first == 0 ? 0 : word.size();
        if (n < 0 && first != std::string::npos) expected = first;
        EXPECT_EQ(expected, constant->cut(word, n, latest)) << word.size() << " bytes, occurrence " << n;
      }
    }
  }
  EXPECT_STREQ("ab", NewlineComponent::shared()->select("ab\ncd\n", 2).getString());
}

TEST_F(Match, Fields) {
  const Case cases[] = {
      {"%s", "", 0, "abc def", 0, "'abc'@3 -1"},    // no constant: the word, and no alternative
      {"%s", "", 0, "a b", 1, "no@1 0"},            // neither white space nor the end changes anything
      {"%s", "x", 0, "abxcdxe", 0, "'ab'@2 1"},     // up to the first occurrence,
      {"%s", "x", 1, "abxcdxe", 0, "'abxcd'@5 2"},  // the second,
      {"%s", "x", 2, "abxcdxe", 0, "no@0 3"},       // and there is no third
      {"%s", "x", -1, "abxcdxe", 0, "'ab'@2 0"},    // 0 steps count as 1
      {"%s", "x", 0, "abc", 0, "'abc'@3 -1"},       // not in this word: no alternative
      {"%s", "x", 0, "xaxb", 0, "'xa'@2 1"},        // an occurrence at the start counts only when it is the only one
      {"%s", "x", 0, "xa", 0, "no@0 1"},
      {"%s", "aa", 1, "baaaa", 0, "'ba'@2 2"},    // occurrences may overlap
      {"%s", "%n", 0, "ab\ncd", 0, "'ab'@2 -1"},  //
      {"%s", "", 0, "a\nb c", 0, "'a\nb'@3 -1"},  // a newline belongs to the word
      {"%s", "", 0, "a\xC2\xA0\xC2\x85 b", 0, "'a\xC2\xA0\xC2\x85'@5 -1"},
      {"%5s", "", 0, "abcdefg", 0, "'abcde'@7 -1"},  // a width only shortens the value
      {"%t", "", 0, "Mar  5 12:00:01 x", 0, "'Mar 5 12:00:01'@15 -1"},
      {"%t", "", 0, "a b", 0, "no@3 -1"},
      {"%t", ";", 0, "a b c;d;", 0, "'a b c'@5 0"},    // the words before leave no alternative
      {"%s*", "", 0, "", 0, "''@0 0"},                 // none is enough
      {"%s*", "", 0, "a  b ", 0, "'a b'@4 -1"},        // all words, one blank between them
      {"%s*", "x", 0, "a b x", 0, "'a b'@3 1"},        // up to the blank before the constant
      {"%s*", "x", 1, "a x b x", 0, "'a x b'@5 2"},    // over one occurrence of it
      {"%s*", "x", 3, "a x b x", 0, "no@7 -1"},        // there is no third
      {"%s*", "x", 1, "a  b x", 1, "' b'@4 2"},        // from white space there is nothing to swallow
      {"%2s*", "x", 0, "abc defx", 0, "'ab de'@7 1"},  // each word is shortened
      {"%s+", "", 0, "", 0, "no@0 0"},                 // at least one word
      {"%s+", "x", 0, "x x", 0, "'x'@1 1"},            // a constant where the first word must be is that word
      {"%s+", "x", 1, "a x b x", 0, "'a x b'@5 2"},    //
      {"%s+", "x", 2, "a x", 0, "no@3 -1"},            // no alternative any more
  };
  for (const Case& c : cases) check(c);
  starFallback = 0;
  check({"%s*", "x", 2, "a x b x", 0, "no@7 3"});  // out of occurrences behind a swallowed one
  newStringMeaning = 1;                            // exactly so many characters, whatever constant follows
  check({"%5s", "", 0, "abcdefg", 0, "'abcde'@5 -1"});
  check({"%5s", "", 0, "abc", 0, "no@0 -1"});
  check({"%2s", "x", 0, "axcxd", 0, "'ax'@2 -1"});
  check({"%2s", "x", 0, "a", 0, "no@0 0"});
  check({"%s", "x", 0, "abx", 0, "'ab'@2 1"});
}

}  // namespace
}  // namespace quillon
