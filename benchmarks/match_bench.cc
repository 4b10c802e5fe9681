// How fast messages are bound, beside others on the same lines in the same run.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/binders.h"
#include "benchmarks/contest.h"
#include "benchmarks/generated_formats.h"
#include "benchmarks/run_program.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/log_lines.h"
#include "tests/match/support/scaled_set.h"

namespace quillon {
namespace {

struct Options {
  std::string logs;
  std::string json;
  std::vector<std::string> only;
  std::size_t lines = 200'000;
  int rounds = 5;
};

/// A format file and as many lines for it as are asked for.
struct Workload {
  std::string name;
  std::string formatFile;  ///< Its path.
  std::string text;        ///< The lines, each with a newline.
};

double lineCount(const std::string& text) { return static_cast<double>(std::count(text.begin(), text.end(), '\n')); }

/// The lines of a system, again and again with other numbers in them. A line that thereby came to another format, or to
/// none, is taken as it was.
Workload repeated(const System& system, std::size_t lines) {
  const LogDriver driver(system.formats.c_str(), nullptr, 1);
  Matcher matcher(FormatSet::make(driver));
  const auto placeOf = [&matcher](const std::string& line) {
    const Match* const match = matcher.bind(line);
    return match ? static_cast<long>(match->place) : -1;
  };
  Workload workload{system.name, system.formats, ""};
  Random random(7);
  for (std::size_t n = 0; n < lines; ++n) {
    const std::string& line = system.lines[n % system.lines.size()];
    const std::string renewed = withOtherNumbers(line, random);
    workload.text += placeOf(renewed) == placeOf(line) ? renewed : line;
    workload.text += '\n';
  }
  return workload;
}

/// A contestant that may not be there.
void enter(std::vector<Contestant>& contestants, const std::string& name, const std::shared_ptr<Binder>& binder) {
  if (binder) contestants.push_back({name, [binder](std::string_view text) { return binder->bindAll(text); }});
}

class Bench {
 public:
  explicit Bench(const Options& options) : options_(options) {}

  /// Returns the exit status.
  int run() {
    measureSystems();
    measureScaled("one", 1);
    measureScaled("19", ScaledSet::kMostHeaders);
    measureUnknownLines();
    measureHostileLines();
    measureBuilding();
    measureProgram();
    if (options_.json.empty() || report_.writeJson(options_.json)) return EXIT_SUCCESS;
    std::perror(options_.json.c_str());
    return EXIT_FAILURE;
  }

 private:
  const std::vector<std::string> kColumns = {"floor", "engine", "/floor", "plain", "re2+pcre2", "lognorm"};

  bool wanted(const std::string& part) const {
    return options_.only.empty() || std::find(options_.only.begin(), options_.only.end(), part) != options_.only.end();
  }

  std::vector<System> systems() const {
    std::vector<System> all = systemsIn(EXAMPLES);
    if (options_.logs.empty()) return all;
    for (System& system : systemsIn(options_.logs)) all.push_back(std::move(system));
    return all;
  }

  /// One row: nanoseconds a line, and what share each of them bound.
  void addRow(const std::string& name, const LogDriver& driver, const std::string& text) {
    std::vector<Contestant> contestants;
    enter(contestants, "floor", makeFloor());
    enter(contestants, "engine", makeEngine(driver));
    enter(contestants, "plain", makePlain(driver));
    const FormatList formats = formatsOf(driver);
    enter(contestants, "re2+pcre2", makeRegularExpressions(formats));
    enter(contestants, "lognorm", makeLognorm(formats));
    std::map<std::string, double> figures;
    for (const auto& [contestant, figure] : contest(contestants, text, options_.rounds)) {
      figures[contestant] = figure.nanoseconds;
      figures[contestant + " %"] = 100 * figure.bound;
    }
    figures["/floor"] = figures["engine"] / figures["floor"];
    figures["formats"] = static_cast<double>(formats.size());
    report_.add(name, figures);
  }

  void begin(const std::string& title) {
    std::vector<std::string> columns = kColumns;
    columns.insert(columns.begin(), "formats");
    for (const char* contestant : {"engine", "re2+pcre2", "lognorm"}) {
      columns.push_back(std::string(contestant) + " %");
    }
    report_.begin(title, columns);
  }

  void measureSystems() {
    if (!wanted("systems")) return;
    begin("Real logs, ns a line");
    for (const System& system : systems()) {
      const Workload workload = repeated(system, options_.lines);
      LogDriver driver(workload.formatFile.c_str(), nullptr, 1);
      driver.orderFmts();
      addRow(workload.name, driver, workload.text);
    }
    const std::map<std::string, double> medians = report_.addMedians();
    std::printf("engine: %.1f million lines a second in the median\n", 1e3 / medians.at("engine"));
  }

  std::string linesOf(const ScaledSet& set) const {
    Random random(11);
    std::string text;
    for (std::size_t n = 0; n < options_.lines; ++n) text += set.line(random) + '\n';
    return text;
  }

  std::string unboundLinesOf(const ScaledSet& set, const LogDriver& driver) const {
    Random random(12);
    Matcher matcher(FormatSet::make(driver));
    std::string text;
    for (std::size_t n = 0; n < options_.lines;) {
      const std::string line = set.unknownLine(random);
      if (matcher.bind(line)) continue;
      text += line + '\n';
      ++n;
    }
    return text;
  }

  void measureScaled(const std::string& headers, std::size_t layouts) {
    if (!wanted("scaled")) return;
    begin("Generated formats, headers: " + headers + ", ns a line");
    for (const std::size_t formats : {10U, 100U, 1000U, 10'000U}) {
      const ScaledSet set(formats, layouts);
      const TemporaryFile file(formatFile(set.formats()));
      const LogDriver driver(file.path(), nullptr, 1);
      addRow(std::to_string(formats), driver, linesOf(set));
    }
  }

  void measureUnknownLines() {
    if (!wanted("unknown")) return;
    begin("Lines that no format binds, 10000 formats, ns a line");
    for (const std::size_t layouts : {std::size_t{1}, ScaledSet::kMostHeaders}) {
      const ScaledSet set(10'000, layouts);
      const TemporaryFile file(formatFile(set.formats()));
      const LogDriver driver(file.path(), nullptr, 1);
      addRow(std::to_string(layouts) + " headers", driver, unboundLinesOf(set, driver));
    }
  }

  void measureHostileLines();
  void measureBuilding();
  void measureProgram();
  void addProgramRow(const Workload& workload);

  const Options& options_;
  Report report_;
};

std::string times(int n, const char* text) {
  std::string all;
  while (n-- > 0) all += text;
  return all;
}

/// Messages that make a field be tried again as often as it can.
void Bench::measureHostileLines() {
  if (!wanted("hostile")) return;
  struct Hostile {
    const char* name;
    const char* format;
    std::string message;
  };
  const Hostile hostile[] = {
      {"star, one word of bounds", "w %s*! z", "w " + std::string(20000, '!')},
      {"star, one-letter words", "%s*a z", times(10000, "a ")},
      {"plus, one-letter words", "%s+a z", times(10000, "a ")},
      {"string, glued constants", "%sab z", times(500, "ab")},
      {"star, glued constants", "%s*ab z", times(500, "ab")},
      {"three stars", "%s*a%s*a%s*a z", times(10000, "a ")},
      {"star, long bound", "%s*aaaaaaaaaaaaaaaab z", std::string(20000, 'a')},
      {"star, white space", "%s* %s* %s* z", "w" + std::string(20000, ' ') + "x"},
      {"string, brackets", "%s] z", std::string(20000, ']') + " x"},
      {"time, brackets", "%t %s] z", "a b c " + std::string(20000, ']') + " x"},
  };
  report_.begin("Hostile lines, ns a byte", {"engine", "plain"});
  for (const Hostile& worst : hostile) {
    const TemporaryFile file(std::string("FORMAT Hostile\n") + worst.format + "\nEND\n");
    const LogDriver driver(file.path(), nullptr, 1);
    std::vector<Contestant> contestants;
    enter(contestants, "engine", makeEngine(driver));
    enter(contestants, "plain", makePlain(driver));
    std::map<std::string, double> figures;
    for (const auto& [name, figure] : contest(contestants, times(100, (worst.message + '\n').c_str()), options_.rounds))
      figures[name] = figure.nanoseconds / static_cast<double>(worst.message.size());
    report_.add(worst.name, figures);
  }
}

/// What making the engine takes, and what its memory adds to that of the model.
void Bench::measureBuilding() {
  if (!wanted("building")) return;
  report_.begin("Making the engine", {"ms", "MiB", "MiB model"});
  for (const std::size_t formats : {1000U, 10'000U}) {
    for (const std::size_t layouts : {std::size_t{1}, ScaledSet::kMostHeaders}) {
      const TemporaryFile file(formatFile(ScaledSet(formats, layouts).formats()));
      const auto peak = [&file](const char* work) {
        return runProgram({"/proc/self/exe", work, file.path()}).peakBytes / (1 << 20);
      };
      const LogDriver driver(file.path(), nullptr, 1);
      std::vector<double> milliseconds;
      for (int round = 0; round < options_.rounds; ++round) {
        const double start = processorSeconds();
        const auto set = FormatSet::make(driver);
        milliseconds.push_back(1e3 * (processorSeconds() - start));
      }
      const double model = peak("--read") - peak("--nothing");
      report_.add(
          std::to_string(formats) + " formats, " + std::to_string(layouts) + " headers",
          {{"ms", median(milliseconds)}, {"MiB", peak("--read-and-make") - peak("--read")}, {"MiB model", model}});
    }
  }
}

/// quillon-match as a whole: reading, binding, writing to /dev/null.
void Bench::measureProgram() {
  if (!wanted("program")) return;
  report_.begin("quillon-match, million lines a second",
                {"event", "json", "plain", "jobs 1", "jobs 2", "2/1", "MiB event", "MiB json"});
  for (const System& system : systems()) addProgramRow(repeated(system, options_.lines));
  report_.addMedians();
  for (const std::size_t layouts : {std::size_t{1}, ScaledSet::kMostHeaders}) {
    const ScaledSet set(10'000, layouts);
    const TemporaryFile file(formatFile(set.formats()));
    addProgramRow({"10000 formats, " + std::to_string(layouts) + " headers", file.path(), linesOf(set)});
  }
}

void Bench::addProgramRow(const Workload& workload) {
  const TemporaryFile log(workload.text);
  const TemporaryFile beginning(workload.text.substr(0, workload.text.find('\n', workload.text.size() / 100) + 1));
  const double lines = lineCount(workload.text);
  std::map<std::string, std::vector<double>> rates;
  std::map<std::string, double> figures;
  const auto run = [&](const std::string& column, const TemporaryFile& file, bool wall,
                       std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), QUILLON_MATCH);
    arguments.push_back(workload.formatFile);
    arguments.emplace_back(file.path());
    const Expense expense = runProgram(arguments);
    if (expense.status != 0) return;
    const double part = &file == &log ? 1 : 0.01;
    rates[column].push_back(1e-6 * part * lines / (wall ? expense.seconds : expense.processorSeconds));
    figures["MiB " + column] = expense.peakBytes / (1 << 20);
  };
  for (int round = 0; round < options_.rounds; ++round) {
    run("event", log, false, {"--jobs", "1"});
    run("json", log, false, {"--jobs", "1", "--output", "json"});
    run("jobs 1", log, true, {"--jobs", "1"});
    run("jobs 2", log, true, {"--jobs", "2"});
    run("plain", beginning, false, {"--engine", "plain"});
  }
  for (const auto& [column, values] : rates) figures[column] = median(values);
  if (figures.contains("jobs 1")) figures["2/1"] = figures["jobs 2"] / figures["jobs 1"];
  report_.add(workload.name, figures);
}

/// What a process of its own does, so that its peak memory can be read.
bool worked(int argc, char* argv[]) {
  const std::string work = argc == 3 ? argv[1] : "";
  if (work == "--nothing") return true;
  if (work != "--read" && work != "--read-and-make") return false;
  const LogDriver driver(argv[2], nullptr, 1);
  if (work == "--read-and-make") FormatSet::make(driver);
  return true;
}

}  // namespace
}  // namespace quillon

int main(int argc, char* argv[]) {
  quillon::runAsStarter(argc, argv);
  if (quillon::worked(argc, argv)) return EXIT_SUCCESS;
  quillon::Options options;
  CLI::App app("How fast messages are bound, beside others in the same run. Medians of processor time.", "match_bench");
  app.add_option("--logs", options.logs, "Also the NAME.log beside each NAME.fmt in FOLDER")
      ->check(CLI::ExistingDirectory)
      ->envname("QUILLON_LOGS");
  app.add_option("--json", options.json, "Write all figures to FILE as well");
  app.add_option("--only", options.only, "systems, scaled, unknown, hostile, building or program")
      ->check(CLI::IsMember({"systems", "scaled", "unknown", "hostile", "building", "program"}));
  app.add_option("--lines", options.lines, "For each system")->check(CLI::PositiveNumber);
  app.add_option("--rounds", options.rounds, "Of which the median counts")->check(CLI::PositiveNumber);
  CLI11_PARSE(app, argc, argv);
  return quillon::Bench(options).run();
}
