#ifndef QUILLON_PROGRAM_OPTIONS_H_
#define QUILLON_PROGRAM_OPTIONS_H_

#include <CLI/App.hpp>
#include <optional>

namespace quillon {

/// Exit status of a program that was called wrongly.
inline constexpr int kWrongUsage = 2;

/// Reads the command line into what `app` was given for it, and adds --version. The exit status when the program is
/// to end here: 0 after --help or --version (1 when their text could not be written), 2 after a complaint about the
/// usage. Before there are other threads.
[[nodiscard]] std::optional<int> parseOptions(CLI::App& app, int argc, const char* const* argv);

}  // namespace quillon

#endif  // QUILLON_PROGRAM_OPTIONS_H_
