#ifndef QUILLON_AUTHORING_REPORT_TEXTLINES_H_
#define QUILLON_AUTHORING_REPORT_TEXTLINES_H_

#include <cstddef>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/Report.h"

namespace quillon {

/// The lines of a text by their numbers, as places have them. Refers to the text and holds none of it. For any thread.
class TextLines {
 public:
  explicit TextLines(std::string_view text);

  std::string_view text() const { return text_; }
  /// What is behind the last newline counts as a line, also when it is empty.
  int count() const { return static_cast<int>(starts_.size()); }
  /// Without its newline; empty when there is no such line.
  std::string_view line(int number) const;
  /// True when the line is empty or holds white space alone.
  bool isBlank(int number) const;
  /// Bytes before line and column, at most all.
  std::size_t offset(int line, int column) const;
  /// What stands between the ends of `place`.
  std::string_view at(const Place& place) const;

 private:
  std::string_view text_;
  std::vector<std::size_t> starts_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_REPORT_TEXTLINES_H_
