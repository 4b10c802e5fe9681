// Runs the programs as their users do: one test for each *.case file of this directory, described in case_file.h.
// With QUILLON_UPDATE=1 in the environment a case takes what came as its expectation; review the diff like code.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cctype>
#include <exception>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "tests/cli/case_file.h"
#include "tests/cli/process.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// A directory of its own for each run, gone afterwards.
class Scratch {
 public:
  Scratch() {
    std::string pattern = testing::TempDir() + "quillon-cli-XXXXXX";
    path_ = mkdtemp(pattern.data());
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { fs::remove_all(path_); }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

/// The same for everyone who runs the tests; what a case sets comes later and wins. A sanitizer's report ends the
/// program with a status that no case expects.
std::vector<std::string> environment(const CaseFile& test) {
  std::vector<std::string> settings = {
      std::string("PATH=" QUILLON_PROGRAM_PATH ":") + getenv("PATH"),
      "SOURCE=" QUILLON_SOURCE,
      "LC_ALL=C.UTF-8",
      "ASAN_OPTIONS=exitcode=99",
      "UBSAN_OPTIONS=exitcode=99",
  };
  settings.insert(settings.end(), test.environment().begin(), test.environment().end());
  return settings;
}

Outcome runCase(const CaseFile& test) {
  const Scratch scratch;
  for (const CaseFile::Section& file : test.files()) {
    std::ofstream(scratch.path() / file.name, std::ios::binary) << file.text;
  }
  return run({test.command(), scratch.path(), environment(test), test.text("stdin"), test.terminal("stdout"),
              test.terminal("stderr")});
}

class CliTest : public testing::Test {
 public:
  explicit CliTest(fs::path path) : path_(std::move(path)) {}
  void TestBody() override {
    CaseFile test(path_);
    const Outcome outcome = runCase(test);
    if (getenv("QUILLON_UPDATE")) {
      test.expect(outcome.status, {{"stdout", outcome.out}, {"stderr", outcome.err}, {"terminal", outcome.terminal}});
      test.write();
      return;
    }
    EXPECT_EQ(test.text("stdout"), outcome.out) << path_;
    EXPECT_EQ(test.text("stderr"), outcome.err) << path_;
    EXPECT_EQ(test.text("terminal"), outcome.terminal) << path_;
    EXPECT_EQ(test.exitStatus(), outcome.status) << path_;
  }

 private:
  fs::path path_;
};

/// A name that a test filter can hold: it takes a minus for "not these".
std::string testName(const fs::path& path) {
  std::string name = path.stem();
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

void registerCases() {
  std::set<fs::path> paths;
  for (const fs::directory_entry& entry : fs::directory_iterator(QUILLON_SOURCE "/tests/cli")) {
    if (entry.path().extension() == ".case") paths.insert(entry.path());
  }
  for (const fs::path& path : paths) {
    testing::RegisterTest("Cli", testName(path).c_str(), nullptr, nullptr, __FILE__, __LINE__,
                          [path]() -> CliTest* { return new CliTest(path); });
  }
}

}  // namespace
}  // namespace quillon

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  for (const char* name : {"NXL_CODESET", "NXLDIR", "BINDIR", "LANG"}) unsetenv(name);  // the cases choose their own
  quillon::registerCases();
  return RUN_ALL_TESTS();
}
