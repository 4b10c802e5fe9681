// The engine says what the plain bind says: the same format, the same event id, the same values, for every message.
// Here in the sizes that every build can afford; scripts/soak goes on from there.

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/logfile/model.h"
#include "tests/match/support/comparison.h"
#include "tests/match/support/log_lines.h"
#include "tests/match/support/scaled_set.h"
#include "tests/match/support/trials.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr std::size_t kShare = 1;
constexpr std::size_t kCharacters = 4;
#else  // slow builds, which are there for faults of other kinds
constexpr std::size_t kShare = 10;
constexpr std::size_t kCharacters = 3;
#endif

/// Nothing differs, and at least one pair of `most` bound, or it says little.
void expectExact(const Finding& finding, std::uint64_t most) {
  EXPECT_EQ("", finding.failure);
  EXPECT_GT(finding.bound * most, finding.pairs) << finding.bound << " of " << finding.pairs << " bound";
}

TEST(Exactness, OfAllSmallFormatsOnAllShortMessages) {
  const Finding finding = tryAllFormats(4, kCharacters);
  expectExact(finding, 20);
  EXPECT_EQ(2801U * (kCharacters == 4 ? 341 : 85) * 2, finding.pairs);
}

TEST(Exactness, OfSetsOfSmallFormats) { expectExact(trySetsOfAllFormats(1, 200 / kShare, 4), 5); }

TEST(Exactness, OfRandomSets) { expectExact(tryRandomSets(1, 200'000 / kShare), 5); }

TEST(Exactness, OfDamagedLines) {
  const std::vector<System> systems = systemsIn(EXAMPLES);
  EXPECT_FALSE(systems.empty());
  for (const System& system : systems) {
    SCOPED_TRACE(system.name);
    expectExact(tryDamagedLines(system, 1, 3000 / kShare), 3);
  }
}

TEST(Exactness, OfThousandsOfFormats) {
  expectExact(tryScaledSet(1500, 1, 1, 120 / kShare), 4);
  expectExact(tryScaledSet(3000, ScaledSet::kMostHeaders, 1, 240 / kShare), 4);
}

TEST(Exactness, OfFieldsThatTakeTheirWidthAlone) {
  const Meaning meaning(1, 1);
  expectExact(tryAllFormats(3, kCharacters), 20);
  expectExact(tryRandomSets(1'000'000, 30'000 / kShare), 5);
}

TEST(Exactness, OfStarsThatFailWhenUsedUp) {
  const Meaning meaning(0, 0);
  expectExact(tryAllFormats(3, kCharacters), 20);
  expectExact(tryRandomSets(2'000'000, 30'000 / kShare), 5);
}

struct Case {
  std::vector<const char*> formats;  ///< The first is tried first.
  std::string message;
  const char* expected;  ///< Place and values.
};

std::string times(int n, const char* text) {
  std::string all;
  while (n-- > 0) all += text;
  return all;
}

FormatList formatsOf(const Case& c) {
  FormatList formats;
  for (const char* format : c.formats) formats.push_back(tokensOf(format));
  return formats;
}

// What an index or a pattern engine would get wrong, worked out by hand.
const Case kCases[] = {
    {{"foo%s", "foo"}, "foobar", "0: bar"},  // a constant is compared with the beginning of a word
    {{"foo", "foo%s"}, "foobar", "1: bar"},
    {{"mapred.tip.id is %s", "mapred.job.id is %s"}, "mapred.tip.id is x", "0: x"},
    {{"mapred.tip.id is %s", "mapred.job.id is %s"}, "mapred.job.id is x", "1: x"},
    {{"%s*", "a %s"}, "a b", "0: a b"},  // the first in order, not the closest
    {{"a %s", "%s*"}, "a b", "0: b"},
    // Formats without variables bind on what is left over.
    {{"a b"}, "a b", "0:"},
    {{"a b"}, "ab", "0:"},
    {{"a b"}, "b", "0:"},
    {{"a b"}, " \t", "0:"},
    {{"a b"}, "b a", "none"},
    {{"a%nb"}, "\nb", "0:"},
    // Where fields end.
    {{"z%s+ y"}, "z y", "0: "},  // one word at least, except behind text
    {{"%s+\" status: %s"}, "GET /x\" status: 200", "0: GET /x|200"},
    {{"%s+ <ok>"}, "x   <ok>", "0: x"},
    {{"a %s+b"}, "a bxb", "0: bx"},
    {{"a %s*b"}, "a bxb", "0: bx"},
    {{"%s: x"}, "a:b: x", "0: a:b"},
    {{"%s]"}, "]]", "0: ]"},
    {{"%sab"}, "ab", "none"},
    {{"%sab"}, "abab", "0: ab"},
    {{"%s 5 seconds. Will"}, "x 5 seconds.  Will", "0: x"},
    {{"%t %s"}, "Jul  1 09:00:55 up", "0: Jul 1 09:00:55|up"},
    {{"a %s"}, "a b" + std::string("\0c", 2), "0: b"},  // a message ends at a NUL
    // The first field is not tried again once a later one was reached; later ones are.
    {{"%s* - %s end"}, "a - b - c end", "none"},
    {{"%s %s* - %s end"}, "w a - b - c end", "0: w|a - b|c"},
    // A field that is passed over on the way back begins anew when it is reached again.
    {{"%s*%s+b%s* %s* "}, "abxbb x ", "0: a|bxb||x"},
    // "%0s*" has no width to speak of, but steps of its own.
    {{"%s+%0s*a%0s* %s+"}, " baaa b", "0: b|aa||b"},
    // A field that asks in vain for a second "a" fails for good only where it was first reached: from there it may
    // bind.
    {{"%s*%s+ %s*%s*a%sa%s* "}, "a axb abx    axaa ", "0: |a axb abx|||x|a"},
    // A format gives up after its 100th failure: the last of 101 ends is found, the last of 102 is not.
    {{"%s] x", "%s*"},
     "]" + times(101, "]") + " x",
     "0: "
     "]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]"},
    {{"%s] x"}, "]" + times(102, "]") + " x", "none"},
};

TEST(Exactness, OfCasesWorkedOutByHand) {
  EXPECT_EQ("none", Comparison(FormatList()).engine("a"));
  for (const Case& c : kCases) {
    Comparison comparison(formatsOf(c));
    EXPECT_EQ(c.expected, comparison.plain(c.message)) << c.formats[0] << " on " << printable(c.message);
    EXPECT_EQ(c.expected, comparison.engine(c.message)) << c.formats[0] << " on " << printable(c.message);
  }
}

TEST(Exactness, OfFormatsWithMoreVariablesThanValues) {
  const std::string expected = "0: x" + times(63, "|x");
  expectFromChild(expected + " " + expected, [] {  // such a format is reported, which no later read forgets
    Comparison comparison({tokensOf("a" + times(66, " %s"))});
    const std::string message = "a" + times(66, " x");
    return comparison.plain(message) + " " + comparison.engine(message);
  });
}

TEST(Exactness, OfMessagesOfAMillionWords) {
  const FormatList formats = {tokensOf("b %s*"), tokensOf("%s %s*y%ny"), tokensOf("%s %s* z"), tokensOf("a %s*")};
  Comparison comparison(formats);
  const std::string words = times(1'100'000, "a ");
  for (const std::string& end : {std::string("z"), std::string("z\0 a", 4), std::string("y\ny"), std::string()}) {
    for (const bool eventLog : {false, true}) {
      EXPECT_TRUE(comparison.agree(words + end, eventLog) && comparison.bound()) << printable(end) << eventLog;
    }
  }
}

TEST(Exactness, OfEventIds) {
  const ScratchDirectory directory;
  writeFile(directory.path() / "f", "FORMAT First\na %s\nEND\nFORMAT Second\nb %s\nEND\nFORMAT Third\nc %s\nEND\n");
  LogDriver driver((directory.path() / "f").c_str(), nullptr, 1);
  const auto ids = [&driver] {
    Matcher matcher(FormatSet::make(driver));
    std::string text;
    for (const char* message : {"a x", "b x", "c x"}) {
      const Match* const match = matcher.bind(message);
      text += match ? std::to_string(match->place) + "#" + std::to_string(match->eventId) + " " : "none ";
    }
    return text;
  };
  EXPECT_EQ("0#0 1#1 2#2 ", ids());
  driver.orderFmts();
  EXPECT_EQ("2#0 1#1 0#2 ", ids());  // the place in the file stays the event's
}

TEST(Exactness, OfMessagesFromAnEventLog) {
  const Case cases[] = {
      {{"a %s"}, "a\nb", "0: b"},
      {{"a%n%s"}, "a\nb", "0: b"},
      {{"%s b"}, "a\nb", "none"},  // to a field the line break is part of the word, and nothing is left for the rest
  };
  for (const Case& c : cases) {
    Comparison comparison(formatsOf(c));
    EXPECT_EQ(c.expected, comparison.plain(c.message, true)) << c.formats[0];
    EXPECT_EQ(c.expected, comparison.engine(c.message, true)) << c.formats[0];
  }
}

}  // namespace
}  // namespace quillon
