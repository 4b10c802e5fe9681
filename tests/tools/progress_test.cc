#include "tools/Progress.h"

#include <gtest/gtest.h>

namespace quillon {
namespace {

TEST(Progress, TellsShareRateAndTime) {
  struct Case {
    std::uint64_t done;
    std::uint64_t total;
    double seconds;
    const char* expected;
  };
  const Case cases[] = {
      {0, 1000, 1, "0 %, 0.0 MB/s, ? left"},
      {21'000'000, 50'000'000, 4, "42 %, 5.2 MB/s, 0:06 left"},  // 29 MB at 5.25 MB/s
      {1'000'000, 100'000'000, 1.6, "1 %, 0.6 MB/s, 2:38 left"},
      {999, 1000, 1000, "99 %, 0.0 MB/s, 0:01 left"},
      {2000, 1000, 1, "100 %, 0.0 MB/s, 0:00 left"},  // the file has grown
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, Progress::text(c.done, c.total, c.seconds));
}

}  // namespace
}  // namespace quillon
