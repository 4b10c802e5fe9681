#ifndef QUILLON_AUTHORING_CHECK_CHECKEDFILE_H_
#define QUILLON_AUTHORING_CHECK_CHECKEDFILE_H_

#include <cstddef>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "authoring/report/TextLines.h"
#include "src/adapters/logfile/common/FormatPlaces.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/Report.h"

class FormatSpec;

namespace quillon {

/// What the language takes for one line: the tokens up to a newline of its own. It can be several lines of the file,
/// because a comment behind // takes its newline along.
struct Statement {
  enum class Kind { kOutside, kHeader, kFormatString, kSlot, kEnd };

  Kind kind;
  std::span<const FormatPlaces::Token> tokens;  ///< With the newline that ends it, unless a syntax error did.
};

/// A format file as the checks see it: read once, by the reader that all programs have, to its end and with everything
/// that it can tell. Constant from then on, but for what binding changes in the formats.
///
/// Threads: belongs to one at a time.
class CheckedFile {
 public:
  /// Reads `text`; reports will say that it stands in a file named `name`.
  CheckedFile(std::string name, std::string text);
  CheckedFile(const CheckedFile&) = delete;
  CheckedFile& operator=(const CheckedFile&) = delete;

  const std::string& name() const { return name_; }
  std::string_view text() const { return text_; }

  /// True when the compiler makes class definitions of the file and ends with status 0. An open comment counts as an
  /// error, though the compiler waits for its end.
  bool compiles() const { return compiles_; }

  /// What the reading had to say, in its order.
  const std::vector<Report>& reports() const { return reports_.reports; }
  /// Why class definitions cannot be written, for each block of the driver that has such a reason.
  struct BlockFaults {
    const FormatPlaces::Block* block;
    std::vector<PrintFault> faults;
  };
  const std::vector<BlockFaults>& printFaults() const { return printFaults_; }

  const FormatPlaces& places() const { return places_; }
  const std::deque<FormatPlaces::Block>& blocks() const { return places_.blocks(); }
  const std::vector<Statement>& statements() const { return statements_; }
  /// The formats, in the order of the file.
  LogDriver& driver() const { return *driver_; }

  /// True when the block was read to its end and so was all that it inherits from: what it lacks, it does lack.
  bool isWhole(const FormatPlaces::Block& block) const { return !partial_.contains(&block); }
  /// The line that made `entry`, in whatever block, and the block; null when it was not read from this file.
  const FormatPlaces::Slot* slotOf(const MsgMapEntry& entry) const { return places_.slotOf(entry); }

  const TextLines& textLines() const { return lines_; }
  int lines() const { return lines_.count(); }
  std::string_view line(int number) const { return lines_.line(number); }
  bool isBlank(int number) const { return lines_.isBlank(number); }
  std::size_t offset(const Place& place) const { return lines_.offset(place.line, place.column); }
  std::string_view at(const Place& place) const { return lines_.at(place); }
  std::string_view at(const FormatPlaces::Token& token) const { return lines_.at(token.place); }

 private:
  void findStatements();
  void findPartial();

  const std::string name_;
  const std::string text_;
  const TextLines lines_;
  CollectedReports reports_;
  std::unique_ptr<LogDriver> driver_;
  FormatPlaces places_;
  std::vector<Statement> statements_;
  std::unordered_set<const FormatPlaces::Block*> partial_;
  std::vector<BlockFaults> printFaults_;
  bool compiles_ = false;
};

/// The range from the beginning of `first` to the end of `last`, which stands behind it. Its length is right when all
/// of it is in one line.
Place joined(const Place& first, const Place& last);

/// Where `place` begins and where it ends, without any length.
constexpr Place startOf(const Place& place) { return {place.line, place.column, 0, place.line, place.column}; }
constexpr Place endOf(const Place& place) {
  return {place.endLine, place.endColumn, 0, place.endLine, place.endColumn};
}

/// The place of `length` bytes of one line.
constexpr Place placeIn(int line, std::size_t column, std::size_t length) {
  const int from = static_cast<int>(column);
  const int bytes = static_cast<int>(length);
  return {.line = line, .column = from, .length = bytes, .endLine = line, .endColumn = from + bytes};
}

}  // namespace quillon

#endif  // QUILLON_AUTHORING_CHECK_CHECKEDFILE_H_
