#include "program/Progress.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace quillon
