#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "codeset/tables.h"
#include "tools/quillon-codeset/commands.h"

namespace quillon {

int fail(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::fputs("quillon-codeset: ", stderr);
  std::vfprintf(stderr, format, arguments);
  std::fputc('\n', stderr);
  va_end(arguments);
  return 1;
}

int finishOutput() {
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return 0;
  return fail("cannot write to standard output: %s", std::strerror(errno));
}

}  // namespace quillon

namespace {

constexpr int kUsageError = 2;

// The options of all subcommands; each uses its own few.
struct Options {
  std::string name, charset, from, to, file;
  std::vector<std::string> names;
};

void addCommands(CLI::App& app, Options& options) {
  CLI::App* build = app.add_subcommand("build", "Write a table file for a charset of the C library.");
  build->add_option("-o,--output", options.file, "Write to FILE instead of NAME.")->type_name("FILE");
  build->add_option("NAME", options.name, "Name of the codeset, as it stands in the table's header.")->required();
  build->add_option("CHARSET", options.charset, "The charset, as iconv -l lists it.")->required();

  CLI::App* convert = app.add_subcommand("convert", "Convert a file or standard input.");
  convert->add_option("-f,--from", options.from, "Codeset of the input.")->required()->type_name("NAME");
  convert->add_option("-t,--to", options.to, "Codeset of the output.")->required()->type_name("NAME");
  convert->add_option("FILE", options.file, "The input; standard input when it is missing or \"-\".");

  CLI::App* name = app.add_subcommand("name", "Print the names under which codesets are looked up.");
  name->add_option("NAME", options.names, "A name as a user would write it, or OS.")->required();

  app.add_subcommand("list", "List the tables that the environment finds, and where.");

  CLI::App* show = app.add_subcommand("show", "Print a codeset's header and its characters.");
  show->add_option("NAME", options.name, "The codeset, or a table file with a slash in its name.")->required();
}

int runCommand(const CLI::App& app, const Options& options) {
  if (app.got_subcommand("build")) return quillon::buildTable(options.name, options.charset, options.file);
  if (app.got_subcommand("convert")) return quillon::convertFile(options.from, options.to, options.file);
  if (app.got_subcommand("name")) return quillon::printNames(options.names);
  if (app.got_subcommand("list")) return quillon::listTables();
  return quillon::showCodeset(options.name);
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
  CLI::App app("Builds, lists and shows the conversion tables of quillon's codesets, and converts text with them.",
               "quillon-codeset");
  app.set_version_flag("--version", "quillon-codeset " QUILLON_VERSION);
  app.footer("NXLDIR names the directory with the tables; see quillon-codeset(1).");
  app.require_subcommand(1);
  Options options;
  addCommands(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? quillon::finishOutput() : kUsageError;
  }
  quillon::setTableSearch({.always_current_directory = false, .instead_of_nxldir = installedTables()});
  return runCommand(app, options);
}
