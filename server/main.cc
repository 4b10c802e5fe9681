#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/visible.h"
#include "program/options.h"
#include "program/program.h"
#include "server/Server.h"

namespace {

constexpr const char* kProgram = "quillon-server";

void tell(const std::string& path, const quillon::ConfigFault& fault) {
  std::string place;
  if (fault.place.line > 0) {
    place = path + ':' + std::to_string(fault.place.line) + ':' + std::to_string(fault.place.column) + ": ";
  }
  std::fprintf(stderr, "%s: %s\n", kProgram, quillon::visible(place + fault.text).c_str());
}

}  // namespace

/// quillon-server [options] CONFIG: takes events from clients, makes events of attributes, and brings them on.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  std::string path;
  bool check = false;
  CLI::App app("Takes events from many clients, keeps them on the disk and brings them on.", kProgram);
  app.add_option("CONFIG", path, "The configuration, see quillon-server(5)")->required()->type_name("");
  app.add_flag("--check", check, "Say what is wrong with the configuration and what it names");
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;

  quillon::Server::blockSignals();
  std::vector<quillon::ConfigFault> faults;
  std::optional<quillon::ServerConfig> config = quillon::readServerConfig(path, faults);
  for (const quillon::ConfigFault& fault : faults) tell(path, fault);
  if (!config) return EXIT_FAILURE;
  if (check) return quillon::Server::check(*config, quillon::Log(kProgram)) ? EXIT_SUCCESS : EXIT_FAILURE;
  return quillon::Server(std::move(*config)).run();
}
