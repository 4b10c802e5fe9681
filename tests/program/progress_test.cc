#include "program/Progress.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#include <tuple>

namespace quillon {
namespace {

TEST(Progress, TellsShareRateAndTime) {
  const std::tuple<std::uint64_t, std::uint64_t, double, const char*> cases[] = {
      {0, 1000, 1, "0 %, 0.0 MB/s, ? left"},
      {21'000'000, 50'000'000, 4, "42 %, 5.2 MB/s, 0:06 left"},  // 29 MB at 5.25 MB/s
      {1'000'000, 100'000'000, 1.6, "1 %, 0.6 MB/s, 2:38 left"},
      {999, 1000, 1000, "99 %, 0.0 MB/s, 0:01 left"},
      {2000, 1000, 1, "100 %, 0.0 MB/s, 0:00 left"},  // the file has grown
  };
  for (const auto& [done, total, seconds, expected] : cases) EXPECT_EQ(expected, Progress::text(done, total, seconds));
}

/// What comes to the terminal of a process that has read 10 bytes of `path` after a while.
std::string shownFor(const char* path) {
  int master = -1;
  if (forkpty(&master, nullptr, nullptr, nullptr) == 0) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    {
      Progress progress(open(path, O_RDONLY));
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      progress.show(10);
    }
    _exit(0);
  }
  std::string shown;
  char buffer[256];
  for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) shown.append(buffer, static_cast<std::size_t>(n));
  close(master);
  wait(nullptr);
  return shown;
}

TEST(Progress, IsForFilesAlone) {
  EXPECT_NE(std::string::npos, shownFor("/proc/self/exe").find(" %, 0.0 MB/s, ")) << "the line is gone at the end";
  EXPECT_EQ("", shownFor("/dev/zero"));
}

}  // namespace
}  // namespace quillon
