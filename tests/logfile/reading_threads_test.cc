#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace quillon {
namespace {

constexpr const char* kBlocks =
    "FORMAT Base\n%t %s %s+\nhost $2\nmsg $3\nEND\n"
    "FORMAT Login FOLLOWS Base\n%t %s login: %s*\nuser $3\nkind LOGIN\nmsg PRINTF(\"%s\", user)\nEND\n";

// Formats of several threads have the shared components and texts in common, and nothing else.
TEST(ReadingThreads, ModelsMoveBetweenThreads) {
  constexpr int kThreads = 4;
  std::vector<std::unique_ptr<LogDriver>> drivers(kThreads);
  for (int round = 0; round < 20; ++round) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&driver = drivers[static_cast<std::size_t>(i + round) % kThreads]] {
        driver = std::make_unique<LogDriver>();  // destroys what another thread made
        CollectedReports reports;
        FormatReader reader(reports);
        EXPECT_TRUE(reader.readText(kBlocks, "blocks", *driver));
        FormatSpec* const login = driver->getFormatSpec("Login");
        EXPECT_STREQ("%t %s login: %s*", login->getFmtStr().getString());
        qlStrobj none = login->value(1);
        none << "x";
        EXPECT_STREQ("", login->value(1).getString());
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
}

}  // namespace
}  // namespace quillon
