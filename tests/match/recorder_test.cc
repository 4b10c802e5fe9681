// What those learn who watch a bind or ask for its counts.

#include "src/adapters/logfile/match/Recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/comparison.h"
#include "tests/match/support/format_list.h"

namespace quillon {
namespace {

/// "0{ (0)0-1 $1(1)1-4/2 (2)4! failed}": of format 0, component 0 matched from 0 to 1, component 1 as $1 up to 4 with 2
/// steps, and component 2 failed at 4.
class Transcript : public Recorder {
 public:
  std::string text;

  void begins(std::uint32_t place) override { text += std::to_string(place) + "{"; }
  void matched(const Trial& trial) override {
    text += shown(trial) + "-" + std::to_string(trial.to);
    if (trial.variable > 0) text += "/" + std::to_string(trial.steps);
  }
  void failed(const Trial& trial) override { text += shown(trial) + "!"; }
  void leftOver(std::uint32_t from) override { text += " left@" + std::to_string(from); }
  void goesBack(int variable, std::uint32_t from, int failures) override {
    text += " back$" + std::to_string(variable) + "@" + std::to_string(from) + "#" + std::to_string(failures);
  }
  void ends(Outcome outcome) override {
    static const char* const names[] = {"bound", "failed", "gave up", "unbound"};
    text += std::string(" ") + names[static_cast<int>(outcome)] + "} ";
  }

 private:
  static std::string shown(const Trial& trial) {
    const std::string name = trial.variable > 0 ? " $" + std::to_string(trial.variable) : " ";
    return name + "(" + std::to_string(trial.component) + ")" + std::to_string(trial.from);
  }
};

std::string transcript(const std::vector<const char*>& formats, const char* message) {
  FormatList list;
  for (const char* format : formats) list.push_back(tokensOf(format));
  const FormatsInDriver driver(list);
  Matcher matcher(FormatSet::make(*driver));
  Transcript recorder;
  matcher.bind(message, false, recorder);
  return recorder.text;
}

TEST(Recorder, IsToldAllThatHappens) {
  EXPECT_EQ("0{ (0)0! failed} 1{ (0)0-1 (1)1-2 $1(2)2-4/-1 bound} ", transcript({"b %s", "a %s"}, "a bc"));
  EXPECT_EQ("0{ (0)0-1 (1)1! unbound} ", transcript({"a "}, "ab"));
  // The field ends at the first ":" and, when that leads nowhere, at the second.
  EXPECT_EQ("0{ $1(0)0-1/1 (1)1-2 (2)2! back$1@0#1 $1(0)0-3/2 (1)3-4 (2)4-5 (3)5-6 bound} ",
            transcript({"%s: x"}, "a:b: x"));
  EXPECT_EQ("0{ (0)0-1 (1)1-2 $1(2)2-3/-1 left@3 failed} ", transcript({"a %s"}, "a b c"));
}

TEST(Recorder, HearsOfTheLimit) {
  const std::string brackets(110, ']');
  EXPECT_NE(std::string::npos, transcript({"%s] x"}, (brackets + " x").c_str()).find(" gave up}"));
}

TEST(Counts, TellWhatBecameOfEachFormat) {
  const std::string brackets(110, ']');
  const FormatsInDriver driver({tokensOf("%s] x"), tokensOf("a %s: %s"), tokensOf("%s*")});
  Matcher matcher(FormatSet::make(*driver));
  for (const std::string& message : {std::string("a b: c"), std::string("a b c"), brackets + " x"})
    matcher.bind(message);
  Transcript recorder;
  matcher.bind("a b: c", false, recorder);  // not counted
  matcher.bindOne(2, "a b: c");
  std::string text;
  for (std::uint32_t place = 0; place < 3; ++place) {
    const FormatCounts counts = matcher.counts(place);
    text += std::to_string(counts.bound) + "/" + std::to_string(counts.tried) + "/" + std::to_string(counts.givenUp);
    text += ' ';
  }
  // The first format is held against the brackets alone: the others have no "]". The last one is not reached by "a b:
  // c".
  EXPECT_EQ("0/1/1 1/2/0 2/2/0 ", text);
}

}  // namespace
}  // namespace quillon
