#include "program/options.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdlib>
#include <iostream>
#include <string>

#include "foundation/visible.h"
#include "program/program.h"

namespace quillon {

std::optional<int> parseOptions(CLI::App& app, int argc, const char* const* argv) {
  app.set_version_flag("--version", app.get_name() + " " QUILLON_VERSION, "Print the version and exit");
  app.get_option("--help")->description("Print this help and exit");
  app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
    const std::string& name = failed->get_name();
    return name + ": " + visible(error.what()) + "\nTry '" + name + " --help'.\n";
  });
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) != EXIT_SUCCESS) return kWrongUsage;
    return std::cout.flush() ? EXIT_SUCCESS : outputFailed(app.get_name().c_str());
  }
}

}  // namespace quillon
