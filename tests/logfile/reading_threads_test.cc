// What two threads may do at the same time. The thread sanitizer has the last word: scripts/test tsan.

#include <barrier>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

/// Reads `blocks` twice, with a failed reading between, and binds `message` with what came of it, all of it `rounds`
/// times. What the last round gave: the reports, the values of each format, the definitions.
std::string work(const std::string& blocks, const std::string& message, int rounds, std::barrier<>& start) {
  start.arrive_and_wait();
  std::string result;
  for (int i = 0; i < rounds; ++i) {
    CollectedReports reports;
    FormatReader reader(reports);
    LogDriver driver;
    const bool first = reader.readText(blocks, "FILE", driver);
    LogDriver failed;
    const bool broken = reader.readText("FORMAT B FOLLOWS Z\n%s $1\n", "FILE", failed);
    const bool second = reader.readText(blocks, "FILE", driver);
    const ReportScope scope(&reports);
    driver.orderFmts();
    result = std::to_string(first) + std::to_string(broken) + std::to_string(second) + " ";
    for (const Report& report : reports.reports) result += report.text + "; ";
    for (FormatSpec* format : driver.getFormats()) {
      SysLogMsg converted = FormatSpec::toUtf8(message.c_str(), 0);
      result += values(*format, format->bindConverted(converted)) + "; ";
      result += format->aevent().view();
    }
  }
  return result;
}

using Threads = LogfileTest;

TEST_F(Threads, ReadAndBindWithFormatsOfTheirOwn) {
  const std::string blocks[] = {
      "FORMAT A\n%t %s %s*: %s+ x %s\na $1\nb $3\nc PRINTF(\"%s %s\", a, b)\nd \"word\"\nEND\n",
      "FORMAT A\n%s x%s y %s* %5s*\nb $2\na $5\nd \"word\"\nEND\nFORMAT B FOLLOWS A\n%s y %s\ne $2\nEND\n",
  };
  const std::string messages[] = {"Nov 1 10:00:00 host a: b x c x d", "a xbx y c dddddd y e"};
  std::string expected[2], results[2];
  std::barrier<> alone(1), together(2);
  for (std::size_t i = 0; i < 2; ++i) expected[i] = work(blocks[i], messages[i], 1, alone);
  EXPECT_NE(std::string::npos, expected[0].find("Nov 1 10:00:00|host|a|b x c|d")) << expected[0];
  std::thread threads[2];
  for (std::size_t i = 0; i < 2; ++i) {
    threads[i] = std::thread([&, i] { results[i] = work(blocks[i], messages[i], 300, together); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(expected[0], results[0]);
  EXPECT_EQ(expected[1], results[1]);
}

// What is set up on first use is set up once, and all threads see it whole. Where the locale has no table, that is also
// the choice of a default codeset, which the first message replaces.
TEST(FirstUseThreads, FindOneSetUp) {
  setenv("LC_ALL", "C", 1);
  setenv("NXLDIR", "/nonexistent", 1);
  std::string results[3];
  std::barrier<> together(3);
  std::vector<std::thread> threads;
  threads.reserve(std::size(results));
  for (std::string& result : results) {
    threads.emplace_back([&] { result = work("FORMAT A\n%t %5s %s*\na $2\nEND\n", "x y z 12345 ", 3, together); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& result : results) EXPECT_EQ(results[0], result);
  EXPECT_NE(std::string::npos, results[0].find("x y z|12345|; EVENT A `a=12345' END")) << results[0];
}

constexpr const char* kBlocks =
    "FORMAT Base\n%t %s %s+\nhost $2\nmsg $3\nEND\n"
    "FORMAT Login FOLLOWS Base\n%t %s login: %s*\nuser $3\nkind LOGIN\nmsg PRINTF(\"%s\", user)\nEND\n";

// Formats of several threads have the shared components and texts in common, and nothing else.
TEST_F(Threads, HandModelsToEachOther) {
  constexpr int kThreads = 4;
  std::vector<std::unique_ptr<LogDriver>> drivers(kThreads);
  for (int round = 0; round < 20; ++round) {
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
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
