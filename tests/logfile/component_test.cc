#include <csignal>
#include <string>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/NewlineComponent.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

using Component = LogfileTest;

TEST_F(Component, MadeFromTokens) {
  struct Case {
    const char* token;
    const char*
        expected;  ///< Its text; "shared" for the one instance of its kind; "$" for a variable, "=" for a bound.
    const char* report;
  };
  const Case cases[] = {
      {"%s", "%s shared$", ""},
      {"%s*", "%s* shared$", ""},
      {"%s+", "%s+ shared$", ""},
      {"%sx", "%s shared$", "3,2,156 bad %s specification `%sx'\n\n"},
      {"%s**", "%s shared$", "3,2,156 bad %s specification `%s**'\n\n"},
      {"%5s", "%5s $", ""},
      {"%5s*", "%5s* $", ""},
      {"%5s+", "%5s+ $", ""},
      {"%5sx", "%5sx $", ""},  // behind a width only the last character counts
      {"%t", "%t shared$", ""},
      {"%5t", "%t shared$", "3,2,156 bad %t specification `%5t'\n\n"},
      {"%t*", "%t shared$", "3,2,156 bad %t specification `%t*'\n\n"},
      {"%n", "%n shared=", ""},
      {"%nabc", "%n shared=", ""},
      {"%5n", "%n shared=", ""},
      {" ", "  shared", ""},
      {"\t", "\t =", ""},
      {"%", "% =", ""},
      {"%d", "%d =", ""},
      {"%5", "%5 =", ""},
      {"word", "word =", ""},
      {"", " =", ""},
  };
  for (const Case& c : cases) {
    CapturedReports reports;
    const Ref<FormatComponent> component(FormatComponent::create(c.token));
    EXPECT_EQ(c.report, reports.take()) << c.token;
    const Ref<FormatComponent> again(FormatComponent::create(c.token));
    std::string result = std::string(component->fmtRep().view()) + " ";
    if (component.get() == again.get()) result += "shared";
    if (component->variable()) result += "$";
    if (component->isconst()) result += "=";
    EXPECT_EQ(c.expected, result) << "token: " << c.token;
  }
}

/// The constant that bounds each field of a format: its text, "-" for none.
TEST_F(Component, BoundsOfFields) {
  struct Case {
    std::vector<const char*> tokens;
    const char* expected;
  };
  const Case cases[] = {
      {{"%s", "a"}, "a -"},
      {{"%s", " ", "a"}, "- - -"},  // only the next component counts
      {{"%t", "a"}, "a -"},
      {{"%s*", " ", "%s", "a", "b"}, "a - a - -"},  // the first constant anywhere behind
      {{"%5s+", " ", "%n", "b"}, "%n - - -"},
      {{"%s+", " ", "%s"}, "- - -"},
  };
  for (const Case& c : cases) {
    qlList<FormatComponent*> list;
    for (const char* token : c.tokens) retain(list(FormatComponent::create(token)));
    std::string result;
    for (int i = 0; i < static_cast<int>(c.tokens.size()); ++i) {
      const ConstComponent* const bound = list[i]->lookahead(list, i);
      if (i > 0) result += " ";
      result += bound == ConstComponent::none() ? "-" : bound->getString();
    }
    EXPECT_EQ(c.expected, result);
    releaseAll(list);
  }
}

TEST_F(Component, DestroyingOneInUseAborts) {
  const auto destroy = [] {
    FormatComponent* const component = FormatComponent::create("text");
    retain(component);
    delete component;
  };
  EXPECT_EXIT(destroy(), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace quillon
