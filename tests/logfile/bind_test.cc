// Whole formats: how they are read from text, and how they take messages.

#include <string>
#include <tuple>
#include <utility>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

using Bind = LogfileTest;

std::string repeated(const std::string& text, int n) {
  std::string all;
  for (; n > 0; --n) all += text;
  return all;
}

/// "text $variables /lines".
std::string dump(FormatSpec& format) {
  return std::string(format.getFmtStr().view()) + " $" + std::to_string(format.numvars()) + " /" +
         std::to_string(format.numlines());
}

TEST_F(Bind, TextIsSplitIntoComponents) {
  FormatComponent* const field = FormatComponent::create("%s");
  const int before = field->refcnt();
  // A run of white space is one component, which is its first character. A token of more than 512 characters writes
  // over its beginning.
  const std::pair<std::string, std::string> cases[] = {
      {"%s %s", "%s %s $2 /1"},
      {"a  \t b", "a b $0 /1"},
      {"a\t b", "a\tb $0 /1"},
      {"%s*x%t%12s+", "%s*x%t%12s+ $3 /1"},
      {"%n%na", "%n%na $0 /3"},
      {"%s% s%d%", "%s% s%d% $1 /1"},
      {"%s%s*%s+%s**", "%s%s*%s+%s** $4 /1"},
      {"", " $0 /1"},
      {repeated("a", 511) + " %s", repeated("a", 511) + " %s $1 /1"},
      {repeated("a", 512) + " %s", " %s $1 /1"},
      {repeated("a", 512) + "z %s", "z %s $1 /1"},
      {repeated("a", 1029) + "z %s", "aaaaaz %s $1 /1"},
  };
  for (const auto& [text, expected] : cases) {
    FormatSpec format("T"), again("T");
    format.setFmtStr("%s %s");
    format.setFmtStr(text.c_str());  // replaces what was there
    EXPECT_EQ(expected, dump(format)) << text;
    again.setFmtStr(format.getFmtStr().getString());
    EXPECT_EQ(expected, dump(again)) << "read back: " << text;
  }
  EXPECT_EQ(before, field->refcnt());
}

TEST_F(Bind, CapturesValuesOrNothing) {
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"%s logged in", "bob logged in", "bob"},
      {"%s logged in", "  bob\tlogged   in \t", "bob"},
      {"%s logged in", "bob logged in now", "no"},  // text left over
      {"%s %s", "a", "no"},
      {"%s %s", "a\nb", "no"},  // a newline is no white space
      {"%s-%s-%s", "a-b-c-d", "a|b|c-d"},
      {"%s %s", "a\xC2\xA0 \xC2\x85", "a\xC2\xA0|\xC2\x85"},  // nor is any byte of a longer character
      {"%t %s: %s*", "Mar  5 12:00:01 cron: job  done", "Mar 5 12:00:01|cron|job done"},
      {"%s* on %s* end", "x on y on z end", "x|y on z"},
      {"%s* x %s*", "a x ", "a|"},  // a star field at the end may be empty, the blank before it not
      {"%s* x %s*", "a x", "no"},
      {"%s+ x", "x x", "x"},
      {" %s", " a", "no"},  // leading white space is already skipped

      // A later end of a field is tried when what follows fails: at each occurrence of its constant,
      {"%s %s* x %s", "h a x b x c", "h|a x b|c"},
      {"%s %sx", "  h axbx", "h|axb"},  // from where the field began
      // but at the first variable only when nothing behind it was reached.
      {"%s* x %s", "a x b x c", "no"},
      {"%sx", "  axbx", "axb"},
      // The 101st failure ends it.
      {"%sx", "a" + repeated("x", 101), "a" + repeated("x", 100)},
      {"%sx", "a" + repeated("x", 102), "no"},
      {"%s*x", "a" + repeated("x", 102), "no"},

      // Without variables every component passes, and only the end of the message counts.
      {"abc def", "abc", ""},
      {"abc", "", ""},
      {"abc", "xyz", "no"},
      {"", "", ""},
  };
  for (const auto& [text, message, expected] : cases) {
    FormatSpec format("T");
    format.setFmtStr(text);
    for (const char* time : {"", " the second time"}) {
      EXPECT_EQ(expected, bound(format, message)) << text << " and: " << message << time;
    }
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

TEST_F(Bind, PrintedValues) {
  FormatSpec format("T");
  format.setFmtStr("%s");
  addSlot(format, "user", varMap, "$1");
  addSlot(format, "pc", constMap, "%s");
  addSlot(format, "other", printMap, "\"x\"");
  bound(format, "bob");
  const std::pair<const char*, const char*> cases[] = {
      {"\"%s/%s\",user,user", "bob/bob"},  {"\"%s/%s\",user", "bob/%s"},        // an argument is missing,
      {"\"%s/%s\",nosuch,user", "%s/bob"}, {"\"%s/%s\",other,user", "%s/bob"},  // unknown, or a PRINTF itself
      {"\"%s\",user,user", "bob"},         {"\"%%s 100% %d\",user", "%bob 100% %d"},
      {"\"%s%s\",pc,user", "%sbob"},       {"\"\"", ""},
  };
  for (const auto& [rule, expected] : cases) {
    MsgMapEntry* const entry = addSlot(format, "msg", printMap, rule);
    EXPECT_STREQ(expected, entry->svalue(&format).getString()) << rule;
  }
}

}  // namespace
}  // namespace quillon
