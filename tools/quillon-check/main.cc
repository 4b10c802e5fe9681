#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "foundation/visible.h"
#include "program/options.h"
#include "program/program.h"
#include "tools/quillon-check/Checking.h"

namespace {

using quillon::FindingCode;

/// Accepts codes and their names. Those of the compiler's own errors can be ignored by nobody: a file with one of them
/// does not compile.
CLI::Validator isCode(bool mayBeError) {
  return CLI::Validator(
      [mayBeError](const std::string& text) -> std::string {
        if (mayBeError && text == "all") return "";
        const auto code = quillon::codeNamed(text);
        if (!code) return "there is no code " + text;
        const bool isError = quillon::codeEntry(*code).severity == quillon::Severity::kError;
        return isError && !mayBeError ? text + " cannot be ignored: such a file does not compile" : "";
      },
      "");
}

void addCodes(std::set<FindingCode>& codes, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    for (const quillon::CodeEntry& entry : quillon::allCodes()) {
      if (text == "all" || text == entry.name || text == quillon::codeText(entry.code)) codes.insert(entry.code);
    }
  }
}

}  // namespace

/// quillon-check [options] FILE...: says what is wrong with format files, or likely to be.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  quillon::CheckOptions options;
  std::vector<std::string> errors;
  std::vector<std::string> ignored;
  std::string explained;
  bool lists = false;
  CLI::App app("Says what is wrong with format files, or likely to be, and whether they compile.",
               quillon::kCheckProgram);
  app.add_option("FILE", options.files, "The format files")->type_name("");
  app.add_option("--output", options.output, "How findings are written: text (the default), json, sarif, tap or junit")
      ->check(CLI::IsMember({"text", "json", "sarif", "tap", "junit"}).description(""))
      ->type_name("FORM")
      ->take_last();
  app.add_option("--samples", options.samples, "Run the samples of FILE, too")
      ->check([](const std::string& name) { return std::string(name.empty() ? "the name is empty" : ""); })
      ->type_name("FILE")
      ->take_last();
  app.add_flag("--event-log", options.eventLog, "Samples are messages of an event log: a newline is white space");
  app.add_flag("--fix", options.fix, "Apply the fixes that are safe");
  app.add_flag("--dry-run", options.dryRun, "Show as a diff what --fix would change, and change nothing");
  app.add_option("--error", errors, "Make findings of CODE errors; all: of every code")
      ->check(isCode(true))
      ->type_name("CODE")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->take_all();
  app.add_option("--ignore", ignored, "Leave findings of CODE out")
      ->check(isCode(false))
      ->type_name("CODE")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->take_all();
  app.add_flag("--file-order", options.fileOrder,
               "Blocks are tried in the order of the file; the default is last first");
  app.add_option("--explain", explained, "Say what CODE means, with an example")
      ->check(isCode(true))
      ->type_name("CODE")
      ->take_last();
  app.add_flag("--list", lists, "List all codes");
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  if (lists) return quillon::listCodes();
  if (const auto code = quillon::codeNamed(explained)) return quillon::explainCode(*code);
  if (options.files.empty() || explained == "all") {
    std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", quillon::kCheckProgram,
                 explained.empty() ? "FILE is required" : "--explain takes one code", quillon::kCheckProgram);
    return quillon::kWrongUsage;
  }
  if (!options.samples.empty() && options.files.size() != 1) {
    std::fprintf(stderr, "%s: --samples takes one FILE\nTry '%s --help'.\n", quillon::kCheckProgram,
                 quillon::kCheckProgram);
    return quillon::kWrongUsage;
  }
  options.fix |= options.dryRun;
  addCodes(options.errors, errors);
  addCodes(options.ignored, ignored);
  return quillon::checkFiles(options);
}
