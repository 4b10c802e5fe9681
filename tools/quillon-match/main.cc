#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <optional>

#include "program/options.h"
#include "program/program.h"
#include "tools/quillon-match/Matching.h"
#include "tools/quillon-match/options.h"

/// quillon-match [options] FORMATS [LOG...]: binds messages against a format file and writes their events.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  quillon::MatchOptions options;
  CLI::App app("Binds each message of the logs against a format file and writes a line for each that a block matches.",
               quillon::kMatchProgram);
  quillon::describe(app, options);
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  if (options.coverage && options.engine != "fast") {
    std::fprintf(stderr, "%s: --coverage needs --engine fast\n", quillon::kMatchProgram);
    return quillon::kWrongUsage;
  }
  if (options.logs.empty()) options.logs.emplace_back("-");
  return quillon::match(options);
}
