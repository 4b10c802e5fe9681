#include "src/adapters/logfile/source/glob.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "src/adapters/logfile/source/PathScanner.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

TEST(Glob, MatchesPaths) {
  const struct {
    const char *pattern, *matching, *other;  // paths with blanks between
  } cases[] = {
      {"/a/*.log", "/a/x.log /a/*.log", "/a/b/x.log /a/.log /a/.x.log /a/x.log1 a/x.log /a"},
      {"/a/?[0-9].log", "/a/x1.log", "/a/x.log /a/xx.log"},
      {"/a/[!x]*", "/a/y /a/yx", "/a/x /a/.y"},
      {"/**/x", "/x /a/x /a/b/x", "/a/xx /.a/x"},
      {"/a/**", "/a/x /a/b/x /a/b/c", "/a /b/x /a/.x /a/.b/x"},
      {"/a/**/b/**/*.log", "/a/b/x.log /a/1/b/2/3/x.log", "/a/x.log /a/b"},
      {"/a/.*", "/a/.x", "/a/x"},
      {"x.log", "x.log", "/x.log a/x.log"},
      {"/a//b", "/a/b", "/a"},
  };
  for (const auto& c : cases) {
    const Glob glob(c.pattern);
    std::istringstream matching(c.matching);
    for (std::string path; matching >> path;) EXPECT_TRUE(glob.matches(path)) << c.pattern << ' ' << path;
    std::istringstream other(c.other);
    for (std::string path; other >> path;) EXPECT_FALSE(glob.matches(path)) << c.pattern << ' ' << path;
  }
}

TEST(Glob, FindsWhatItMatches) {
  const ScratchDirectory directory;
  const std::string root = directory.path();
  for (const char* file : {"x.log", "y.txt", ".h.log", "a/x.log", "a/b/x.log", "a/b/y.log", ".d/x.log"}) {
    writeFile(root + '/' + file, "");
  }
  std::filesystem::create_symlink("b", root + "/a/link");  // followed by *, not by **
  const struct {
    const char *pattern, *expected;
  } cases[] = {
      {"/*.log", "x.log "},
      {"/**/x.log", "a/b/x.log a/x.log x.log "},
      {"/a/*/y.log", "a/b/y.log a/link/y.log "},
      {"/**", "a/b/x.log a/b/y.log a/link a/x.log x.log y.txt "},
      {"/none/*.log", ""},
      {"/a/b/x.log", "a/b/x.log "},
  };
  for (const auto& c : cases) {
    PathScanner scanner({root + c.pattern}, {});
    scanner.scan([](const std::string&) {});
    std::string found;
    for (const std::string& path : scanner.paths()) {
      found += path.substr(root.size() + 1) + ' ';
      EXPECT_TRUE(scanner.matches(path));
    }
    EXPECT_EQ(c.expected, found) << c.pattern;
  }
  PathScanner scanner({root + "/**"}, {"*.log", root + "/a/*"});
  scanner.scan([](const std::string&) {});
  EXPECT_EQ(std::set<std::string>{root + "/y.txt"}, scanner.paths());
}

TEST(RotatedName, IsToldFromOtherNames) {
  const std::set<std::string> rotated = {"a.log.1",         "a.log.10", "a.log-20240131", "a.log.old",
                                         "a-20240131.log",  "a.1.log",  "a.log~",         "a.log.2024-01-31T10:00",
                                         "a_2024-01-31.log"};
  for (const char* name : {"a.log", "b.log.1", "a.log1", "a.log.1.gz", "a-errors.log", "a.log.errors", "ab.log", "a"}) {
    EXPECT_FALSE(isRotatedName("a.log", name)) << name;
  }
  for (const std::string& name : rotated) EXPECT_TRUE(isRotatedName("a.log", name)) << name;
}

}  // namespace
}  // namespace quillon
