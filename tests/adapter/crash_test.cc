#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/adapter/adapter_process.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// Every place between reading and recording the position at which the order of two steps matters.
const char* const kCheckpoints[] = {"turn-begun",        "bytes-read",     "output-begun", "output-written",
                                    "unmatched-written", "output-renamed", "acknowledged", "state-appended",
                                    "state-begun",       "state-copied",   "state-synced", "state-renamed",
                                    "positions-kept"};

class Crash : public testing::TestWithParam<const char*> {
 protected:
  Crash() {
    writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
    writeFile(path("adapter.toml"),
              "state = \"state\"\n"
              "[output]\npath = \"events\"\nrotate = \"size\"\nmax_size = 4096\nkeep = 100\n"
              "[source.s]\ntype = \"file\"\npath = \"log\"\nformats = \"formats\"\nunmatched = \"unmatched\"\n"
              "poll_interval = \"10 ms\"\n");
    writeFile(path("log"), "");
  }

  fs::path path(const char* name) const { return directory_.path() / name; }

  void append(int count) {
    std::ofstream log(path("log"), std::ios::app);
    for (int i = 0; i < count; ++i, ++written_) {
      log << (written_ % 10 == 0 ? "other " : "line ") << written_ << std::string(200, '.') << '\n';
    }
  }

  /// The numbers of the lines that arrived, as often and in the order in which they did.
  std::vector<int> numbersIn(const fs::path& file, const std::string& before) const {
    std::vector<int> numbers;
    std::istringstream lines(readFile(file));
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(before)) numbers.push_back(std::stoi(line.substr(before.size())));
    }
    return numbers;
  }

  std::vector<int> arrived() const {
    std::vector<int> all;
    std::vector<fs::path> files = {path("events")};
    for (int n = 1; fs::exists(path("events." + std::to_string(n))); ++n)
      files.push_back(path("events." + std::to_string(n)));
    for (auto file = files.rbegin(); file != files.rend(); ++file) {
      std::ranges::copy(numbersIn(*file, "EVENT Line `n="), std::back_inserter(all));
    }
    return all;
  }

  fs::path path(const std::string& name) const { return directory_.path() / name; }

  /// True when every number appears that `wanted` is true for, and their first appearances are in order.
  static bool areComplete(const std::vector<int>& numbers, int count, bool (*wanted)(int)) {
    int next = 0;
    const auto skip = [&] {
      while (next < count && !wanted(next)) ++next;
    };
    skip();
    for (const int number : numbers) {
      if (number > next) return false;
      if (number < next) continue;
      ++next;
      skip();
    }
    return next == count;
  }

  const ScratchDirectory directory_;
  int written_ = 0;
};

TEST_P(Crash, LosesNothing) {
  int killed = 0;
  for (int round = 0; written_ < 400; ++round) {
    // How often it comes by depends on how fast it is; a process that never does is ended by the next round.
    AdapterProcess adapter(
        {.config = path("adapter.toml"), .log = path("messages"), .killAt = GetParam(), .killAfter = 1 + round % 3});
    for (int step = 0; step < 4 && adapter.runs(); ++step) {
      append(10);
      if (step == 2 && round % 2 == 0) {
        fs::rename(path("log"), path("log." + std::to_string(round)));
        append(3);
      }
      waitUntil(
          [&] { return !adapter.runs() || arrived().size() * 10 / 9 + 10 >= static_cast<std::size_t>(written_); });
    }
    adapter.signal(SIGTERM);
    const int status = adapter.wait();
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) ++killed;
  }
  AdapterProcess last({.config = path("adapter.toml"), .log = path("messages"), .once = true});
  EXPECT_EQ(0, last.wait());
  EXPECT_GE(killed, 3);
  EXPECT_TRUE(areComplete(arrived(), written_, [](int n) { return n % 10 != 0; })) << readFile(path("messages"));
  EXPECT_TRUE(areComplete(numbersIn(path("unmatched"), "other "), written_, [](int n) { return n % 10 == 0; }));
}

INSTANTIATE_TEST_SUITE_P(Checkpoints, Crash, testing::ValuesIn(kCheckpoints));

}  // namespace
}  // namespace quillon
