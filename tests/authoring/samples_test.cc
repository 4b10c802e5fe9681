#include "authoring/samples/Samples.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>

#include "authoring/check/CheckedFile.h"
#include "authoring/check/checks.h"
#include "authoring/samples/SampleRunner.h"
#include "authoring/samples/sample_findings.h"
#include "authoring/samples/test_report.h"
#include "foundation/visible.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace quillon {
namespace {

using namespace std::string_literals;

std::string dump(const Place& place) {
  std::string text = std::to_string(place.line) + ":" + std::to_string(place.column);
  if (place.endLine == place.line) return text + "+" + std::to_string(place.length);
  return text + "-" + std::to_string(place.endLine) + ":" + std::to_string(place.endColumn);
}

/// "B 1:13+3 'x y' $1 2:6+6 'x'; ! 3:5+6 this is no part...; " Samples come before faults.
std::string dump(const SampleList& list) {
  std::string text;
  for (const Sample& sample : list.samples) {
    if (sample.kind == Sample::Kind::kNotBound) text += "not ";
    text += (sample.kind == Sample::Kind::kUnmatched ? "-" : sample.block) + " " + dump(sample.place) + " '" +
            visible(sample.message) + "'";
    for (const Sample::Value& value : sample.values) {
      text += " " + value.name + " " + dump(value.place) + " '" + visible(value.text) + "'";
    }
    text += "; ";
  }
  for (const SampleFault& fault : list.faults) {
    text += "?@!"[static_cast<int>(fault.kind)] + dump(fault.place) + " " + fault.text + "; ";
  }
  return text;
}

struct Case {
  std::string text;
  const char* expected;
};

TEST(Samples, OfComments) {
  const Case cases[] = {
      // The three kinds, with values, in front of the block that they are of or with its name.
      {"//@ sample: a  b\n//@   $1 = a\n//@\tuser = b c\nFORMAT B\n%s %s*\nEND\n",
       "B 1:13+4 'a  b' $1 2:7+6 'a' user 3:5+10 'b c'; "},
      {"// prose\n\n  //@not: a = b\r\n//@ unmatched: 100%\n//@ sample C:D: x\nFORMAT B\nx\nEND\n",
       "not B 3:11+5 'a = b'; - 4:16+4 '100%'; C:D 5:17+1 'x'; "},
      {"FORMAT A\nx\nEND\n//@ sample: y\nFORMAT B\ny\nEND\n//@ not A: z\n", "B 4:13+1 'y'; not A 8:12+1 'z'; "},
      // What cannot stand there as it is.
      {R"(//@ sample: " a\x1b\xFf\n\t\\\"")"
       "\n//@ s = \"\"\nFORMAT B\nx\nEND\n",
       "B 1:13+20 ' a\\x1B\xff\\x0A\t\\\"' s 2:5+6 ''; "},
      {"//@ sample: C:\\x \xc3\xa9 \1\"\nFORMAT B\nx\nEND\n", "B 1:13+10 'C:\\x \xc3\xa9 \\x01\"'; "},
      {"//@ sample: \1a\0b\n//@ not: \1\nFORMAT B\nx\nEND\n"s,
       "not B 2:10+1 '\\x01'; ?1:15+1 a message ends at its first NUL byte; "},
      {"//@ sample: \"a\\zb\"\n//@ s = 1\n//@ sample: \"\\x4\"\n//@ sample: \"\\x00\"\nFORMAT B\nx\nEND\n",
       "?1:15+2 there is no such escape; ?3:14+3 there is no such escape; ?4:14+4 a message ends at its first NUL "
       "byte; "},
      {"//@ sample: \"GET /\" 200\n//@ sample: \"a\\\n//@ sample: \"\\\"\nFORMAT B\nx\nEND\n",
       "?1:20+4 something follows the closing quote; ?2:15+1 there is no such escape; ?3:13+3 the quote is not "
       "closed; "},
      // Slips, none of which is passed over.
      {"//@ smaple: x\n//@\n//@ sample:x\n//@ sample:\n//@ s = x\n//@ sample \nFORMAT B\nx\nEND\n",
       "?1:5+7 this is no part of a sample; ?2:1+3 this is no part of a sample; ?3:5+8 this is no part of a sample; "
       "?4:5+7 nothing follows; ?6:5+6 this is no part of a sample; "},
      {"//@ sample: x\n//@ s=x\n//@ s =\n//@ s = 1\n//@ s = 2\n//@ not: y\n//@ s = 3\nFORMAT B\nx\nEND\n",
       "B 1:13+1 'x' s 4:5+5 '1'; not B 6:10+1 'y'; ?2:5+3 this is no part of a sample; ?3:5+3 nothing follows; ?5:5+1 "
       "s is given a value twice; @7:5+1 only a line that its block binds has values; "},
      {"//@ s = 1\n//@ unmatched B: x\nFORMAT B\nx\n//@ sample: y\nEND\n//@ s = 1\n//@ not: z\n",
       "@1:5+1 a value stands below no sample; ?2:15+1 an unmatched line has no block; @5:5+7 a sample stands inside "
       "the block B; @7:5+1 a value stands below no sample; @8:5+4 no block follows this sample; "},
      {"//@ sample: x\nFORMAT B\nx\nEND\nFORMAT B\n//@ s = 1\nx\nEND\n",
       "B 1:13+1 'x'; @6:5+1 a value stands below no sample; "},
      // Prose, and what only looks like it.
      {"// sampled: x\n// @author me\n// not: x\n//== sample: x\n/* a sample: x\n//@ sample: x */\nFORMAT B\nx\nEND\n",
       ""},
      {"// @ not: x\n/* @ sample B: x */\n// sample: x\nFORMAT B\nx\nEND\n",
       "!1:1+11 this comment is prose, though it looks like a sample; !2:1+19 this comment is prose, though it looks "
       "like a sample; !3:1+12 this comment is prose, though it looks like a sample; "},
  };
  for (const Case& c : cases) {
    CollectedReports reports;
    FormatReader reader(reports, {.keepsPlaces = true});
    LogDriver driver;
    EXPECT_TRUE(reader.readText(c.text, "FILE", driver)) << c.text;
    EXPECT_EQ(c.expected, dump(samplesIn(reader.places()))) << c.text;
  }
}

TEST(Samples, OfAFileOfTheirOwn) {
  const Case cases[] = {
      {"// prose\n\nsample B: x \n  $1 = x\n//@ not B: \"\"\nunmatched: y",
       "B 3:11+1 'x' $1 4:3+6 'x'; not B 5:12+2 ''; - 6:12+1 'y'; "},
      {"sample: x\n$1 = y\nFORMAT B\n", "@1:1+7 this sample names no block; ?3:1+6 this is no part of a sample; "},
      // Ended by NUL: as they stand.
      {"sample B:  a\n\"b\" \0\n$1 = \n\0// prose\0\nunmatched: \0not B: c"s,
       "B 1:11-2:5 ' a\\x0A\"b\" ' $1 3:1-4:1 '\\x0A'; - 5:12+0 ''; not B 5:20+1 'c'; "},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, dump(samplesInText(c.text))) << c.text;
}

/// What becomes of the only sample of `text`, whose blocks are read with it.
std::string run(const std::string& text, bool fromEventLog = false) {
  CollectedReports reports;
  FormatReader reader(reports, {.keepsPlaces = true});
  LogDriver driver;
  EXPECT_TRUE(reader.readText(text, "FILE", driver)) << text;
  const SampleList list = samplesIn(reader.places());
  EXPECT_EQ(1u, list.samples.size()) << dump(list);
  SampleRunner runner(driver, fromEventLog);
  const SampleResult result = runner.run(list.samples.front());
  static constexpr const char* kVerdicts[] = {"passed", "no such block", "not bound", "wrongly bound", "other values"};
  std::string outcome = kVerdicts[static_cast<int>(result.verdict)];
  const auto name = [](const FormatSpec* format) { return format ? std::string(format->getName().view()) : "none"; };
  outcome += " " + name(result.bound);
  if (result.dependsOnOrder()) outcome += "/" + name(result.firstInFile);
  if (result.why && result.why->binds) outcome += " would";
  for (const SampleResult::Difference& difference : result.differences) {
    outcome +=
        " " + list.samples.front().values[difference.value].name + "=" + (difference.exists ? difference.actual : "?");
  }
  return outcome;
}

TEST(SampleRunner, SaysWhatBecomesOfAMessage) {
  const std::string blocks =
      "FORMAT Any\n%s %s*\nuser $1\nEND\n"
      "FORMAT In FOLLOWS Any\n%s logged in from %s\nat $2\n-by DEFAULT\nmsg PRINTF(\"%s at %s (%s)\",user,at,by)\n"
      "END\n"
      "FORMAT Two\n%s%n%s\nEND\n";
  const std::string in = "In: eve logged in from here\n//@ ";
  const Case cases[] = {
      {"sample In: eve logged in from here", "passed In/Any"},
      {"sample " + in + "user = eve\n//@ $2 = here\n//@ by = default\n//@ msg = eve at here (default)",
       "passed In/Any"},
      {"sample " + in + "user = adam\n//@ at = here\n//@ $3 = x\n//@ who = eve\n//@ $1 = Eve",
       "other values In/Any user=eve $3=? who=? $1=eve"},
      {"sample Any: eve logged in from here", "not bound In/Any would"},
      {"sample In: eve logged in from", "not bound Any"},
      {"sample In: eve", "not bound none"},
      {"not " + in, "wrongly bound In/Any"},
      {"not Any: eve logged in from here", "passed In/Any"},
      {"not Any: eve", "passed none"},
      {"unmatched: eve", "passed none"},
      {"unmatched: eve logged out", "wrongly bound Any"},
      {"sample Two: \"a\\nb\"", "passed Two"},
      {"sample Tow: a", "no such block none"},
  };
  for (const Case& c : cases) {
    std::string sample = "//@ " + c.text;
    if (sample.ends_with("//@ ")) sample.resize(sample.size() - 5);
    EXPECT_EQ(c.expected, run(blocks + sample + "\n")) << sample;
  }
  EXPECT_EQ("passed A", run("//@ sample: \"a \\nb\"\nFORMAT A\n%s b\nEND\n", true));  // a newline is white space
  // Of two blocks of one name, either will do.
  EXPECT_EQ("passed A/A", run("//@ sample: x y\nFORMAT A\n%s*\nEND\nFORMAT A\nx %s\nEND\n"));
}

/// The findings of the samples of `text` and of `beside`, one a line, with their notes and hints.
std::string findings(const std::string& text, const std::string& beside = {}) {
  CollectedReports reports;
  FormatReader reader(reports, {.keepsPlaces = true});
  LogDriver driver;
  EXPECT_TRUE(reader.readText(text, "FILE", driver)) << text;
  std::string found;
  const SampledFormats formats{driver, reader.places(), "FILE"};
  for (const SampleOutcome& outcome :
       runSamples(formats, samplesIn(reader.places()), samplesInText(beside), "BESIDE")) {
    for (const Finding& finding : outcome.findings) {
      found += finding.file + " " + dump(finding.place) + " " + codeText(finding.code) + " " + finding.text;
      for (const Note& note : finding.notes) found += " | " + (note.place ? dump(note.place) + " " : "") + note.text;
      found += (finding.hint.empty() ? "" : " -> " + finding.hint) + "\n";
    }
  }
  return found;
}

TEST(SampleFindings, PointToWhatIsAtFault) {
  const std::string blocks =
      "FORMAT Any\n%s %s*\nuser $1\nEND\n"
      "FORMAT Login FOLLOWS Any\n%s logged in\nEND\n"
      "FORMAT Door\n%s opened\nwho $1\nEND\n";
  struct {
    std::string samples;
    const char* expected;
  } const cases[] = {
      {"//@ sample Login: eve logged out\n",
       "FILE 12:19+14 Q0705 Login does not bind this line: Any does | 5:8+5 the block that should bind it | 1:8+3 the "
       "block that binds it | 12:30+3 stopped at byte 12: expected \"in\", found \"out\"\n"},
      {"//@ sample Any: eve logged in\n",
       "FILE 12:17+13 Q0705 Any does not bind this line: Login does | 1:8+3 the block that should bind it | 5:8+5 the "
       "block that binds it -> Any describes the line, too, but later blocks are tried first: move it behind Login\n"},
      {"//@ sample Login: eve logged in\n//@ user = adam\n//@ $1 = Eve\n//@ usr = eve\n//@ $2 = in\n",
       "FILE 13:5+11 Q0707 user is \"eve\", not \"adam\" | 3:6+2 where it comes from\n"
       "FILE 14:5+8 Q0707 $1 is \"eve\", not \"Eve\" | 6:1+2 where it comes from\n"
       "FILE 15:5+9 Q0707 Login has no slot usr -> there is user\nFILE 16:5+7 Q0707 Login has no $2\n"},
      {"//@ unmatched: eve\n//@ unmatched: eve sat\n//@ not Any: eve sat\n//@ not Dor: eve\n",
       "FILE 13:16+7 Q0706 Any binds this line, which no block should | 1:8+3 the block that binds it\n"
       "FILE 14:14+7 Q0706 Any binds this line, which it should not | 1:8+3 the block that binds it\n"
       "FILE 15:9+3 Q0704 there is no block Dor -> there is Door\n"},
      // Login is a kind of Any; Door is not, unless somebody says so.
      {"//@ sample Login: eve logged in\n", ""},
      {"//@ sample Door: door opened\n",
       "FILE 12:18+11 Q0708 Any binds this line, too, and stands before Door | 1:8+3 takes it where the first block is "
       "tried first | 8:8+4 takes it where the last block is tried first -> if that is meant, say so before Any: a "
       "sample \"not:\" with the same line\n"},
      {"//@ sample Door: door opened\n//@ not Any: door opened\n", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, findings(blocks + c.samples)) << c.samples;
  EXPECT_EQ(
      "BESIDE 1:15+3 Q0705 Login does not bind this line: no block does | the block that should bind it: Login, "
      "FILE:5 | stopped at byte 4: expected white space, found nothing\n",
      findings(blocks, "sample Login: eve\n"));
}

/// What --explain shows: each example has the code that it is for, and written well it has none.
TEST(SampleCodes, ExamplesAreTrue) {
  const auto codes = [](const char* text) {
    const CheckedFile file("FILE", text);
    EXPECT_TRUE(file.compiles()) << text;
    const SampleList list = samplesIn(file.places());
    std::set<FindingCode> found;
    for (const Finding& finding : check(file)) found.insert(finding.code);
    for (const Finding& finding : sampleFaults(list, "FILE")) found.insert(finding.code);
    for (const SampleOutcome& outcome : runSamples({file.driver(), file.places(), "FILE"}, list, {}, "")) {
      for (const Finding& finding : outcome.findings) found.insert(finding.code);
    }
    return found;
  };
  int entries = 0;
  for (const CodeEntry& entry : allCodes()) {
    if (entry.code < FindingCode::kMalformedSample) continue;
    ++entries;
    EXPECT_EQ(std::set{entry.code}, codes(entry.before)) << entry.name;
    EXPECT_EQ(std::set<FindingCode>(), codes(entry.after)) << entry.name;
  }
  EXPECT_EQ(8, entries);
}

/// What other programs read stays readable whatever a log holds.
TEST(TestReport, SurvivesAnyText) {
  Sample sample;
  sample.block = "B";
  sample.message = "a\\ #1 \"<&\t\x01\xff\xEF\xBF\xBF]]>\n";
  Finding finding(FindingCode::kSampleNotBound, "f.fmt", {.line = 2, .column = 3}, "B: \"\x1b\n\\");
  finding.notes.push_back({{.line = 4, .column = 5}, "<here>"});
  finding.hint = "do\nthis";
  sample.place.line = 2;
  const Finding warning(FindingCode::kSampleOrder, "g.fmt", {.line = 1, .column = 1}, "it is");
  const TestedFile files[] = {{"f.fmt", {}, {{sample, "f.fmt", {}, {finding}}}}, {"g.fmt", {warning}, {}}};
  EXPECT_EQ(
      "TAP version 13\n1..3\nok 1 - f.fmt\n"
      "not ok 2 - f.fmt:2: B binds a\\\\ \\#1 \"<&\t\\\\x01\xEF\xBF\xBD\xEF\xBF\xBF]]>\\\\x0A\n"
      "  ---\n  findings:\n    - code: Q0705\n      at: \"f.fmt:2:3\"\n"
      "      message: \"B: \\\"\\\\x1B\\\\x0A\\\\\"\n"
      "      notes:\n        - text: \"<here>\"\n          at: \"f.fmt:4:5\"\n      hint: \"do\\\\x0Athis\"\n  ...\nok "
      "3 - g.fmt\n"
      "  ---\n  findings:\n    - code: Q0708\n      at: \"g.fmt:1:1\"\n      message: \"it is\"\n  ...\n",
      tapText(files));
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites tests=\"3\" failures=\"1\">\n"
      "  <testsuite name=\"f.fmt\" tests=\"2\" failures=\"1\">\n"
      "    <testcase classname=\"f.fmt\" name=\"f.fmt\"/>\n"
      "    <testcase classname=\"f.fmt\" name=\"f.fmt:2: B binds a\\ #1 "
      "&quot;&lt;&amp;&#9;\\x01\xEF\xBF\xBD\xEF\xBF\xBD"
      "]]&gt;\\x0A\">\n"
      "      <failure message=\"B: &quot;\\x1B\\x0A\\\" type=\"Q0705\">f.fmt:2:3: B: &quot;\\x1B\n\\ [Q0705]\n"
      "  note: f.fmt:4:5: &lt;here&gt;\n  hint: do\nthis\n</failure>\n    </testcase>\n  </testsuite>\n"
      "  <testsuite name=\"g.fmt\" tests=\"1\" failures=\"0\">\n    <testcase classname=\"g.fmt\" name=\"g.fmt\">\n"
      "      <system-out>g.fmt:1:1: it is [Q0708]\n</system-out>\n    </testcase>\n"
      "  </testsuite>\n</testsuites>\n",
      junitText(files));
}

}  // namespace
}  // namespace quillon
