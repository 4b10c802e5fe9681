#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/comparison.h"
#include "tests/match/support/set_generator.h"

namespace quillon {
namespace {

struct Job {
  std::string message;
  bool eventLog;
  std::string expected;
};

std::string shown(const Match* match) {
  if (!match) return "none";
  std::string text = std::to_string(match->place);
  for (const std::string_view value : match->values) (text += '|') += value;
  return text;
}

/// What one matcher says of each message, asked in an order of its own.
void work(const std::shared_ptr<const FormatSet>& set, const std::vector<Job>& jobs, std::size_t first, int* wrong) {
  Matcher matcher(set);
  for (std::size_t n = 0; n < jobs.size(); ++n) {
    const Job& job = jobs[(first + n) % jobs.size()];
    if (shown(matcher.bind(job.message, job.eventLog)) != job.expected) ++*wrong;
  }
}

TEST(Engine, BindsInManyThreadsWithOneFormatSet) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    SetGenerator generator(seed);
    const FormatsInDriver driver(generator.formats());
    auto set = FormatSet::make(*driver);
    Matcher alone(set);
    std::vector<Job> jobs;
    for (int n = 0; n < 200; ++n) {
      Job& job = jobs.emplace_back(Job{generator.message(), n % 5 == 0, ""});
      job.expected = shown(alone.bind(job.message, job.eventLog));
    }
    int wrong[4] = {};
    std::vector<std::thread> threads;
    for (std::size_t n = 0; n < std::size(wrong); ++n)
      threads.emplace_back(work, set, std::cref(jobs), n * 50, &wrong[n]);
    set.reset();  // the matchers keep what they need
    for (std::thread& thread : threads) thread.join();
    for (const int n : wrong) EXPECT_EQ(0, n) << "seed " << seed;
  }
}

}  // namespace
}  // namespace quillon
