#include "benchmarks/run_program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace quillon {

namespace {

constexpr const char* kStarter = "--start-and-measure";

/// In a new process: never returns.
[[noreturn]] void execute(char* const* command, int output) {
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);  // what it says of the formats, which are not on trial
  execv(command[0], command);
  _exit(127);
}

Expense measure(char* const* command) {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) execute(command, nowhere);
  Expense expense;
  rusage usage{};
  wait4(child, &expense.status, 0, &usage);
  expense.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  expense.processorSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  expense.peakBytes = 1024.0 * static_cast<double>(usage.ru_maxrss);
  return expense;
}

}  // namespace

Expense runProgram(const std::vector<std::string>& command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  const pid_t starter = fork();
  if (starter == 0) {
    std::vector<char*> arguments = {const_cast<char*>("/proc/self/exe"), const_cast<char*>(kStarter)};
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execute(arguments.data(), ends[1]);
  }
  close(ends[1]);
  std::FILE* const results = fdopen(ends[0], "r");
  Expense expense;
  if (std::fscanf(results, "%d %lf %lf %lf", &expense.status, &expense.seconds, &expense.processorSeconds,
                  &expense.peakBytes) != 4) {
    expense.status = -1;
  }
  std::fclose(results);
  waitpid(starter, nullptr, 0);
  return expense;
}

void runAsStarter(int argc, char* argv[]) {
  if (argc < 3 || std::string_view(argv[1]) != kStarter) return;
  const Expense expense = measure(argv + 2);
  std::printf("%d %.9f %.9f %.0f\n", expense.status, expense.seconds, expense.processorSeconds, expense.peakBytes);
  std::exit(EXIT_SUCCESS);
}

}  // namespace quillon
