// What is reported about a format file, as values and as text, and where that is said to stand.

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

using namespace std::string_literals;

/// "line:column+length", or "line:column-line:column" when it goes over the end of a line; "nowhere".
std::string dump(const Place& place) {
  if (!place) return "nowhere";
  const std::string start = std::to_string(place.line) + ":" + std::to_string(place.column);
  if (place.line != place.endLine) {
    return start + "-" + std::to_string(place.endLine) + ":" + std::to_string(place.endColumn);
  }
  EXPECT_EQ(place.column + place.length, place.endColumn);
  return start + "+" + std::to_string(place.length);
}

/// "undefined-parent 3:7+4 Z is not defined; ", warnings in brackets.
std::string dump(const std::vector<Report>& reports) {
  std::string text;
  for (const Report& report : reports) {
    const std::string one = reportName(report.code) + (" " + dump(report.place)) + " " + report.text;
    text += (report.severity == Severity::kError ? one : "[" + one + "]") + "; ";
    EXPECT_EQ("FILE", report.file);
  }
  return text;
}

/// What is said about a format file of this text when it is read and, if that succeeds, ordered and compiled.
std::string reports(std::string_view text, FormatReader::Options options = {.keepsPlaces = true}) {
  CollectedReports collected;
  LogDriver driver;
  FormatReader reader(collected, options);
  if (!reader.readText(text, "FILE", driver)) return "failed: " + dump(collected.reports);
  PlacedReports placed(reader.places(), "FILE", collected);
  const ReportScope scope(&placed);
  driver.orderFmts();
  std::FILE* const none = std::fopen("/dev/null", "w");
  for (FormatSpec* format : driver.getFormats()) {
    if (!format->writeCds(none, 0)) break;
  }
  std::fclose(none);
  return dump(collected.reports);
}

std::string repeated(int n, const std::string& text) {
  std::string all;
  for (; n > 0; --n) all += text;
  return all;
}

struct Case {
  std::string text;
  std::string expected;
};

const Case kReports[] = {
    {"FORMAT A\n%s\nuser $1\nEND\n", ""},
    {"FORMAT A FOLLOWS Nobody\nx\nEND\n", "failed: undefined-parent 1:18+6 Nobody is not defined; "},
    {"FORMAT A\n%s\nuser $2\nEND\n",  // the printed text says line 4
     "failed: variable-out-of-range 3:6+2 $2 must be between 1 and 1; "},
    {"FORMAT A\n" + repeated(65, "%s") + "\nEND\n",
     "failed: too-many-variables 2:129+2 too many % variables in format; "},
    {"FORMAT A\nx\na " + std::string(256, 'y') + "\nEND\n",
     "failed: token-too-long 3:3+256 token too long " + std::string(100, 'y') + "; "},
    {"FORMAT A\nx\na \"" + std::string(200, 'y') + "\n" + std::string(60, 'y') + "\"\nEND\n",
     "failed: token-too-long 3:3-4:62 token too long \"" + std::string(99, 'y') + "; "},
    {"FORMAT A\nx\nEND\n  /* a\n/* b",
     "failed: unclosed-comment 4:3+2 the block comment that opens at line 4 is never closed; "},
    {"FORMAT A\n%s %s\na $1\nb $2\nEND\nFORMAT B FOLLOWS A\n%s\nEND\n",
     "[inherited-map-dropped 6:18+1 in B dropping inherited map `b $2']; "},
    {"FORMAT A\nx %s %5s\na $2\nb $2\nEND\n",
     "[variable-not-mapped 2:3+2 A does not map $1 in format string]; "
     "[variable-mapped-twice 2:6+3 in A $2 is used by more than one map]; "},
    {"FORMAT A\nx\nm PRINTF(\"%s\")\nEND\n",
     "print-argument-count 3:10+4 PRINTF of m has another number of arguments than of %s; "},
    {"FORMAT A\nx\nm PRINTF(\"%s,%s\", n , who)\nn c\nEND\n",
     "print-unknown-slot 3:23+3 PRINTF of m has no slot who; "},
    {"FORMAT A\nx\nm PRINTF(\"%s\", n)\nn PRINTF(\"%s\",m)\nEND\n",
     "print-circle 4:15+1 PRINTF of n refers to itself; "},

    // A syntax error is where the token is that does not fit: a newline, at the end of its line,
    {"FORMAT A\nx\n\nEND\n", "failed: syntax-error 3:1-4:1 syntax error; "},
    // the end of the file,
    {"FORMAT A\nx\nuser $1", "failed: syntax-error 3:8+0 syntax error; "},
    {"\"", "failed: syntax-error 1:1+1 syntax error; "},
    {"FORMAT A\nx\nuser END\n", "failed: syntax-error 3:6+3 syntax error; "},
    // behind comments and quoted texts of several lines,
    {"// c\n/* a\nb */ END\n", "failed: syntax-error 3:6+3 syntax error; "},
    {"FORMAT A\nx\na \"b\nc\" (\nEND\n", "failed: syntax-error 4:4+1 syntax error; "},
    // behind bytes that the scanner reads as two,
    {"/* \1\0\" \n"s, "failed: syntax-error 1:6+1 syntax error; "},
    {"FORMAT a\0b\1 )\n"s, "failed: syntax-error 1:13+1 syntax error; "},
    {"/* " + std::string(100001, '\1') + "*/ END\n", "failed: syntax-error 1:100008+3 syntax error; "},
    // and far behind the scanner's first buffer.
    {"/*" + std::string(100000, ' ') + "*/ END\n", "failed: syntax-error 1:100006+3 syntax error; "},
    {repeated(20000, "FORMAT A\nx\nEND\n") + "FORMAT B FOLLOWS Nobody",
     "failed: undefined-parent 60001:18+6 Nobody is not defined; syntax-error 60001:24+0 syntax error; "},
};

using Reports = LogfileTest;

TEST_F(Reports, StandWhereTheirCauseIs) {
  for (const Case& c : kReports) EXPECT_EQ(c.expected, reports(c.text)) << c.text.substr(0, 300);
}

TEST_F(Reports, OfAFileAsAWhole) {
  CollectedReports collected;
  FormatReader reader(collected);
  LogDriver driver;
  EXPECT_FALSE(reader.read("/nonexistent", driver) || reader.read("/", driver));
  ASSERT_EQ(2u, collected.reports.size());
  EXPECT_EQ("cannot open /nonexistent: No such file or directory", collected.reports[0].text);
  EXPECT_EQ("cannot read /: Is a directory", collected.reports[1].text);
  EXPECT_EQ("/nonexistent", collected.reports[0].file);
}

TEST_F(Reports, ASyntaxErrorNeedNotEndTheReading) {
  EXPECT_EQ(
      "failed: syntax-error 3:1-4:1 syntax error; variable-out-of-range 8:3+2 $2 must be between 1 and 1; "
      "syntax-error 12:10+1 syntax error; undefined-parent 13:18+1 Z is not defined; ",
      reports("FORMAT A\nx\n\nEND\n/* FORMAT Z\n*/ FORMAT B\n%s\nu $2\nEND\n"
              "FORMAT Two\nx\nFORMAT C (\nFORMAT D FOLLOWS Z\nx\nEND\n",
              {.recovers = true}));
}

/// Writing a class definition ends at its first fault; a tool wants them all, and each once.
TEST_F(Reports, OfAllPrintfsOfABlock) {
  CollectedReports collected;
  FormatReader reader(collected);
  LogDriver driver;
  ASSERT_TRUE(
      reader.readText("FORMAT A\n%s\na $1\nb PRINTF(\"%s %s\", a)\nc PRINTF(\"%s %s\", b, d)\nd PRINTF(\"%s\", c)\n"
                      "e PRINTF(\"%s %s\", x, e)\n-f PRINTF(\"%s\", y)\nEND\n",
                      "FILE", driver));
  std::string text;
  for (const PrintFault& fault : printFaults(*driver.getFormatSpec("A"))) {
    text += std::string(fault.entry->getName().view()) + " " + std::to_string(fault.part) + " " +
            reportName(fault.code) + "; ";
  }
  // -f is not written, and no other one names it.
  EXPECT_EQ("b 0 print-argument-count; d 1 print-circle; e 1 print-unknown-slot; e 2 print-circle; ", text);
}

TEST_F(Reports, TokensHavePlaces) {
  CollectedReports collected;
  FormatReader reader(collected, {.keepsPlaces = true, .recovers = true});
  LogDriver driver;
  EXPECT_FALSE(reader.readText("FORMAT A\nx \"\nb ( c\nd\nFORMAT B\n", "FILE", driver));
  std::string text;
  for (const FormatPlaces::Token& token : reader.places().tokens()) {
    text += std::to_string(token.kind) + " " + dump(token.place) + "; ";
  }
  // The end comes twice: it is an error itself, and what goes on behind that finds it again.
  EXPECT_EQ(
      "263 1:1+6; 257 1:8+1; 262 1:9-2:1; 257 2:1+1; 259 2:2+1; 257 2:3+1; 262 2:4-3:1; 257 3:1+1; 40 3:3+1; "
      "263 5:1+6; 257 5:8+1; 262 5:9-6:1; 0 6:1+0; 0 6:1+0; ",
      text);
}

/// What `work` writes to standard error.
template <class Work>
std::string printedBy(const Work& work) {
  const ScratchFile file;
  const int saved = dup(STDERR_FILENO);
  dup2(fileno(std::unique_ptr<std::FILE, int (*)(std::FILE*)>(std::fopen(file.path(), "w"), std::fclose).get()),
       STDERR_FILENO);
  work();
  dup2(saved, STDERR_FILENO);
  close(saved);
  return file.text();
}

/// The hooks and the values tell the same.
TEST_F(Reports, ArePrintedAsEver) {
  std::vector<std::string> texts;
  for (const Case& c : kReports) texts.push_back(c.text);
  expectFromChild("", [&] {
    reporting_always = comments_must_close = true;
    std::string differences;
    for (const std::string& text : texts) {
      const ScratchFile file(text);
      const std::string expected = printedBy([&] { const LogDriver established(file.path(), nullptr, 0); });
      const std::string printed = printedBy([&] {
        PrintedReports sink;
        LogDriver driver;
        static_cast<void>(FormatReader(sink).read(file.path(), driver));
      });
      if (printed != expected) differences += expected + "|" + printed;
    }
    return differences;
  });
}

TEST_F(Reports, AFailedReadingFailsNoOther) {
  CollectedReports collected;
  FormatReader reader(collected);
  LogDriver driver;
  EXPECT_FALSE(reader.readText("FORMAT A FOLLOWS Z\nx\n/*", "FILE", driver));
  EXPECT_EQ(3u, collected.reports.size());
  EXPECT_TRUE(reader.readText("FORMAT B FOLLOWS A\nx\nEND\n", "FILE", driver));
  EXPECT_EQ(3u, collected.reports.size());
  int formats = 0;
  for ([[maybe_unused]] FormatSpec* format : driver.getFormats()) ++formats;
  EXPECT_EQ(2, formats);
}

TEST_F(Reports, PlacesOfAllParts) {
  CollectedReports collected;
  FormatReader reader(collected, {.keepsPlaces = true});
  LogDriver driver;
  ASSERT_TRUE(
      reader.readText("// s 1\nFORMAT A /* x\ny */\n%s \t b\n-u $1 \nm PRINTF( \"%s\",u)\nu LABEL\nEND\n"
                      "FORMAT B FOLLOWS A\n%s\nEND\n",
                      "FILE", driver));
  std::string text;
  for (const FormatPlaces::Block& block : reader.places().blocks()) {
    text += std::string(block.format->getName().view()) + " " + dump(block.name);
    if (block.parent) text += "<" + block.parentName + " " + dump(block.parent);
    for (const Place& component : block.components) text += " " + dump(component);
    text += " (";
    for (const FormatPlaces::Slot& slot : block.slots) {
      text += (slot.entry ? "" : "!") + slot.name + " " + dump(slot.namePlace) + " " + dump(slot.value);
      for (const Place& argument : slot.arguments) text += "," + dump(argument);
      text += "; ";
    }
    text += ") " + dump(block.end) + "\n";
  }
  for (const FormatPlaces::Comment& comment : reader.places().comments()) {
    text += dump(comment.place) + " " + comment.text + "\n";
  }
  EXPECT_EQ(
      "A 2:8+1 4:1+2 4:3+3 4:6+1 (!-u 5:1+2 5:4+2; m 6:1+1 6:11+4,6:16+1; u 7:1+1 7:3+5; ) 8:1+3\n"
      "B 9:8+1<A 9:18+1 10:1+2 () 11:1+3\n"
      "1:1+6 // s 1\n2:10-3:5 /* x\ny */\n",
      text);
  FormatSpec* const child = driver.getFormatSpec("B");
  const FormatPlaces& places = reader.places();
  EXPECT_EQ("7:1+1", dump(places.of({.entry = child->find("u")})));  // inherited
  EXPECT_EQ("10:1+2", dump(places.of({.format = child, .variable = 1})));
}

}  // namespace
}  // namespace quillon
