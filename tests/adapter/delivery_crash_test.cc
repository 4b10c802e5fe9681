// An adapter with a cache and a destination, killed at every place where the order of two steps matters, again and
// again, also while it recovers. Each line becomes one event in the cache, no more and no less; the destination gets
// each, and twice only what it had not acknowledged.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "delivery/Record.h"
#include "delivery/cache/inspection.h"
#include "tests/adapter/adapter_process.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

const char* const kCheckpoints[] = {"turn-begun",          "bytes-read",        "unmatched-written", "positions-kept",
                                    "batch-sent",          "numbers-reserved",  "segment-made",      "batch-begun",
                                    "batch-written",       "batch-synced",      "name-synced",       "batch-taken",
                                    "rest-synced",         "ledger-begun",      "ledger-appended",   "buffer-written",
                                    "destination-written", "output-begun",      "acknowledged",      "output-written",
                                    "output-renamed",      "destination-synced"};

class DeliveryCrash : public testing::TestWithParam<const char*> {
 protected:
  DeliveryCrash() {
    writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
    writeFile(path("adapter.toml"),
              "[delivery]\ncache = \"cache\"\nreplay_window = \"1 h\"\n"  // so that the cache keeps all there ever was
              "[destination.d]\ntype = \"file\"\npath = \"events\"\nrotate = \"size\"\nmax_size = 4096\nkeep = 100\n"
              "[source.s]\ntype = \"file\"\npath = \"log\"\nformats = \"formats\"\npoll_interval = \"10 ms\"\n");
    writeFile(path("log"), "");
  }

  fs::path path(const std::string& name) const { return directory_.path() / name; }

  void append(int count) {
    std::ofstream log(path("log"), std::ios::app);
    for (int i = 0; i < count; ++i) log << "line " << written_++ << '\n';
  }

  /// How often each line is in the files of the destination.
  std::map<int, int> delivered() const {
    std::map<int, int> times;
    for (const auto& entry : fs::directory_iterator(directory_.path())) {
      if (!entry.path().filename().string().starts_with("events")) continue;
      std::istringstream lines(readFile(entry.path()));
      for (std::string line; std::getline(lines, line);) {
        const std::string before = "\"slots\":{\"n\":\"";
        const std::size_t at = line.find(before);
        if (at != std::string::npos && line.ends_with('}')) ++times[std::stoi(line.substr(at + before.size()))];
      }
    }
    return times;
  }

  /// The lines in the cache, in their order.
  std::vector<int> cached() const {
    using namespace delivery;
    CacheContents contents;
    std::string where;
    EXPECT_EQ(0, readContents(Files::real(), path("cache"), contents, where));
    std::vector<int> lines;
    Record record;
    for (const Segment& segment : contents.log.segments) {
      SegmentHealth health;
      const auto note = [&](const Event& event) {
        EXPECT_TRUE(decode(event.bytes, record));
        lines.push_back(std::stoi(std::string(record.values.at(0).value)));
      };
      EXPECT_EQ(0, examine(Files::real(), path("cache"), segment, health, note));
    }
    return lines;
  }

  const ScratchDirectory directory_{inMemory()};
  int written_ = 0;
};

TEST_P(DeliveryCrash, LosesAndInventsNothing) {
  constexpr int kRounds = 14;
  constexpr int kTogether = 10;
  int killed = 0;
  for (int round = 0; round < kRounds; ++round) {
    AdapterProcess adapter(
        {.config = path("adapter.toml"), .log = path("messages"), .killAt = GetParam(), .killAfter = 1 + round % 4});
    for (int step = 0; step < 3 && adapter.runs(); ++step) {
      append(kTogether);
      if (step == 1 && round % 3 == 0) fs::rename(path("log"), path("log." + std::to_string(round)));
      waitUntil([&] { return !adapter.runs() || delivered().size() == static_cast<std::size_t>(written_); });
    }
    adapter.signal(SIGTERM);
    const int status = adapter.wait();
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) ++killed;
  }
  AdapterProcess last({.config = path("adapter.toml"), .log = path("messages"), .once = true});
  EXPECT_EQ(0, last.wait()) << readFile(path("messages"));
  EXPECT_GE(killed, 2);

  std::vector<int> expected(static_cast<std::size_t>(written_));
  for (int n = 0; n < written_; ++n) expected[static_cast<std::size_t>(n)] = n;
  EXPECT_EQ(expected, cached()) << readFile(path("messages"));
  int again = 0;
  const std::map<int, int> times = delivered();
  for (const auto& [line, count] : times) again += count - 1;
  EXPECT_EQ(static_cast<std::size_t>(written_), times.size());
  EXPECT_LE(again, killed * 3 * kTogether);  // what one process had not acknowledged, at most
}

INSTANTIATE_TEST_SUITE_P(Checkpoints, DeliveryCrash, testing::ValuesIn(kCheckpoints), [](const auto& test) {
  std::string name = test.param;
  std::ranges::replace(name, '-', '_');
  return name;
});

}  // namespace
}  // namespace quillon
