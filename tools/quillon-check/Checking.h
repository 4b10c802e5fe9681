#ifndef QUILLON_TOOLS_QUILLON_CHECK_CHECKING_H_
#define QUILLON_TOOLS_QUILLON_CHECK_CHECKING_H_

#include <set>
#include <string>
#include <vector>

#include "authoring/report/codes.h"

namespace quillon {

inline constexpr const char* kCheckProgram = "quillon-check";

/// What the command line of quillon-check says.
struct CheckOptions {
  std::vector<std::string> files;
  std::string output = "text";  ///< text, json, sarif, tap or junit.
  std::string samples;          ///< A file of samples for the only file that is checked; empty: none.
  bool eventLog = false;        ///< Samples are messages of an event log.
  std::set<FindingCode> errors;
  std::set<FindingCode> ignored;
  bool fix = false;
  bool dryRun = false;
  bool fileOrder = false;  ///< Blocks are tried in the order of the file.
};

/// Checks the files and writes what was found to standard output. The exit status: 0 when no finding is an error
/// and all samples pass, 1 otherwise or when something could not be read or written.
[[nodiscard]] int checkFiles(const CheckOptions& options);

/// Writes what is known about `code`, or a line for each code there is. The exit status.
[[nodiscard]] int explainCode(FindingCode code);
[[nodiscard]] int listCodes();

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_CHECK_CHECKING_H_
