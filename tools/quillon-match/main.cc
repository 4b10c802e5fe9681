#include <CLI/App.hpp>
#include <optional>

#include "codeset/tables.h"
#include "program/options.h"
#include "program/program.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "tools/quillon-match/Matching.h"
#include "tools/quillon-match/options.h"

/// quillon-match [options] FORMATS [LOG...]: binds messages against a format file and writes their events.
int main(int argc, char* argv[]) {
  quillon::prepareProcess();
  quillon::setTableSearch({.always_current_directory = false, .instead_of_nxldir = {}});
  quillon::holdCodeset();
  reporting_always = true;
  comments_must_close = true;
  quillon::MatchOptions options;
  CLI::App app("Binds each message of the logs against a format file and writes a line for each that a block matches.",
               quillon::kMatchProgram);
  quillon::describe(app, options);
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  if (options.logs.empty()) options.logs.emplace_back("-");
  return quillon::match(options);
}
