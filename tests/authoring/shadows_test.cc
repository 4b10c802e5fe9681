// What is said about blocks that take messages from each other is held against every short message, bound one by one.

#include "authoring/shadow/Shadows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "authoring/check/matcher_checks.h"
#include "authoring/shadow/Proofs.h"
#include "authoring/shadow/Retries.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/Engine.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/comparison.h"
#include "tests/match/support/format_list.h"
#include "tests/match/support/random.h"
#include "tests/match/support/scaled_set.h"

namespace quillon {
namespace {

#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t kSets = 400;
#else
constexpr std::uint64_t kSets = 40;
#endif

/// Formats in the order of trying.
std::shared_ptr<const FormatSet> setOf(const FormatList& formats) { return FormatSet::make(*FormatsInDriver(formats)); }

std::shared_ptr<const FormatSet> setOfTexts(const std::vector<const char*>& texts) {
  FormatList formats;
  formats.reserve(texts.size());
  for (const char* text : texts) formats.push_back(tokensOf(text));
  return setOf(formats);
}

std::vector<std::string> allMessages(std::size_t most) {
  std::vector<std::string> all(1);
  for (std::size_t begin = 0, length = 1; length <= most; ++length) {
    for (const std::size_t end = all.size(); begin < end; ++begin) {
      for (const char c : {'a', 'b', ' '}) all.push_back(all[begin] + c);
    }
  }
  return all;
}

FormatList randomFormats(std::uint64_t seed) {
  static const Tokens small = {"a", "b", " ", "%s", "%s*", "%s+"};
  static const Tokens more = {"a", "b", "ab", "ba", " ", " ", "%s", "%s", "%s*", "%s+", "%t"};
  Random random(seed);
  FormatList formats(random.between(2, 8));
  for (Tokens& tokens : formats) {
    for (std::size_t left = random.between(1, 4); left > 0; --left)
      tokens.push_back(random.pick(seed % 2 ? small : more));
  }
  return formats;
}

/// Of each block what every message of `messages` says: whether any binds it, and the blocks that take from it.
struct Truth {
  Truth(const std::shared_ptr<const FormatSet>& formats, const std::vector<std::string>& messages)
      : described(formats->size()), binds(formats->size()) {
    Matcher matcher(formats);
    for (const std::string& message : messages) {
      const Match* const match = matcher.bind(message);
      if (!match || message.empty()) continue;
      const std::uint32_t by = match->place;
      binds[by] = described[by] = true;
      for (std::uint32_t place = by + 1; place < formats->size(); ++place) {
        if (!matcher.bindOne(place, message)) continue;
        described[place] = true;
        pairs.insert({place, by});
      }
    }
  }

  std::vector<bool> described;
  std::vector<bool> binds;
  std::set<std::pair<std::uint32_t, std::uint32_t>> pairs;
};

void expectReal(const Shadow& shadow, Matcher& matcher) {
  EXPECT_TRUE(matcher.bindOne(shadow.block, shadow.witness));
  EXPECT_TRUE(matcher.bindOne(shadow.by, shadow.witness));
  const Match* const match = matcher.bind(shadow.witness);
  ASSERT_TRUE(match);
  EXPECT_EQ(shadow.by, match->place);
  EXPECT_LT(shadow.by, shadow.block);
}

TEST(Shadows, OfSmallSetsAreThoseOfAllShortMessages) {
  const std::vector<std::string> messages = allMessages(7);
  std::size_t known = 0;
  std::size_t found = 0;
  std::size_t never = 0;
  std::size_t impassable = 0;
  for (std::uint64_t seed = 1; seed <= kSets; ++seed) {
    SCOPED_TRACE(seed);
    const std::shared_ptr<const FormatSet> formats = setOf(randomFormats(seed));
    const Truth truth(formats, messages);
    const Shadows shadows = findShadows(formats);
    Matcher matcher(formats);
    for (const Shadow& shadow : shadows.found) {
      expectReal(shadow, matcher);
      found += truth.pairs.count({shadow.block, shadow.by});
      if (shadow.loss != Shadow::Loss::kAll) continue;
      ++never;
      EXPECT_FALSE(truth.binds[shadow.block]) << "said never to bind: " << shadow.block;
    }
    for (const ImpassableBlock& block : shadows.impassable) {
      ++impassable;
      EXPECT_FALSE(truth.described[block.block]) << "said to bind nothing: " << block.block;
    }
    known += truth.pairs.size();
  }
  EXPECT_GE(found * 100, known * 95) << found << " of " << known;
  EXPECT_GT(known, kSets * 2);
  EXPECT_GT(never, kSets / 3);
  EXPECT_GT(impassable, kSets);
  RecordProperty("share", std::to_string(found) + " of " + std::to_string(known));
}

/// "1<0 all 'a word'; odd 2; impassable 3 at 1"
std::string said(const Shadows& shadows) {
  static const char* const names[] = {"all", "typical", "overlap", "detail"};
  std::string text;
  for (const Shadow& shadow : shadows.found) {
    text += std::to_string(shadow.block) + "<" + std::to_string(shadow.by) + " " +
            names[static_cast<std::size_t>(shadow.loss)];
    if (shadow.loss != Shadow::Loss::kDetail) text += " '" + printable(shadow.witness) + "'";
    text += "; ";
  }
  for (const OddBlock& odd : shadows.odd) {
    text += "odd " + std::to_string(odd.block) + " '" + printable(odd.unbound) + "' '" + printable(odd.bound) + "'; ";
  }
  for (const ImpassableBlock& block : shadows.impassable) {
    text += "impassable " + std::to_string(block.block) + " at " + std::to_string(block.component) + "; ";
  }
  if (!text.empty()) text.resize(text.size() - 2);
  return text;
}

TEST(Shadows, AreFaultsOnlyOfTheMoreSpecialBlock) {
  struct Case {
    std::vector<const char*> formats;  ///< The first is tried first.
    const char* expected;
  };
  const Case cases[] = {
      // The general block last, as it should be.
      {{"%t %s sshd[%s]: Failed %s", "%t %s sshd[%s]: %s*"}, "1<0 detail"},
      {{"%t %s sshd[%s]: %s*", "%t %s sshd[%s]: Failed %s"}, "1<0 all 'Jan 1 12:00:00 word sshd[word]: Failed word'"},
      {{"%s %s: up", "link %s: up"}, "1<0 typical 'link word: up'"},
      {{"user %s in", "user root in", "user %s in"}, "1<0 typical 'user root in'; 2<0 all 'user word in'"},
      {{"a: %s", "a %s", "a: b %s"}, ""},
      // Both have something of their own; the second one says more.
      {{"%s %s: restart", "node %s pages: %s"}, ""},
      {{"%s+: restart", "node %s pages: %s"}, "1<0 overlap 'node word pages: restart'"},
      {{"node %s pages: %s", "%s+: restart"}, "1<0 detail"},
      // Without variables a block binds a part of what it says.
      {{"link is down again", "link is down"}, "1<0 typical 'link is down'"},
      {{"link is down", "link is down again"}, "1<0 detail"},
      // Three of them, the one between takes nothing that is not taken before.
      {{"%s*", "a %s*", "a b"}, "1<0 all 'a word'; 2<0 all 'a b'"},
      {{"%s%s", "a%s* %s"}, "impassable 0 at 1"},
      {{"a %s*\t%s", "%s* x %s", "a  %s"}, "impassable 0 at 3"},
      {{"j %s* %s: up"}, "odd 0 'j word word: up' 'j word :: up'"},
      {{"%s* %s"}, "impassable 0 at 2"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, said(findShadows(setOfTexts(c.formats)))) << c.formats[0];
}

TEST(Shadows, AreTakenInEitherOrder) {
  const FormatsInDriver driver({tokensOf("a %s*"), tokensOf("a b %s"), tokensOf("c")});
  const auto lastFirst = formatsInOrder(*driver, TryOrder::kLastFirst);
  EXPECT_EQ("2<1 detail", said(findShadows(lastFirst)));
  EXPECT_EQ(0U, lastFirst->eventId(2));
  const auto inFile = formatsInOrder(*driver, TryOrder::kFileOrder);
  EXPECT_EQ("1<0 all 'a b word'", said(findShadows(inFile)));
  EXPECT_EQ(1U, inFile->eventId(1));
}

/// Some blocks are put in front of all others once more, with a field in the place of a word.
TEST(Shadows, AreFoundAmongThousands) {
  FormatList formats = ScaledSet(3000, 5).formats();
  const FormatList some(formats.end() - 40, formats.end());
  std::set<std::string> hidden;
  for (const Tokens& tokens : some) {
    for (std::size_t i = 2; i + 1 < tokens.size(); ++i) {
      if (tokens[i - 1] != " " || tokens[i + 1] != " " || tokens[i][0] == '%') continue;
      Tokens general = tokens;
      general[i] = "%s";
      formats.insert(formats.begin(), general);
      hidden.insert(joined(tokens));
      break;
    }
  }
  EXPECT_GT(hidden.size(), 20U);
  const std::shared_ptr<const FormatSet> set = setOf(formats);
  const Shadows shadows = findShadows(set);
  Matcher matcher(set);
  for (const Shadow& shadow : shadows.found) {
    expectReal(shadow, matcher);
    if (shadow.loss <= Shadow::Loss::kTypical) hidden.erase(joined(formats[shadow.block]));
  }
  EXPECT_EQ(std::set<std::string>(), hidden);
}

TEST(Proofs, OfOneFormatForAllMessagesOfAnother) {
  struct Case {
    const char* other;
    const char* format;
    bool proven;
  };
  const Case cases[] = {
      {"%s*", "a", true},
      {"a %s*", "a b", false},  // without variables the second one binds "b"
      {"a %s*", "a b%s c", true},
      {"a%s*", "a b%s", false},  // the star takes nothing at white space
      {"%s x %s*", "%s x %s y", true},
      {"%s* x %s*", "%s* x %s y", true},
      {"%s* x %s", "%s* x y%s", false},  // the word behind the first "x" need not be the last
      {"%s a %s", "b a %s", true},
      {"%s a %s", "b ab %s", false},
      {"%s a %s", "b a %s c", false},
      {"%t %s", "a b c %s", true},
      {"a[%s]: %s", "a[%s]: b %s", false},
      {"a[%s]: %s %s", "a[%s]: b %s", true},
      {"a[%s]: %s %s", "a[%s] b %s", false},
      {"%s %s", "%s %s*", false},
      {"%s: %s*", "%s: %s+", true},
      {"%12s %s", "%s b%s", true},  // a width shortens the value alone
  };
  for (const Case& c : cases) {
    const auto set = setOfTexts({c.other, c.format});
    EXPECT_EQ(c.proven, bindsAllOf(set->engine().literal, 0, 1)) << c.other << " for " << c.format;
  }
}

TEST(Retries, ShowWhatAStarTakesOfItsEnd) {
  struct Case {
    const char* format;
    bool anyConstant;
    const char* expected;
  };
  const Case cases[] = {
      {"a %s: %s* in %s", false, "$2 101"}, {"%s* in %s", false, "$1 1"}, {"a (%s: %s*) %s", false, ""},
      {"a %s (%s*) %s", true, "$2 101"},    {"%s: %s*", true, ""},        {"%s: %s* in %s*", false, ""},
      {"%s: %s* in %s*", true, "$2 101"},  // "xinxin..."
  };
  for (const Case& c : cases) {
    RetryBudget budget;
    budget.anyConstant = c.anyConstant;
    const auto set = setOfTexts({c.format});
    Matcher matcher(set);
    std::string lost;
    for (const LostEnd& end : findRetries(set, budget).lostEnds) {
      lost += "$" + std::to_string(end.variable) + " " + std::to_string(end.occurrences);
      EXPECT_FALSE(matcher.bindOne(0, end.witness)) << c.format;
    }
    EXPECT_EQ(c.expected, lost) << c.format;
  }
}

TEST(Retries, OfABlockThatCostsFarMoreThanTheOthers) {
  std::vector<const char*> texts(20, "user %s logged in from %s");
  texts[3] = "user %s* logged in from %s";
  const Retries retries = findRetries(setOfTexts(texts));
  ASSERT_EQ(1U, retries.costly.size());
  EXPECT_EQ(3U, retries.costly[0].block);
  EXPECT_GT(retries.costly[0].readings, 10);
  texts.assign(20, "user %s* logged in from %s");  // all alike
  EXPECT_TRUE(findRetries(setOfTexts(texts)).costly.empty());
}

std::set<FindingCode> codesOf(const char* text) {
  const CheckedFile file("FILE", text);
  std::set<FindingCode> codes;
  for (const Finding& finding : checkMatcher(file, TryOrder::kLastFirst).findings) codes.insert(finding.code);
  return codes;
}

TEST(MatcherChecks, FindWhatTheExamplesOfTheirCodesShow) {
  for (const CodeEntry& entry : allCodes()) {
    if (entry.code < FindingCode::kNeverBinds || entry.code > FindingCode::kCostly || *entry.before == '\0') continue;
    EXPECT_EQ(std::set<FindingCode>{entry.code}, codesOf(entry.before)) << entry.name;
    EXPECT_EQ(std::set<FindingCode>(), codesOf(entry.after)) << entry.name;
  }
}

}  // namespace
}  // namespace quillon
