#ifndef QUILLON_TOOLS_QUILLON_CODESET_COMMANDS_H_
#define QUILLON_TOOLS_QUILLON_CODESET_COMMANDS_H_

#include <string>
#include <vector>

#include "codeset/codeset.h"

/// The subcommands. Each returns the exit status and has told standard error why when it is not 0.
namespace quillon {

struct BuildOptions {
  std::string name, charset;
  std::string output;    ///< A path; `name` when it is empty.
  bool partial = false;  ///< Leave out the characters that a table cannot hold.
};
int buildTable(const BuildOptions& options);

struct ConvertOptions {
  std::string from, to;
  std::vector<std::string> inputs;  ///< Paths, "-" for standard input; none is that too.
  std::string output;               ///< A path; standard output when it is empty or "-".
  bool strict = false;              ///< Stop at the first character that would become "?".
  bool count = false;               ///< Tell how many did.
};
int convertFiles(const ConvertOptions& options);

int printNames(const std::vector<std::string>& names);
int listTables();
int showCodeset(const std::string& name);

/// Prints "quillon-codeset: " and the message to standard error, control characters made visible.
[[gnu::format(printf, 1, 2)]] void say(const char* format, ...);

/// The same; returns 1, the exit status of a failure.
[[gnu::format(printf, 1, 2)]] int fail(const char* format, ...);

/// Says that standard output could not be written, for the errno `error`; not when its reader has gone away, who knows
/// that. Returns 1.
int outputFailed(int error);

/// Writes all of standard output; the exit status.
int writeOutput(const std::string& text);

/// The codeset of that name; null, and told, when there is none.
Codeset openCodeset(const std::string& name);

/// The errno for which a table that may be there cannot be read; 0 when it can, or when there is none. Other files than
/// tables, which may lie beside them, are none, and so is a socket.
int tableError(const std::string& dir, const char* name);

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_CODESET_COMMANDS_H_
