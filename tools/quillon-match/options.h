#ifndef QUILLON_TOOLS_QUILLON_MATCH_OPTIONS_H_
#define QUILLON_TOOLS_QUILLON_MATCH_OPTIONS_H_

#include <CLI/App.hpp>
#include <cstddef>
#include <string>
#include <vector>

#include "src/adapters/logfile/source/MessageReader.h"

namespace quillon {

/// In whose name messages are.
inline constexpr const char* kMatchProgram = "quillon-match";

struct MatchOptions {
  std::string formats;
  std::vector<std::string> logs;  ///< "-" is standard input.
  std::string output = "event";
  std::string engine = "fast";
  std::size_t jobs = 0;  ///< 0: as many as there are cores.
  std::size_t maxMessage = MessageReader::kLongest;
  bool nulEnded = false;
  bool fileOrder = false;
  std::string unmatched;  ///< Empty: not kept.
  bool eventLog = false;
  bool stats = false;
  bool coverage = false;
  bool lineBuffered = false;

  char delimiter() const { return nulEnded ? '\0' : '\n'; }
};

/// Makes `app` read its command line into `options`.
void describe(CLI::App& app, MatchOptions& options);

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_MATCH_OPTIONS_H_
