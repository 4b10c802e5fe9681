#include "foundation/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace quillon {
namespace {

/// More than a pipe holds, and more parts than one write takes, where the writer does not block.
TEST(WriteAll, WaitsForItsReader) {
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
  std::string text;
  std::vector<std::string> owned;
  for (std::size_t i = 0; i < 3000; ++i) text += owned.emplace_back(i % 100, "abcdefghijklmnopqrstuvwxyz"[i % 26]);
  const std::vector<std::string_view> parts(owned.begin(), owned.end());
  std::string seen;
  std::thread reader([&] {
    char buffer[1000];
    while (true) {
      const ssize_t count = read(ends[0], buffer, sizeof buffer);
      if (count == 0) break;
      count > 0 ? void(seen.append(buffer, static_cast<std::size_t>(count))) : std::this_thread::yield();
    }
  });
  EXPECT_EQ(0, writeAll(ends[1], parts));
  EXPECT_EQ(0, writeAll(ends[1], "the end"));
  close(ends[1]);
  reader.join();
  EXPECT_TRUE(text + "the end" == seen);
  EXPECT_EQ(EBADF, writeAll(ends[0], "x"));
  close(ends[0]);
}

}  // namespace
}  // namespace quillon
