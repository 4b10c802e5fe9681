#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "codeset/init.h"
#include "codeset/tables.h"
#include "foundation/descriptor.h"
#include "foundation/visible.h"
#include "program/options.h"
#include "program/program.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "tools/quillon-codeset/commands.h"

namespace quillon {

namespace {

[[gnu::format(printf, 1, 0)]] void sayWith(const char* format, std::va_list arguments) {
  char* message = nullptr;
  if (vasprintf(&message, format, arguments) < 0) return;
  std::fprintf(stderr, "quillon-codeset: %s\n", visible(message).c_str());
  std::free(message);
}

// Tells of the table that a codeset would have, if it is there and cannot be had.
bool sayWhyUnreadable(const std::string& name) {
  const bool isPath = name.find_first_of("/\\") != std::string::npos;
  char normalised[128];
  get_table_name(name.c_str(), normalised, sizeof normalised);
  for (const std::string& dir : isPath ? std::vector<std::string>{""} : tableDirectories()) {
    const char* const file = isPath ? name.c_str() : normalised;
    const int error = tableError(dir, file);
    if (error == 0) continue;
    say("cannot read %s%s: %s", dir.c_str(), file, std::strerror(error));
    return true;
  }
  return false;
}

}  // namespace

void say(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  sayWith(format, arguments);
  va_end(arguments);
}

int fail(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  sayWith(format, arguments);
  va_end(arguments);
  return EXIT_FAILURE;
}

int outputFailed(int error) {
  if (error != EPIPE) say("cannot write to standard output: %s", std::strerror(error));
  return EXIT_FAILURE;
}

int tableError(const std::string& dir, const char* name) {
  errno = 0;
  std::uint32_t size = 0;
  unsigned char* const table = load_table(dir.c_str(), name, &size);
  const int error = table || errno == ENOENT || errno == ENXIO ? 0 : errno;
  std::free(table);
  return error;
}

int writeOutput(const std::string& text) {
  const int error = writeAll(STDOUT_FILENO, text);
  return error == 0 ? EXIT_SUCCESS : outputFailed(error);
}

Codeset openCodeset(const std::string& name) {
  Codeset cs(nxl_cs_new(name.c_str()));
  if (!cs && !sayWhyUnreadable(name)) {
    say("no codeset %s; \"quillon-codeset list\" shows what NXLDIR provides", name.c_str());
  }
  return cs;
}

}  // namespace quillon

namespace {

// The options of all subcommands; each uses its own few.
struct Options {
  quillon::BuildOptions build;
  quillon::ConvertOptions convert;
  std::vector<std::string> names;
  std::string shown;
};

void addCommands(CLI::App& app, Options& options) {
  CLI::App* build = app.add_subcommand("build", "Write a table file for a charset of the C library.");
  build->add_option("-o,--output", options.build.output, "Write to FILE instead of NAME.")->type_name("FILE");
  build->add_flag("--partial", options.build.partial, "Leave out what a table cannot hold instead of failing.");
  build->add_option("NAME", options.build.name, "Name of the codeset, as it stands in the table's header.")->required();
  build->add_option("CHARSET", options.build.charset, "The charset, as iconv -l lists it.")->required();

  CLI::App* convert = app.add_subcommand("convert", "Convert files or standard input.");
  convert->add_option("-f,--from", options.convert.from, "Codeset of the input.")->required()->type_name("NAME");
  convert->add_option("-t,--to", options.convert.to, "Codeset of the output.")->required()->type_name("NAME");
  convert->add_option("-o,--output", options.convert.output, "Write to FILE instead of standard output.")
      ->type_name("FILE");
  convert->add_flag("--strict", options.convert.strict, "Stop at a character that would become \"?\", and fail.");
  convert->add_flag("--count", options.convert.count, "Tell how many characters became \"?\".");
  convert->add_option("FILE", options.convert.inputs, "The inputs; standard input when there is none, and for \"-\".");

  CLI::App* name = app.add_subcommand("name", "Print the names under which codesets are looked up.");
  name->add_option("NAME", options.names, "A name as a user would write it, or OS.")->required();

  app.add_subcommand("list", "List the tables that the environment finds, and where.");

  CLI::App* show = app.add_subcommand("show", "Print a codeset's header and its characters.");
  show->add_option("NAME", options.shown, "The codeset, or a table file with a slash in its name.")->required();
}

int runCommand(const CLI::App& app, const Options& options) {
  if (app.got_subcommand("build")) return quillon::buildTable(options.build);
  if (app.got_subcommand("convert")) return quillon::convertFiles(options.convert);
  if (app.got_subcommand("name")) return quillon::printNames(options.names);
  if (app.got_subcommand("list")) return quillon::listTables();
  return quillon::showCodeset(options.shown);
}

// The directory of the installed tables, which lies where it was installed beside this program; empty when it is gone.
std::string installedTables() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path tables = (program.parent_path() / QUILLON_TABLES).lexically_normal();
  return !error && std::filesystem::is_directory(tables, error) ? tables.string() : "";
}

}  // namespace

int main(int argc, char** argv) {
  quillon::prepareProcess();
  reporting_always = true;
  CLI::App app("Builds, lists and shows the conversion tables of quillon's codesets, and converts text with them.",
               "quillon-codeset");
  app.footer("NXLDIR names the directory with the tables; see quillon-codeset(1).");
  app.require_subcommand(1);
  Options options;
  addCommands(app, options);
  const auto isFirst = [argv](const CLI::App* command) { return command->get_name() == argv[1]; };
  if (argc > 1 && argv[1][0] != '-' && app.get_subcommands(isFirst).empty()) {
    quillon::say("no command %s; there are build, convert, list, name and show", argv[1]);
    return quillon::kWrongUsage;
  }
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  quillon::setTableSearch({.always_current_directory = false, .instead_of_nxldir = installedTables()});
  return runCommand(app, options);
}
