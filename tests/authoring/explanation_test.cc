// Why messages bind as they do, in one line each; and that nothing binds otherwise for being explained.

#include "authoring/explain/Explanation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "authoring/explain/explanation_text.h"
#include "tests/match/support/comparison.h"
#include "tests/match/support/format_list.h"
#include "tests/match/support/set_generator.h"

namespace quillon {
namespace {

/// Formats are tried in this order and named Format0, Format1 and so on.
Explanation explained(const std::vector<const char*>& formats, const std::string& message) {
  FormatList list;
  for (const char* format : formats) list.push_back(tokensOf(format));
  const FormatsInDriver driver(list);
  return Explainer(*driver).explain(message, Explainer::Options());
}

/// "first-variable at 7 mark 7-8 attempts 1 $1=a $2=b:" of the nearest block.
std::string nearest(const std::vector<const char*>& formats, const std::string& message) {
  const Explanation explanation = explained(formats, message);
  if (explanation.nearest.empty()) return "none";
  const NearBlock& near = explanation.nearest[0];
  std::string text = std::to_string(near.place) + " " + ruleName(near.rule) + " at " + std::to_string(near.at) +
                     " mark " + std::to_string(near.markFrom) + "-" + std::to_string(near.markTo) + " attempts " +
                     std::to_string(near.attempts);
  for (const Taken& taken : near.taken) text += " $" + std::to_string(taken.variable) + "=" + taken.text;
  return text + (near.bindsWhenRepaired ? " repaired " + near.repairedMessage : "");
}

TEST(Explanation, SaysWhereTheNearestBlockStopped) {
  struct Case {
    std::vector<const char*> formats;
    const char* message;
    const char* expected;
  };
  const Case cases[] = {
      {{"login of %s failed", "logout of %s"},
       "login of ann faild",
       "0 none at 17 mark 17-17 attempts 1 $1=ann repaired login of ann failed"},
      {{"login of %s", "%s"},
       "login of ann again",
       "0 text-left-over at 13 mark 12-18 attempts 1 $1=ann repaired login of ann"},
      {{"port %s: open"}, "the port 22: open", "0 none at 0 mark 0-4 attempts 1 repaired port 22: open"},
      {{"port %s: open"}, "port22: open", "0 none at 4 mark 4-4 attempts 1 repaired port 22: open"},
      {{"user %s"}, "xuser ann", "0 word-begins at 0 mark 0-1 attempts 1 repaired user ann"},
      {{"to\t%s"}, "to b", "0 tab-is-text at 2 mark 2-3 attempts 1"},
      // The star ends at the first colon. What follows would fit behind the second, but $1 is the first variable.
      {{"%s*: %s x"}, "a: b: c x", "0 first-variable at 6 mark 6-7 attempts 1 $1=a $2=b:"},
      // Each "!" is an end of the field; the one that is meant comes too late.
      {{"w %s*! z"}, "w a! a! a! z", "none"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, nearest(c.formats, c.message)) << c.message;
}

/// What Comparison::plain() gives.
std::string verdict(const Explanation& explanation) {
  if (!explanation.bound) return "none";
  const BoundBlock& bound = *explanation.bound;
  std::string text = std::to_string(bound.place) + ":";
  for (const Taken& taken : bound.taken) {
    if (taken.variable <= 64) (text += taken.variable == 1 ? " " : "|") += taken.text;
  }
  return text;
}

/// $3 fails itself on the way, and what $1 has taken stays.
TEST(Explanation, KeepsWhatStandsBeforeAFieldThatFails) {
  EXPECT_EQ("0: q| bb abb bb a|a|a", verdict(explained({"x %s%s* %2sa%s"}, "x q bb abb bb a aaa")));
}

TEST(Explanation, TellsTheLimitOfAttempts) {
  std::string marks;
  for (int i = 0; i < 110; ++i) marks += "a! ";
  EXPECT_EQ("0 attempt-limit at 305", nearest({"w %s*! z"}, "w " + marks + "! z").substr(0, 22));
}

TEST(Explanation, NamesNearBlocksBesideGeneralOnesOnly) {
  EXPECT_EQ("0", nearest({"login of %s failed", "%s*"}, "login of ann faild").substr(0, 1));
  EXPECT_EQ("none", nearest({"logout of %s", "login of %s"}, "login of ann"));
  // It would bind, but is tried later.
  const Explanation hidden = explained({"login %s*", "login of %s"}, "login of ann");
  ASSERT_EQ(1U, hidden.nearest.size());
  EXPECT_TRUE(hidden.nearest[0].binds);
}

std::uint64_t numberIn(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// As often as QUILLON_PAIRS says, from the seed QUILLON_SEED on.
TEST(Explanation, BindsAsBindingIsDefined) {
  const std::uint64_t pairs = numberIn("QUILLON_PAIRS", 3000);
  const std::uint64_t first = numberIn("QUILLON_SEED", 1);
  constexpr std::uint64_t kOfSet = 50;
  std::size_t bound = 0;
  for (std::uint64_t i = 0; i < pairs / kOfSet; ++i) {
    const std::uint64_t seed = first + i;
    SetGenerator set(seed);
    const FormatsInDriver driver(set.formats());
    Comparison plain(*driver);
    Explainer explainer(*driver);
    for (std::uint64_t j = 0; j < kOfSet; ++j) {
      const std::string message = set.message();
      const Explanation explanation = explainer.explain(message, Explainer::Options());
      ASSERT_EQ(plain.plain(message), verdict(explanation)) << "seed " << seed << ": " << printable(message);
      bound += explanation.bound ? 1 : 0;
      // Everything of it can be shown, and each place lies in the message.
      ASSERT_FALSE(explanationText(explanation, ExplanationStyle()).empty());
      for (const NearBlock& near : explanation.nearest) {
        ASSERT_TRUE(near.markFrom <= near.markTo && near.markTo <= message.size()) << printable(message);
        ASSERT_LE(near.at, message.size());
      }
    }
  }
  EXPECT_LT(pairs / 20, bound);  // else it says little
}

TEST(Drawing, StandsColumnByColumn) {
  struct Case {
    const char *format, *message, *expected;
  };
  const Case cases[] = {
      {"%s: %s*", "a: b  c", "a: b  c|~: ~~~~|$1 $2|"},
      // A tab is seen, an accent takes no column of its own, a wide character two.
      {"%s %s %s", "e\xCC\x81\t\xE8\xAA\x9E \xFF", "e\xCC\x81\\t\xE8\xAA\x9E \\xFF|~  ~~ ~~~~|$1 $2 $3|"},
      {"a%s*", "a", "a|a|"},
  };
  for (const Case& c : cases) {
    const Explanation explanation = explained({c.format}, c.message);
    ASSERT_TRUE(explanation.bound) << c.format;
    std::string text = Drawing(explanation.bound->pieces, explanation.bound->parts, explanation.message).text({}, "");
    std::replace(text.begin(), text.end(), '\n', '|');
    EXPECT_EQ(c.expected, text) << c.format;
  }
}

}  // namespace
}  // namespace quillon
