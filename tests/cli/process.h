#ifndef QUILLON_TESTS_CLI_PROCESS_H_
#define QUILLON_TESTS_CLI_PROCESS_H_

#include <filesystem>
#include <string>
#include <vector>

namespace quillon {

/// What to run, and how.
struct Run {
  std::string command;                   ///< For sh -c.
  std::filesystem::path directory;       ///< Where it runs.
  std::vector<std::string> environment;  ///< "NAME=VALUE", added to the caller's.
  std::string input;                     ///< What it reads from standard input.
  bool stdout_is_terminal = false;
  bool stderr_is_terminal = false;
};

/// What came of it.
struct Outcome {
  int status;       ///< Exit status, or 128 and the signal's number as the shell counts.
  std::string out;  ///< Standard output and standard error, byte for byte, unless they were the terminal.
  std::string err;
  std::string terminal;  ///< What the terminal was sent, in the order it came; newlines are left as written.
};

/// Runs a command to its end. One that does not end within half a minute is killed with what it started: status 137.
Outcome run(const Run& what);

}  // namespace quillon

#endif  // QUILLON_TESTS_CLI_PROCESS_H_
