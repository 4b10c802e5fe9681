#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "program/options.h"
#include "program/program.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace {

constexpr const char* kProgram = "quillon-regen";

/// Like LogDriver::dbgdump(), but wherever standard output leads. True when all was written.
bool dump(const LogDriver& reader) {
  for (FormatSpec* format : reader.getFormats()) format->dbgdump();
  return std::fflush(stdout) == 0 && !std::ferror(stdout);
}

}  // namespace

/// quillon-regen [--dump] FORMATS: writes a format file as quillon has understood it.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  std::string formats;
  bool dumps = false;
  CLI::App app("Reads a format file and writes it again, as quillon has understood it.", kProgram);
  app.add_option("FORMATS", formats, "The format file")->required()->type_name("");
  app.add_flag("--dump", dumps, "Write the blocks, their components and slots for debugging instead");
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  if (!quillon::canRead(kProgram, formats.c_str())) return EXIT_FAILURE;

  LogDriver reader(formats.c_str(), nullptr, 1);
  const bool written = dumps ? dump(reader) : reader.write_fmt(nullptr) == 1;
  return written ? EXIT_SUCCESS : quillon::outputFailed(kProgram);
}
