#ifndef QUILLON_BENCHMARKS_RUN_PROGRAM_H_
#define QUILLON_BENCHMARKS_RUN_PROGRAM_H_

#include <string>
#include <vector>

namespace quillon {

/// What a whole process took.
struct Expense {
  int status = -1;  ///< As of waitpid().
  double seconds = 0;
  double processorSeconds = 0;
  double peakBytes = 0;
};

/// Runs a program with its output and its messages to /dev/null and waits for it. It is started by a small process of
/// its own: what a new process inherits counts into its peak memory. For that `main` must begin with runAsStarter().
Expense runProgram(const std::vector<std::string>& command);

/// When this process is such a starter: does its work and ends. Otherwise does nothing.
void runAsStarter(int argc, char* argv[]);

}  // namespace quillon

#endif  // QUILLON_BENCHMARKS_RUN_PROGRAM_H_
