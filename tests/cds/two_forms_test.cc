// Two forms, one event: what the server makes of attributes is what the adapter makes itself, for every slot that MAP
// has; and all class definitions that quillon writes can be read.

#include "tests/cds/two_forms.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/match/support/log_lines.h"
#include "tests/match/support/scaled_set.h"
#include "tests/match/support/set_generator.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

// What an adapter says of its set, it says of the bytes that the compiler writes, in whatever order it tries formats.
TEST(ClassDefinitions, AreThoseOfTheCompiler) {
  const ScratchDirectory directory;
  const std::string path = directory.path() / "cds";
  LogDriver driver(EXAMPLES "/sshd.fmt", nullptr, 0);
  ASSERT_TRUE(driver.write_cds(path.c_str()));
  EXPECT_EQ(readFile(path), classDefinitions(driver));
  driver.orderFmts();
  EXPECT_EQ(readFile(path), classDefinitions(driver));
}

TEST(TwoForms, OfTheExamples) {
  const std::vector<System> systems = systemsIn(EXAMPLES);
  EXPECT_LE(6, systems.size());
  Random random(1);
  for (const System& system : systems) {
    TwoForms forms(readFile(system.formats));
    ASSERT_EQ("", forms.failure()) << system.name;
    for (const std::string& line : system.lines) {
      ASSERT_EQ("", forms.difference(line)) << line;
      ASSERT_EQ("", forms.difference(damaged(line, random.pick(system.lines), random))) << line;
    }
    EXPECT_LT(system.lines.size() / 2, forms.bound()) << system.name;
  }
}

TEST(TwoForms, OfGeneratedFormats) {
  std::size_t bound = 0;
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    SetGenerator generator(seed);
    TwoForms forms(formatFile(generator.formats()));
    if (forms.isRefused()) continue;
    ASSERT_EQ("", forms.failure()) << "seed " << seed;
    for (int i = 0; i < 100; ++i) ASSERT_EQ("", forms.difference(generator.message())) << "seed " << seed;
    bound += forms.bound();
  }
  EXPECT_LT(2000, bound);

  const ScaledSet set(1000, ScaledSet::kMostHeaders);
  TwoForms forms(formatFile(set.formats()));
  ASSERT_EQ("", forms.failure());
  Random random(2);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ("", forms.difference(set.line(random)));
  EXPECT_LT(900, forms.bound());
}

TEST(TwoForms, OfOddSlots) {
  std::size_t bound = 0;
  for (std::uint64_t seed = 0; seed < 300; ++seed) {
    SetGenerator generator(seed);
    Random random(seed);
    const std::string file = withOddSlots(generator.formats(), random);
    TwoForms forms(file);
    if (forms.isRefused()) continue;
    ASSERT_EQ("", forms.failure()) << "seed " << seed << "\n" << forms.definitions();
    for (int i = 0; i < 30; ++i)
      ASSERT_EQ("", forms.difference(generator.message())) << "seed " << seed << "\n" << file;
    bound += forms.bound();
  }
  EXPECT_LT(3000, bound);
}

// Class definitions have the bytes of the format file, events are UTF-8. The bytes are EUC-JP for U+65E5 and U+8A9E.
TEST(TwoForms, InAnotherCodeset) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // the codeset is chosen once in a process
  const auto run = [] {
    setenv("LC_ALL", "C", 1);
    setenv("NXL_CODESET", "EUCJP", 1);
    setenv("NXLDIR", CODESET_DATA, 1);
    holdCodeset();
    TwoForms forms(
        "FORMAT A\n%s \xB8\xEC %s\nn $1\nk \xC6\xFC\nq \"\xB8\xEC\\\"\"\n"
        "p PRINTF(\"\xC6\xFC%s, %s\", n, k)\nEND\n");
    std::fputs((forms.failure() + forms.difference("\xC6\xFC \xB8\xEC x") + forms.latest()).c_str(), stderr);
    std::exit(0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0),
              "^EVENT A `n=\xE6\x97\xA5' `k=\xE6\x97\xA5' `q=\xE8\xAA\x9E\\\\\"' `p=\xE6\x97\xA5\xE6\x97\xA5, "
              "\xE6\x97\xA5' END$");
}

}  // namespace
}  // namespace quillon
