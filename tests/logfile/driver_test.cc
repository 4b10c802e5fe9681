// Reading, changing and writing a whole set of formats.

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <string>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "src/adapters/logfile/common/SysLogUtils.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

constexpr const char* kBlocks =
    "FORMAT Base\n%t %s %s*\nhost $2\nmsg $3\nEND\n"
    "FORMAT Login FOLLOWS Base\n%t %s login: %s\nuser $3\nmsg \"x\"\nEND\n"
    "FORMAT Plain\nstart\nEND\n";

/// "Base(host msg) Login<Base(host msg user)": formats, whom they follow, their slots.
std::string dump(const LogDriver& driver) {
  std::string text;
  for (FormatSpec* format : driver.getFormats()) {
    text += (text.empty() ? "" : " ") + std::string(format->getName().view());
    if (format->getFollows()) text += "<" + std::string(format->getFollows()->getName().view());
    text += "(";
    for (MsgMapEntry* e : format->getMaps())
      text += std::string(text.back() == '(' ? "" : " ") + e->getName().getString();
    text += ")";
  }
  return text;
}

class Driver : public LogfileTest {
 protected:
  /// Every reference is held by somebody that can be seen, and inherited entries belong to an ancestor.
  static void checkModel(const LogDriver& driver) {
    std::map<const FormatSpec*, int> formats;
    std::map<const MsgMapEntry*, int> entries;
    for (FormatSpec* format : driver.getFormats()) {
      ++formats[format];
      if (format->getFollows()) ++formats[format->getFollows()];
      for (MsgMapEntry* e : format->getMaps()) {
        ++entries[e];
        const FormatSpec* owner = format;
        while (owner && owner != e->getOwner()) owner = owner->getFollows();
        EXPECT_NE(nullptr, owner) << e->getName().getString();
      }
    }
    for (FormatSpec* format : driver.getFormats()) {
      EXPECT_EQ(formats[format], format->refcnt()) << format->getName().getString();
      for (MsgMapEntry* e : format->getMaps()) EXPECT_EQ(entries[e], e->refcnt()) << e->getName().getString();
    }
  }

  const ScratchFile file{kBlocks};
  CapturedReports reports;  // behind the file, so that what a driver reports on its way out is seen too
};

/// For what leaves traces in the process.
class DriverInChild : public LogfileTest {
 protected:
  const ScratchFile file{kBlocks};
};

TEST_F(Driver, ReadsBlocksInOrder) {
  LogDriver driver(file.path(), nullptr, 1);
  EXPECT_EQ("Base(host msg) Login<Base(host msg user) Plain()", dump(driver));
  EXPECT_EQ("", reports.take());
  checkModel(driver);
  driver.reloadFmts(ScratchFile("FORMAT One\n%s\nEND\n").path(), nullptr, 1);
  EXPECT_EQ("One()", dump(driver));
  checkModel(driver);
}

TEST_F(Driver, FindsTheFirstOfAName) {
  const ScratchFile twice("FORMAT A\na\nEND\nFORMAT B\nb\nEND\nFORMAT A\n%s\nEND\n");
  LogDriver driver(twice.path(), nullptr, 1);
  EXPECT_EQ(0, driver.getFormatSpec("A")->numvars());
  driver.removeFormatSpec("A");
  EXPECT_EQ(1, driver.getFormatSpec("A")->numvars());
  driver.removeFormatSpec("A");
  driver.removeFormatSpec("A");
  EXPECT_TRUE(!driver.getFormatSpec("A") && !driver.getFormatSpec("") && !driver.getFormatSpec(nullptr));
  EXPECT_EQ("B()", dump(driver));
  const FormatSpec* const added = new FormatSpec("A");
  driver.addFormatSpec(added);
  EXPECT_STREQ("A", driver.getFormatSpec("A")->getName().getString());
}

TEST_F(Driver, EditorReplacesByNameOrAddsInFront) {
  LogDriver driver(file.path(), nullptr, 1);
  FormatSpec* const old = driver.getFormatSpec("Login");
  driver.editorAdd(old);
  EXPECT_EQ(1, old->refcnt());

  auto* const changed = new FormatSpec("Login");
  changed->setFmtStr("%s");
  addSlot(*changed, "first", varMap, "$1");
  MapSpec copies("copies");
  copies.copySlots(old);
  for (MsgMapEntry* e : copies.getMaps()) {
    if (e->getOwner() == old) changed->addSlot(e);
  }
  copies.clear();
  driver.editorAdd(changed);  // its place and parent; `host $2` is beyond its variables
  EXPECT_EQ("Base(host msg) Login<Base(first msg user) Plain()", dump(driver));
  EXPECT_EQ("in Login dropping inherited map `host $2'\n", reports.take());

  const FormatSpec* const added = new FormatSpec("New");
  driver.editorAdd(added);
  EXPECT_EQ("New() Base(host msg) Login<Base(first msg user) Plain()", dump(driver));
  checkModel(driver);
  driver.removeFormatSpec("Base");  // its follower still holds it
  EXPECT_EQ("New() Login<Base(first msg user) Plain()", dump(driver));
  EXPECT_EQ(1, changed->getFollows()->refcnt());
}

TEST_F(Driver, MatchingOrderIsTheReverse) {
  LogDriver driver(file.path(), nullptr, 1);
  driver.orderFmts();
  EXPECT_EQ("Plain() Login<Base(host msg user) Base(host msg)", dump(driver));
  EXPECT_EQ("Login does not map $1 in format string\nBase does not map $1 in format string\n", reports.take());
  checkModel(driver);
  const ScratchFile cds;
  EXPECT_EQ(1, driver.write_cds(cds.path()));
  EXPECT_EQ(
      0u, cds.text().find("CLASS Plain\n  SELECT\n    1: ATTR(=,\"_event_id\"), VALUE(=,\"0\");\nEND\nCLASS Login\n"));
}

TEST_F(Driver, WhatCannotBeWrittenIsTold) {
  LogDriver driver(file.path(), "/nonexistent/unmatched", 1);
  EXPECT_EQ("cannot open file `/nonexistent/unmatched'\n\n", reports.take());
  EXPECT_EQ(nullptr, driver.getUnmatched());
  EXPECT_FALSE(driver.write_cds("/nonexistent/cds") || driver.write_fmt("/nonexistent/fmt") ||
               driver.write_cds("/dev/full"));
  cefcn = nullptr;
  ptfcn = nullptr;
  EXPECT_EQ("", dump(LogDriver(file.path(), 1)));  // two arguments only check the file
  EXPECT_TRUE(cefcn == parse_error && cwfcn == parse_warning && pefcn == ZORAD_Error && ptfcn == ZORAD_Error);
}

[[gnu::format(printf, 5, 6)]] int returnsSeven(int, int, const char*, int, const char*, ...) { return 7; }

TEST_F(Driver, WhatAHookReturnsIsNobodysBusiness) {
  cefcn = returnsSeven;
  EXPECT_EQ(0, eConfig_yyerror("x"));
}

TEST_F(Driver, BlocksAreWrittenBack) {
  LogDriver driver(file.path(), nullptr, 1);
  FormatSpec* const child = driver.getFormatSpec("Login");
  const auto block = [&] {
    testing::internal::CaptureStdout();
    child->genFmt(stdout, &driver, 0);
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_EQ("FORMAT Login FOLLOWS Base\n%t %s login: %s\nmsg \"x\"\nuser $3\nEND\n\n", block());
  driver.removeFormatSpec("Base");  // now it must say all itself
  EXPECT_EQ("FORMAT Login\n%t %s login: %s\nhost $2\nmsg \"x\"\nuser $3\nEND\n\n", block());
}

TEST_F(Driver, HostsHaveAddresses) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_STREQ("192.0.2.7", SysLogUtils::IPaddr("192.0.2.7"));
    EXPECT_STREQ("???", SysLogUtils::IPaddr("no such host"));
    EXPECT_STREQ("???", SysLogUtils::IPaddr(nullptr));
  }
}

/// A random format file. Leaves out only what cannot survive: pieces that a comment alone kept apart.
std::string randomBlocks(std::mt19937& random) {
  const auto below = [&random](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  const char* const pieces[] = {"%s",  "%7s",  "%s*", "%12s+", "%t", "%n", " ",
                                " \t", "word", "(",   ",",     "%",  "\"", "x/*y"};
  const char* const rules[] = {"word", "\"a \\\" b\"", "DEFAULT", "LABEL", "FILENAME", "PRINTF(\"%s+%s\", k, k)", "$x"};
  std::string text;
  for (int block = 0; block < 6; ++block) {
    text += "FORMAT F" + std::to_string(block);
    if (block > 0 && below(2)) text += " FOLLOWS F" + std::to_string(below(block));
    text += "\n%s";
    int variables = 1;
    for (int i = below(12); i > 0; --i) {
      const std::string piece = pieces[below(static_cast<int>(std::size(pieces)))];
      variables += piece.size() > 1 && piece[0] == '%' && piece[1] != 'n';
      text += piece;
    }
    text += "\nk constant\n";
    for (int i = below(3) * below(15); i > 0; --i) {
      text += (below(5) ? "s" : "-s") + std::to_string(below(30)) + " ";
      text += below(2) ? "$" + std::to_string(1 + below(variables)) : rules[below(static_cast<int>(std::size(rules)))];
      text += "\n";
    }
    text += "END\n";
  }
  return text;
}

TEST_F(Driver, WhatItWritesReadsBackTheSame) {
  std::mt19937 random(11);
  for (int i = 0; i < 300; ++i) {
    const std::string blocks = randomBlocks(random);
    const ScratchFile source(blocks), again, first, second, third;
    LogDriver original(source.path(), nullptr, 1);
    checkModel(original);
    ASSERT_TRUE(original.write_cds(first.path()) && original.write_fmt(again.path()));
    LogDriver reread(again.path(), nullptr, 1);
    checkModel(reread);
    ASSERT_TRUE(reread.write_cds(second.path()) && reread.write_fmt(third.path()));
    ASSERT_EQ(first.text(), second.text()) << blocks;
    ASSERT_EQ(again.text(), third.text()) << blocks;
  }
}

TEST_F(DriverInChild, BindTriesFormatsAndKeepsWhatNoneMatches) {
  expectFromChild("One 2 a; Two 1 a|b; - -1; Two 1 c|d; | no match at all\nno match\n", [] {
    const ScratchFile formats("FORMAT One\n%s\nEND\nFORMAT Two\n%s %s\nEND\nFORMAT Three\n%s %s %s\nEND\n");
    const ScratchFile unmatched;
    LogDriver driver(formats.path(), unmatched.path(), 1);
    std::string result;
    const auto bind = [&](const char* message) {
      int index = 7;
      FormatSpec* const format = driver.bind(message, index);
      result += std::string(format ? format->getName().getString() : "-") + " " + std::to_string(index);
      result += format ? " " + values(*format, true) + "; " : "; ";
    };
    bind("a");
    bind("a b");
    driver.removeFormatSpec("Three");
    driver.addFormatSpec(new FormatSpec("Never"));
    bind("no match at all");
    driver.removeFormatSpec("Never");  // the number of formats at the first bind goes on to count
    bind("c d");
    int index = 0;
    driver.reloadFmts(ScratchFile("").path(), unmatched.path(), 1);
    driver.bind("no match\n", index);
    return result + "| " + unmatched.text();
  });
}

TEST_F(DriverInChild, FailedReads) {
  const ScratchFile broken("FORMAT A\n%s\nx $1\nEND\nFORMAT B FOLLOWS Z\n%s\nEND\nFORMAT C\n\nEND\n");
  const std::string messages =
      "around Z: Z is not defined\n\nparsing error at line 5 of file: " + std::string(broken.path()) +
      "\naround \n: syntax error\n\nparsing error at line 10 of file: " + broken.path() +
      "\nw 1\nparsing warning at line 7 of file: \nw\nparsing warning in file: f\n";
  expectFromChild(messages + "A(x) B() C()|Base(host msg) Login<Base(host msg user) Plain() 1", [&] {
    reporting_always = true;
    const LogDriver kept(broken.path(), nullptr, 0);
    LogDriver fine(file.path(), nullptr, 0);  // has no fault, but the reader remembers the other one's
    std::string result = dump(kept) + "|" + dump(fine);
    result += " " + std::to_string(ReadFmt(file.path(), &fine));
    parsing = "f";
    linenum = 7;
    parse_warning(kWithPosition, kReaderLevel, "", 0, "w %d", 1);
    parse_warning(0, kReaderLevel, "", 0, "w");
    return result;
  });
}

}  // namespace
}  // namespace quillon
