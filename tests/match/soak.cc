// Holds the engine against the plain bind for as long as one likes: scripts/soak.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/match/support/comparison.h"
#include "tests/match/support/trials.h"

namespace {

struct Options {
  std::uint64_t pairs = 0;
  double seconds = 0;
  std::uint64_t seed = 1;
  bool exhaustive = false;
  std::vector<std::string> folders;
};

class Soak {
 public:
  explicit Soak(const Options& options) : options_(options) {}

  /// Returns the exit status.
  int run() {
    if (options_.exhaustive) {
      report("all formats of up to 4 components on all messages of up to 6", quillon::tryAllFormats(4, 6));
      report("sets of these", quillon::trySetsOfAllFormats(options_.seed, 300, 6));
    }
    for (const std::string& folder : options_.folders) damagedLines(folder);
    // Sets of their own for each round; the far ones are with other meanings of widths and stars.
    for (std::uint64_t seed = options_.seed; goesOn(); seed += kRound) {
      random_ += quillon::tryRandomSets(seed, kRound);
      const quillon::Meaning meaning(seed / kRound % 2 == 0, seed / kRound % 3 != 0);
      random_ += quillon::tryRandomSets(seed + kOther, kRound / 20);
      if (!random_.failure.empty()) break;
    }
    report("random sets", random_);
    return status_;
  }

 private:
  static constexpr std::uint64_t kRound = 20'000;
  static constexpr std::uint64_t kOther = 1'000'000'000;

  void damagedLines(const std::string& folder) {
    for (const quillon::System& system : quillon::systemsIn(folder)) {
      report("lines of " + system.name, quillon::tryDamagedLines(system, options_.seed, 6 * system.lines.size()));
    }
  }

  bool goesOn() const {
    if (status_ != EXIT_SUCCESS) return false;
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start_;
    return options_.seconds > 0 ? passed.count() < options_.seconds : random_.pairs < options_.pairs;
  }

  void report(const std::string& what, const quillon::Finding& finding) {
    std::printf("%s: %llu pairs, %llu bound, %s\n", what.c_str(), static_cast<unsigned long long>(finding.pairs),
                static_cast<unsigned long long>(finding.bound),
                finding.failure.empty() ? "no difference" : ("DIFFERENT\n" + finding.failure).c_str());
    std::fflush(stdout);
    if (!finding.failure.empty()) status_ = EXIT_FAILURE;
  }

  const Options& options_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  quillon::Finding random_;
  int status_ = EXIT_SUCCESS;
};

}  // namespace

int main(int argc, char* argv[]) {
  Options options;
  CLI::App app("Holds the engine against the plain bind. Status 1 with the first difference.", "match_soak");
  app.add_option("--pairs", options.pairs, "So many messages in random sets");
  app.add_option("--seconds", options.seconds, "Random sets until so many seconds have passed");
  app.add_option("--seed", options.seed, "The first seed of the random sets");
  app.add_flag("--exhaustive", options.exhaustive, "All small formats on all short messages first");
  app.add_option("--logs", options.folders, "Also the NAME.log beside each NAME.fmt in FOLDER, whole and damaged")
      ->check(CLI::ExistingDirectory);
  CLI11_PARSE(app, argc, argv);
  return Soak(options).run();
}
