#include "benchmarks/contest.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <utility>

namespace quillon {

namespace {

constexpr double kMostSeconds = 0.4;  ///< What a round of one contestant may take.

std::size_t linesIn(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

std::string_view firstLines(std::string_view text, std::size_t lines) {
  std::size_t end = 0;
  for (; lines > 0 && end < text.size(); --lines) end = text.find('\n', end) + 1;
  return text.substr(0, end);
}

struct Runner {
  const Contestant* contestant;
  std::string_view text;
  std::size_t lines;
  std::vector<double> nanoseconds;
  double bound = 0;

  double run() {
    const double start = processorSeconds();
    const std::size_t count = contestant->work(text);
    const double seconds = processorSeconds() - start;
    bound = static_cast<double>(count) / static_cast<double>(lines);
    return seconds;
  }
};

/// Gives the contestant as much of the text as it manages in time; that warms it up, too.
Runner makeRunner(const Contestant& contestant, std::string_view text) {
  const std::size_t all = linesIn(text);
  Runner runner{&contestant, firstLines(text, 20), std::min<std::size_t>(all, 20), {}, 0};
  for (double seconds = runner.run(); runner.lines < all && seconds < kMostSeconds / 4;) {
    runner.lines = std::min(runner.lines * 4, all);
    runner.text = firstLines(text, runner.lines);
    seconds = runner.run();
  }
  return runner;
}

/// Three digits at least, and no more than are worth reading.
std::string shown(double figure) {
  char text[32];
  const double size = std::abs(figure);
  std::snprintf(text, sizeof text, "%.*f", size >= 100 ? 0 : size >= 10 ? 1 : 2, figure);
  return text;
}

}  // namespace

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::map<std::string, Figure> contest(const std::vector<Contestant>& contestants, std::string_view text, int rounds) {
  std::vector<Runner> runners;
  runners.reserve(contestants.size());
  for (const Contestant& contestant : contestants) runners.push_back(makeRunner(contestant, text));
  for (int round = 0; round < rounds; ++round) {
    for (Runner& runner : runners) runner.nanoseconds.push_back(1e9 * runner.run() / static_cast<double>(runner.lines));
  }
  std::map<std::string, Figure> figures;
  for (const Runner& runner : runners) figures[runner.contestant->name] = {median(runner.nanoseconds), runner.bound};
  return figures;
}

void Report::begin(const std::string& title, std::vector<std::string> columns) {
  tables_.push_back({title, std::move(columns), {}});
  std::printf("\n%s\n%-28s", title.c_str(), "");
  for (const std::string& column : tables_.back().columns)
    std::printf(" %*s", std::max(8, static_cast<int>(column.size())), column.c_str());
  std::printf("\n");
}

void Report::add(const std::string& row, const std::map<std::string, double>& figures) {
  Table& table = tables_.back();
  table.rows.push_back({row, figures});
  std::printf("%-28s", row.c_str());
  for (const std::string& column : table.columns) {
    const auto found = figures.find(column);
    std::printf(" %*s", std::max(8, static_cast<int>(column.size())),
                found == figures.end() ? "" : shown(found->second).c_str());
  }
  std::printf("\n");
  std::fflush(stdout);
}

std::map<std::string, double> Report::addMedians() {
  std::map<std::string, double> medians;
  for (const std::string& column : tables_.back().columns) {
    std::vector<double> values;
    for (const Row& row : tables_.back().rows) {
      if (row.figures.contains(column)) values.push_back(row.figures.at(column));
    }
    if (!values.empty()) medians[column] = median(values);
  }
  add("median", medians);
  return medians;
}

bool Report::writeJson(const std::string& path) const {
  std::FILE* const file = std::fopen(path.c_str(), "w");
  if (!file) return false;
  const char* table = "{";  // what comes before the next one; no name needs escaping
  for (const Table& each : tables_) {
    std::fprintf(file, "%s\n\"%s\": {", table, each.title.c_str());
    table = ",";
    const char* row = "";
    for (const Row& one : each.rows) {
      std::fprintf(file, "%s\n  \"%s\": {", row, one.name.c_str());
      row = ",";
      const char* figure = "";
      for (const auto& [column, value] : one.figures) {
        std::fprintf(file, "%s\"%s\": %.6g", figure, column.c_str(), value);
        figure = ", ";
      }
      std::fprintf(file, "}");
    }
    std::fprintf(file, "}");
  }
  std::fprintf(file, "}\n");
  const bool written = std::ferror(file) == 0;
  return std::fclose(file) == 0 && written;
}

}  // namespace quillon
