#ifndef QUILLON_AUTHORING_EXPLAIN_DRAWING_H_
#define QUILLON_AUTHORING_EXPLAIN_DRAWING_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "authoring/explain/Alignment.h"

namespace quillon {

/// `text` as a terminal shows it, one entry a column; that behind the first column of a wide character is empty. What
/// would not be seen, or would do something, is written out: a tab is `\t`, a control character or a byte that is not
/// UTF-8 `\x1B`. Characters without a width go with the one before them. Needs no locale.
std::vector<std::string> columnsOf(std::string_view text);

/// A message with the format string under it, column by column:
///
///     a  bx c
///     a ~~~ d
///           ^
///       $1
///
/// Constants stand as they are, fields as "~" with their variable below, departures are marked. For one thread at a
/// time.
class Drawing {
 public:
  struct Style {
    bool colour = false;
    std::size_t width = 100;  ///< Columns of a line before it goes on below; at least 20.
  };

  /// Of `pieces`, in their order, over `parts`, which both must live as long as this object.
  Drawing(const std::vector<AlignedPiece>& pieces, const std::vector<Part>& parts, std::string_view message);

  /// Also marks the bytes from `from` up to `to` of the message, as a range that something is in.
  void markRange(std::uint32_t from, std::uint32_t to);

  /// Whole lines, each behind `indent`.
  std::string text(const Style& style, std::string_view indent) const;

 private:
  struct Column {
    std::string line;
    std::string format = " ";
    char mark = ' ';
    std::uint32_t byte = 0;  ///< Of the message.
  };
  struct Label {
    std::size_t column;
    std::string text;
  };

  void add(const AlignedPiece& piece, const Part* part);
  void addMessage(std::uint32_t from, std::uint32_t to);
  std::vector<std::string> labelRows(std::size_t first, std::size_t last) const;

  const std::string_view message_;
  std::vector<Column> columns_;
  std::vector<Label> labels_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_DRAWING_H_
