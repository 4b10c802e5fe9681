#ifndef QUILLON_BENCHMARKS_CONTEST_H_
#define QUILLON_BENCHMARKS_CONTEST_H_

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

/// Who takes part under a name. `work` is given a text of whole lines and returns how many it bound. One that is slow
/// is given only the beginning of the text.
struct Contestant {
  std::string name;
  std::function<std::size_t(std::string_view text)> work;
};

struct Figure {
  double nanoseconds = 0;  ///< Processor time a line, the median of the rounds.
  double bound = 0;        ///< The share of the lines that were bound.
};

/// Lets each contestant work on `text`, in turn, for an odd number of `rounds`, so that what else the machine does hits
/// all of them alike.
std::map<std::string, Figure> contest(const std::vector<Contestant>& contestants, std::string_view text, int rounds);

/// What this thread has taken of a processor so far.
double processorSeconds();

/// The middle one; of an even number, the upper of the two in the middle.
double median(std::vector<double> values);

/// Figures under the names of rows and columns, written as a table while they come in and as JSON at the end.
class Report {
 public:
  /// What follows belongs to a new table: `columns` are the names of its figures, in their order.
  void begin(const std::string& title, std::vector<std::string> columns);
  /// A column without a figure is left blank. Writes the row to standard output.
  void add(const std::string& row, const std::map<std::string, double>& figures);
  /// The median of each column, as a last row. Returns it.
  std::map<std::string, double> addMedians();

  /// {"title": {"row": {"column": figure}}}. False when it cannot be written.
  bool writeJson(const std::string& path) const;

 private:
  struct Row {
    std::string name;
    std::map<std::string, double> figures;
  };
  struct Table {
    std::string title;
    std::vector<std::string> columns;
    std::vector<Row> rows;
  };
  std::vector<Table> tables_;
};

}  // namespace quillon

#endif  // QUILLON_BENCHMARKS_CONTEST_H_
