// Runs the programs as their users do: one test for each *.case file of this directory, which tells one whole run.
//
//     # Any comment.
//     run: quillon FORMATS          the command, for sh -c
//     exit: 1                       its exit status; 0 when left out
//     terminal: stdout stderr       which of its outputs are a terminal; none when left out
//     env: NAME=VALUE               any number of them
//     --- FORMATS                   a file in the directory where the command runs
//     --- stdin                     what it reads; nothing when left out
//     --- stdout                    what it writes; nothing when left out. So are stderr and terminal.
//
// A section's text ends with a newline unless its last line is "\ no newline". With QUILLON_UPDATE=1 in the environment
// a case takes what came as its expectation; review the diff like code.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kNoNewline = "\n\\ no newline\n";

struct Section {
  std::string name, text;
};

bool isStream(const Section& section) {
  return std::set<std::string>{"stdin", "stdout", "stderr", "terminal"}.contains(section.name);
}

struct Case {
  std::vector<std::string> header;  ///< The lines before the first section, as they are.
  std::vector<Section> sections;

  /// What the header gives for "run", "exit", "terminal" or "env".
  std::vector<std::string> values(const std::string& key) const {
    std::vector<std::string> found;
    for (const std::string& line : header) {
      if (line.starts_with(key + ": ")) found.push_back(line.substr(key.size() + 2));
    }
    return found;
  }
  std::string value(const std::string& key) const { return values(key).empty() ? "" : values(key).front(); }
  int exitStatus() const { return std::atoi(value("exit").c_str()); }

  std::string text(const std::string& name) const {
    const auto found = std::ranges::find(sections, name, &Section::name);
    return found == sections.end() ? "" : found->text;
  }
};

/// Throws where a case says less than its author thinks.
Case readCase(const fs::path& path) {
  Case test;
  std::ifstream in(path, std::ios::binary);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("--- ")) {
      test.sections.push_back({line.substr(4), ""});
    } else if (!test.sections.empty()) {
      test.sections.back().text += line + '\n';
    } else {
      test.header.push_back(line);
      const std::set<std::string> keys = {"run", "exit", "terminal", "env"};
      const bool known = line.empty() || line[0] == '#' || keys.contains(line.substr(0, line.find(": ")));
      if (!known) throw std::runtime_error(path.string() + ": not a key with its value: " + line);
    }
  }
  for (Section& section : test.sections) {
    if (section.text.ends_with(kNoNewline)) section.text.resize(section.text.size() - kNoNewline.size());
  }
  if (test.value("run").empty()) throw std::runtime_error(path.string() + ": it has no \"run:\" line");
  return test;
}

/// What came of a run.
struct Outcome {
  int status = 0;                ///< Exit status, or 128 and the signal's number as the shell counts.
  std::vector<Section> streams;  ///< Byte for byte; the terminal's in the order it came.
};

/// Makes `outcome` what `test` expects. A stream without text loses its section.
void update(const fs::path& path, Case test, const Outcome& outcome) {
  if (outcome.status != test.exitStatus()) {
    std::erase_if(test.header, [](const std::string& line) { return line.starts_with("exit: "); });
    const auto run = std::ranges::find(test.header, "run: " + test.value("run"));
    test.header.insert(run + 1, "exit: " + std::to_string(outcome.status));
  }
  for (const Section& stream : outcome.streams) {
    const auto found = std::ranges::find(test.sections, stream.name, &Section::name);
    found == test.sections.end() ? test.sections.push_back(stream) : void(found->text = stream.text);
  }
  std::erase_if(test.sections, [](const Section& section) { return isStream(section) && section.text.empty(); });
  std::ofstream out(path, std::ios::binary);
  for (const std::string& line : test.header) out << line << '\n';
  for (const auto& [name, text] : test.sections) {
    out << "--- " << name << '\n' << text << (text.empty() || text.ends_with('\n') ? "" : kNoNewline);
  }
}

/// Becomes the command, which is killed with what it started after half a minute. `streams` holds its input and takes
/// its outputs, but for those that are the terminal. What a case sets comes last and wins; a sanitizer's report ends
/// the program with a status that no case expects.
[[noreturn]] void execute(const Case& test, const fs::path& directory, const fs::path& streams, int terminal) {
  signal(SIGPIPE, SIG_DFL);
  const auto open = [&](const char* name) {
    const bool isTerminal = test.value("terminal").find(name) != std::string::npos;
    return isTerminal ? terminal : ::open((streams / name).c_str(), O_RDWR | O_CREAT, 0600);
  };
  const int in = open("stdin"), out = open("stdout"), err = open("stderr");
  if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
  closefrom(3);
  fs::current_path(directory);
  std::vector<std::string> words = {"env",
                                    std::string("PATH=" QUILLON_PROGRAM_PATH ":") + getenv("PATH"),
                                    "SOURCE=" QUILLON_SOURCE,
                                    "CODESETS=" QUILLON_CODESETS,
                                    "LC_ALL=C.UTF-8",
                                    "ASAN_OPTIONS=exitcode=99",
                                    "UBSAN_OPTIONS=exitcode=99"};
  for (const std::string& setting : test.values("env")) words.push_back(setting);
  for (const char* word : {"timeout", "-s", "KILL", "30", "sh", "-c"}) words.push_back(word);
  words.push_back(test.value("run"));
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  execvp("env", argv.data());
  _exit(127);
}

Outcome run(const Case& test) {
  const ScratchDirectory directory, streams;
  for (const Section& file : test.sections) {
    if (!isStream(file)) writeFile(directory.path() / file.name, file.text);
  }
  writeFile(streams.path() / "stdin", test.text("stdin"));
  termios raw{};  // bytes pass unchanged: no carriage return before a newline
  cfmakeraw(&raw);
  cfsetspeed(&raw, B38400);  // speed 0 would hang up
  int master = -1, slave = -1;
  if (openpty(&master, &slave, nullptr, &raw, nullptr) != 0) throw std::runtime_error("openpty");

  const pid_t child = fork();
  if (child == 0) execute(test, directory.path(), streams.path(), slave);
  close(slave);
  std::string shown;
  std::thread terminal([master, &shown] {  // meanwhile, so that a full one does not block the child
    char buffer[4096];
    for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) shown.append(buffer, static_cast<size_t>(n));
  });
  int status = 0;
  waitpid(child, &status, 0);
  terminal.join();
  close(master);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
          {{"stdout", readFile(streams.path() / "stdout")},
           {"stderr", readFile(streams.path() / "stderr")},
           {"terminal", shown}}};
}

class CliTest : public testing::Test {
 public:
  explicit CliTest(fs::path path) : path_(std::move(path)) {}
  void TestBody() override {
    const Case test = readCase(path_);
    const Outcome outcome = run(test);
    if (getenv("QUILLON_UPDATE")) return update(path_, test, outcome);
    for (const auto& [name, text] : outcome.streams) EXPECT_EQ(test.text(name), text) << path_ << ": " << name;
    EXPECT_EQ(test.exitStatus(), outcome.status) << path_;
  }

 private:
  fs::path path_;
};

void registerCases() {
  std::set<fs::path> paths;
  for (const fs::directory_entry& entry : fs::directory_iterator(QUILLON_SOURCE "/tests/cli")) {
    if (entry.path().extension() == ".case") paths.insert(entry.path());
  }
  for (const fs::path& path : paths) {
    std::string name = path.stem();
    std::ranges::replace(name, '-', '_');  // a test filter takes a minus for "not these"
    testing::RegisterTest("Cli", name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
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
