// Whole formats against whole messages.

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "tests/logfile/model.h"
#include "tests/logfile/slow_matcher.h"

namespace quillon {
namespace {

using Bind = LogfileTest;

std::string repeated(const std::string& text, int n) {
  std::string all;
  for (; n > 0; --n) all += text;
  return all;
}

TEST_F(Bind, CapturesValuesOrNothing) {
  struct Case {
    const char* format;
    std::string message;
    std::string expected;
  };
  const Case cases[] = {
      {"%s logged in", "bob logged in", "bob"},
      {"%s logged in", "  bob\tlogged   in \t", "bob"},
      {"%s logged in", "bob logged in now", "no"},  // text left over
      {"%s %s", "a", "no"},
      {"%s %s", "a\nb", "no"},  // a newline is no white space
      {"%s-%s-%s", "a-b-c-d", "a|b|c-d"},
      {"%3s %s", "abcdef gh", "abc|gh"},
      {"%s %s", "a\xC2\xA0 \xC2\x85", "a\xC2\xA0|\xC2\x85"},  // nor is any byte of a longer character
      {"%t %s: %s*", "Mar  5 12:00:01 cron: job  done", "Mar 5 12:00:01|cron|job done"},
      {"%s*%n%s", "a b\nc", "a b|c"},
      {"%s*: %s", "a b: c", "a b|c"},
      {"%s* on %s* end", "x on y on z end", "x|y on z"},
      {"%s* x %s*", "a x ", "a|"},  // a star field at the end may be empty, the blank before it not
      {"%s* x %s*", "a x", "no"},
      {"%s+ x", "a b x", "a b"},
      {"%s+ x", "x x", "x"},
      {"%s+", "", "no"},
      {" %s", " a", "no"},  // leading white space is already skipped

      // A later end of a field is tried when what follows fails: at each occurrence of its constant,
      {"%s %s* x %s", "h a x b x c", "h|a x b|c"},
      {"%s %s,%s", "h a,b,c d", "no"},
      {"%s %sx", "  h axbx", "h|axb"},  // from where the field began
      // but at the first variable only when nothing behind it was reached.
      {"%s* x %s", "a x b x c", "no"},
      {"%s*x", "axbx", "axb"},
      {"%sx", "  axbx", "axb"},
      // The 101st failure ends it.
      {"%sx", "a" + repeated("x", 101), "a" + repeated("x", 100)},
      {"%sx", "a" + repeated("x", 102), "no"},
      {"%s*x", "a" + repeated("x", 102), "no"},

      // Without variables every component passes, and only the end of the message counts.
      {"abc", "abc", ""},
      {"abc def", "abc", ""},
      {"abc", "", ""},
      {"abc", "xyz", "no"},
      {"abc", "abcd", "no"},
      {"", "", ""},
  };
  for (const Case& c : cases) {
    FormatSpec format("T");
    format.setFmtStr(c.format);
    EXPECT_EQ(c.expected, bound(format, c.message)) << c.format << " and: " << c.message;
    EXPECT_EQ(c.expected, bound(format, c.message)) << "the second time " << c.format;
  }
}

TEST_F(Bind, EventLogsHaveLinesWithinAMessage) {
  FormatSpec format("T");
  format.setFmtStr("%s %s");
  EXPECT_EQ("a|\nb", bound(format, "a \nb"));
  EXPECT_EQ("a|b\n", bound(format, "a \nb\n", true));    // between words, that is
  EXPECT_EQ("\na|b", bound(format, " \na \n b", true));  // not in front of the first
}

TEST_F(Bind, FailureLeavesNoValues) {
  FormatSpec format("T");
  format.setFmtStr("%s,%s");
  EXPECT_EQ("a|b", bound(format, "a,b"));
  EXPECT_EQ("no", bound(format, "a,b c"));
  EXPECT_EQ("|", values(format, true));
}

TEST_F(Bind, OnePassTakesTheStepsAsTheyAre) {
  FormatSpec format("T");
  format.setFmtStr("%9sx");
  std::string results;
  for (int i = 0; i < 3; ++i) {
    SysLogMsg msg("axbx");
    results += values(format, format.bind(msg)) + " ";
  }
  EXPECT_EQ("no axb no ", results);
}

TEST_F(Bind, OnlySixtyFourVariablesHaveValues) {
  FormatSpec format("T");
  CapturedReports reports;
  format.setFmtStr(repeated("%s ", 65).append("!").c_str());
  EXPECT_EQ("3,6,242 too many % variables in format\n", reports.take());
  EXPECT_EQ(repeated("ab|", 64), bound(format, repeated("ab ", 65) + "!"));
  MsgMapEntry* const last = addSlot(format, "last", varMap, "$65");
  EXPECT_STREQ("???", last->svalue(&format).getString());
}

TEST_F(Bind, EventText) {
  FormatSpec format("Login");
  format.setFmtStr("%s from %s");
  CapturedReports reports;
  addSlot(format, "user", varMap, "$1");
  addSlot(format, "-host", varMap, "$2");
  addSlot(format, "beyond", varMap, "$3");
  addSlot(format, "kind", constMap, "LOGIN");
  addSlot(format, "note", notifMap, "text");
  addSlot(format, "a", defaultMap, "");
  addSlot(format, "b", labelMap, "");
  addSlot(format, "c", filenameMap, "");
  addSlot(format, "msg", printMap, "\"%s at %s\",user,host");
  EXPECT_EQ("bob|h1", bound(format, "bob from h1"));
  EXPECT_STREQ(
      "EVENT Login `user=bob' `host=h1' `beyond=?\?\?' `kind=LOGIN' `note=?\?\?' `a=default' `b=label' `c=filename' "
      "`msg=bob at h1' END",
      format.aevent().getString());
}

TEST_F(Bind, PrintedValues) {
  FormatSpec format("T");
  format.setFmtStr("%s");
  addSlot(format, "user", varMap, "$1");
  addSlot(format, "pc", constMap, "%s");
  addSlot(format, "other", printMap, "\"x\"");
  bound(format, "bob");
  struct Case {
    const char* rule;
    const char* expected;
  };
  const Case cases[] = {
      {"\"%s/%s\",user,user", "bob/bob"},  {"\"%s/%s\",user", "bob/%s"},        // an argument is missing,
      {"\"%s/%s\",nosuch,user", "%s/bob"}, {"\"%s/%s\",other,user", "%s/bob"},  // unknown, or a PRINTF itself
      {"\"%s\",user,user", "bob"},         {"\"%%s 100% %d\",user", "%bob 100% %d"},
      {"\"%s%s\",pc,user", "%sbob"},       {"\"\"", ""},
  };
  for (const Case& c : cases) {
    MsgMapEntry* const entry = addSlot(format, "msg", printMap, c.rule);
    EXPECT_STREQ(c.expected, entry->svalue(&format).getString()) << c.rule;
  }
}

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
        text += repeated(below(5) == 0 ? "\t" : " ", 1 + static_cast<int>(below(2)));
      } else if (token == "%n") {
        text += "\n";
      } else {
        text += token[0] == '%' ? letters(token == "%t" ? 8 : 5) : token;
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

/// The fields that all formats share keep their steps from one format to the next; here they start afresh.
void forgetSteps() {
  for (const char* token : {"%s", "%s*", "%s+", "%t"}) {
    static_cast<StringComponent*>(FormatComponent::create(token))->set_steps(0);
  }
}

std::string joined(const std::optional<SlowMatcher::Values>& values) {
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
    forgetSteps();
    SlowMatcher slow(tokens);
    for (int k = 0; k < 3; ++k) {
      const std::string message = random.message(tokens);
      const bool eventLog = random.below(4) == 0;
      if (k == 2) {
        SysLogMsg msg(message.c_str());
        if (eventLog) msg.setEventFromEventLog();
        ASSERT_EQ(joined(slow.bindOnce(message, eventLog)), values(format, format.bind(msg)))
            << "one pass of " << format.getFmtStr().getString() << "\nmessage: " << message;
        continue;
      }
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
