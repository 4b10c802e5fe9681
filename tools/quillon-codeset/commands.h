#ifndef QUILLON_TOOLS_QUILLON_CODESET_COMMANDS_H_
#define QUILLON_TOOLS_QUILLON_CODESET_COMMANDS_H_

#include <string>
#include <vector>

#include "codeset/codeset.h"

/// The subcommands. Each returns the exit status and has told standard error why when it is not 0.
namespace quillon {

int buildTable(const std::string& name, const std::string& charset, const std::string& file);
int convertFile(const std::string& from, const std::string& to, const std::string& file);
int printNames(const std::vector<std::string>& names);
int listTables();
int showCodeset(const std::string& name);

/// Prints "quillon-codeset: " and the message to standard error; returns 1, the exit status of a failure.
[[gnu::format(printf, 1, 2)]] int fail(const char* format, ...);

/// Flushes standard output; 0, or fail() when not all of it could be written.
int finishOutput();

/// A codeset that is freed with its holder.
struct FreeCodeset {
  void operator()(nxl_cs* cs) const { nxl_cs_free(cs); }
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_CODESET_COMMANDS_H_
