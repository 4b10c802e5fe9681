// Format files damaged at random: the checker's verdict is the compiler's, fixes make nothing worse, and a diff says
// what they change.
//
// QUILLON_MUTATIONS files from QUILLON_SEED on; with QUILLON_COMPILER, the path of quillon, that is asked as well.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "authoring/check/CheckedFile.h"
#include "authoring/check/checks.h"
#include "authoring/check/fixes.h"
#include "authoring/report/finding_json.h"
#include "authoring/report/finding_text.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "tests/support/scratch.h"

extern char** environ;

namespace quillon {
namespace {

long long setting(const char* name, long long otherwise) {
  const char* const text = std::getenv(name);
  return text ? std::atoll(text) : otherwise;
}

std::vector<std::string> originals() {
  std::vector<std::string> texts;
  for (const auto& entry : std::filesystem::directory_iterator(QUILLON_EXAMPLES)) {
    if (entry.path().extension() == ".fmt") texts.push_back(readFile(entry.path()));
  }
  std::ranges::sort(texts);
  texts.push_back(
      "FORMAT A\n%s %5s* x\na $1\n-b $2\nm PRINTF(\"%s, %s\", a, b)\nn PRINTF(\"%s\", m)\nEND\n"
      "FORMAT B FOLLOWS A\n%s (%d) %n\nb \"x \\\" y\"\no DEFAULT\nEND\n");
  return texts;
}

class Mutations {
 public:
  explicit Mutations(std::uint64_t seed) : random_(seed) {}

  std::string next() {
    std::string text = originals_[below(originals_.size())];
    if (below(2) == 0) text = text.substr(0, text.find("\n\n", below(text.size())) + 1);  // a part of it
    for (std::size_t n = 1 + below(3); n > 0; --n) damage(text);
    return text;
  }
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }

 private:
  void damage(std::string& text) {
    static const char* const kPieces[] = {
        "\"", "//", "/* ", "*/", "\n", "\n\n", "FORMAT",    "END\n",   "%", "%s",      "%d",     "$9",     "(",
        ")",  ",",  " ",   "\t", "\\", "\r",   "FOLLOWS A", "PRINTF(", "-", "DEFAULT", "// c\n", "/* c */"};
    const std::size_t at = below(text.size());
    const std::size_t lineStart = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
    const std::size_t lineEnd = std::min(text.find('\n', at), text.size() - !text.empty()) + 1;
    switch (below(7)) {
      case 0:
        return void(text.insert(at, kPieces[below(std::size(kPieces))]));
      case 1:
        return void(text.erase(at, 1 + below(3)));
      case 2:
        return void(text.erase(lineStart, lineEnd - lineStart));
      case 3:
        return void(text.insert(lineStart, text.substr(lineStart, lineEnd - lineStart)));
      case 4:
        if (at < text.size()) text[at] = static_cast<char>(below(256));
        return;
      case 5:
        return text.resize(at);
      default:
        return void(text.insert(lineEnd == 0 ? 0 : lineEnd - 1, kPieces[below(std::size(kPieces))]));
    }
  }

  std::mt19937_64 random_;
  const std::vector<std::string> originals_ = originals();
};

/// What the compiler does, without its ways to end: reads, and writes class definitions up to the first that cannot be.
bool compilerTakes(const std::string& text) {
  CollectedReports reports;
  FormatReader reader(reports);
  LogDriver driver;
  if (!reader.readText(text, "FILE", driver)) return false;
  const ReportScope scope(&reports);
  static std::FILE* const none = std::fopen("/dev/null", "w");
  for (FormatSpec* format : driver.getFormats()) {
    if (!format->writeCds(none, 0)) return false;
  }
  return true;
}

bool programTakes(const char* program, const std::string& text) {
  static const ScratchDirectory directory(inMemory());
  const std::string file = directory.path() / "FILE";
  writeFile(file, text);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int descriptor : {1, 2}) posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_WRONLY, 0);
  std::string name = program;
  std::string argument = file;
  char* const arguments[] = {name.data(), argument.data(), nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, program, &actions, nullptr, arguments, environ) != 0) std::abort();
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// `before` with the changes of a unified diff.
std::string patched(const std::string& before, const std::string& diff) {
  std::istringstream old(before), changes(diff);
  std::string result, line, kept;
  int at = 1;
  const auto copy = [&] {
    std::getline(old, kept);
    ++at;
    return kept + (old.eof() ? "" : "\n");
  };
  bool isLastWhole = true;
  while (std::getline(changes, line)) {
    if (line.starts_with("---") || line.starts_with("+++")) {
      if (result.empty() && at == 1) continue;
    }
    if (line.starts_with("@@ -")) {
      const bool isEmpty = line.substr(0, line.find(" +")).ends_with(",0");
      for (const int first = std::atoi(line.c_str() + 4) + isEmpty; at < first;) result += copy();
    } else if (line[0] == '+') {
      result += line.substr(1) + "\n";
      isLastWhole = true;
    } else if (line[0] == '\\') {
      if (isLastWhole && result.ends_with('\n')) result.pop_back();
    } else {
      const std::string whole = copy();
      isLastWhole = line[0] == ' ';
      if (isLastWhole) result += line.substr(1) + "\n";
    }
  }
  while (old.peek() != std::char_traits<char>::eof()) result += copy();
  return result;
}

TEST(Mutations, AreJudgedAsTheCompilerDoes) {
  const long long count = setting("QUILLON_MUTATIONS", 3000);
  const auto seed = static_cast<std::uint64_t>(setting("QUILLON_SEED", 1));
  const char* const program = std::getenv("QUILLON_COMPILER");
  Mutations mutations(seed);
  long long compiled = 0;
  for (long long n = 0; n < count && !testing::Test::HasFailure(); ++n) {
    const std::string text = mutations.next();
    const CheckedFile file("FILE", text);
    const std::vector<Finding> findings = check(file);
    compiled += file.compiles();
    const auto isError = [](const Finding& finding) { return finding.severity == Severity::kError; };
    ASSERT_EQ(compilerTakes(text), file.compiles()) << text;
    ASSERT_EQ(file.compiles(), std::ranges::none_of(findings, isError)) << text;
    const bool isOpen = std::ranges::find(findings, FindingCode::kUnclosedComment, &Finding::code) != findings.end();
    if (program && !isOpen) {
      ASSERT_EQ(programTakes(program, text), file.compiles()) << text;
    }
    for (const Finding& finding : findings) {
      ASSERT_NE(FindingCode::kRefused, finding.code) << text;
      findingText(finding, file.textLines(), false);
    }
    if (n % 10 != 0) continue;
    const Fixed fixed = fixAll("FILE", text, [](const Finding&) { return true; });
    ASSERT_TRUE(!file.compiles() || compilerTakes(fixed.text)) << text;
    ASSERT_EQ(fixed.text, patched(text, unifiedDiff("FILE", text, fixed.text))) << text;
  }
  if (!testing::Test::HasFailure()) {
    EXPECT_LT(count / 20, compiled);  // else the damage is too great to tell anything
    EXPECT_GT(count - count / 20, compiled);
  }
}

}  // namespace
}  // namespace quillon
