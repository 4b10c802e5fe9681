#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "adapter/Adapter.h"
#include "adapter/Setup.h"
#include "adapter/StateReport.h"
#include "foundation/visible.h"
#include "program/options.h"
#include "program/program.h"

namespace {

constexpr const char* kProgram = "quillon-adapter";

void tell(const std::vector<quillon::SetupReport>& reports) {
  for (const quillon::SetupReport& report : reports) {
    const char* const kind = report.isError ? "" : "warning: ";
    std::fprintf(stderr, "%s: %s%s\n", kProgram, kind, quillon::visible(report.text).c_str());
  }
}

int showState(const std::string& path, quillon::StateForm form) {
  std::vector<quillon::ConfigFault> faults;
  const std::optional<quillon::Config> config = quillon::readConfig(path, faults);
  std::string text;
  std::string error;
  std::string trouble;
  if (!config) {
    std::fprintf(stderr, "%s: %s has errors; see %s --check\n", kProgram, quillon::visible(path).c_str(), kProgram);
    return EXIT_FAILURE;
  }
  if (!quillon::reportState(*config, form, text, error, trouble)) {
    std::fprintf(stderr, "%s: %s\n", kProgram, quillon::visible(error).c_str());
    return EXIT_FAILURE;
  }
  if (!trouble.empty()) std::fprintf(stderr, "%s: warning: %s\n", kProgram, quillon::visible(trouble).c_str());
  std::fputs(text.c_str(), stdout);
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : quillon::outputFailed(kProgram);
}

}  // namespace

/// quillon-adapter [options] CONFIG: reads live logs, binds their messages and writes the events.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  std::string path;
  bool once = false;
  bool check = false;
  bool state = false;
  quillon::StateForm form = quillon::StateForm::kTable;
  CLI::App app("Reads live logs, binds their messages against format files and writes the events.", kProgram);
  app.add_option("CONFIG", path, "The configuration, see quillon-adapter(5)")->required()->type_name("");
  auto* const onceFlag = app.add_flag("--once", once, "Read all sources to their present end, then exit");
  auto* const checkFlag = app.add_flag("--check", check, "Say what is wrong with the configuration and format files");
  auto* const stateFlag = app.add_flag("--state", state, "Show the files that are known and where reading stopped");
  onceFlag->excludes(checkFlag, stateFlag);
  checkFlag->excludes(stateFlag);
  app.add_option_function<std::string>(
         "--output",
         [&form](const std::string& name) {
           form = name == "json" ? quillon::StateForm::kJson : quillon::StateForm::kTable;
         },
         "How --state shows them: table (the default) or json")
      ->check(CLI::IsMember({"table", "json"}).description(""))
      ->type_name("FORM")
      ->take_last()
      ->needs(stateFlag);
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  if (state) return showState(path, form);

  quillon::Adapter::blockSignals();
  std::vector<quillon::SetupReport> reports;
  const std::shared_ptr<const quillon::Setup> setup = quillon::loadSetup(path, reports);
  tell(reports);
  if (!setup) return EXIT_FAILURE;
  if (check) return EXIT_SUCCESS;
  return quillon::Adapter(path, setup).run(once);
}
