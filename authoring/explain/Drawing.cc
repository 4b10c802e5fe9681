#include "authoring/explain/Drawing.h"

#include <unistr.h>
#include <uniwidth.h>

#include <algorithm>
#include <cstdio>

#include "foundation/utf8.h"

namespace quillon {
namespace {

constexpr const char* kMarkColour = "\x1b[1;31m";
constexpr const char* kLabelColour = "\x1b[36m";
constexpr const char* kPlain = "\x1b[0m";

/// The columns of a well-formed character: 0, 1 or 2, or -1 for one that a terminal does not show.
int widthOf(std::string_view sequence) {
  ucs4_t character = 0;
  u8_mbtouc(&character, reinterpret_cast<const std::uint8_t*>(sequence.data()), sequence.size());
  return uc_width(character, "UTF-8");
}

void appendEscape(std::vector<std::string>& columns, std::string_view bytes) {
  for (const char c : bytes) {
    char escape[8];
    std::snprintf(escape, sizeof escape,
                  c == '\t'   ? "\\t"
                  : c == '\n' ? "\\n"
                              : "\\x%02X",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    for (const char* p = escape; *p; ++p) columns.emplace_back(1, *p);
  }
}

bool isBlank(std::string_view row) { return row.find_first_not_of(' ') == std::string_view::npos; }

void appendRow(std::string& text, std::string_view indent, std::string_view row, const char* colour) {
  const std::size_t end = row.find_last_not_of(' ') + 1;
  text += indent;
  if (colour) text += colour;
  text += row.substr(0, end);
  if (colour) text += kPlain;
  text += '\n';
}

}  // namespace

std::vector<std::string> columnsOf(std::string_view text) {
  std::vector<std::string> columns;
  columns.reserve(text.size());
  while (!text.empty()) {
    const Utf8Sequence sequence = firstSequence(text);
    const std::string_view bytes = text.substr(0, sequence.length);
    text.remove_prefix(sequence.length);
    const int width = sequence.wellFormed ? widthOf(bytes) : -1;
    if (width < 0) {
      appendEscape(columns, bytes);
    } else if (width == 0 && !columns.empty()) {
      columns.back() += bytes;
    } else {
      columns.emplace_back(bytes);
      if (width == 2) columns.emplace_back();
    }
  }
  return columns;
}

Drawing::Drawing(const std::vector<AlignedPiece>& pieces, const std::vector<Part>& parts, std::string_view message)
    : message_(message) {
  std::uint32_t at = 0;
  for (const AlignedPiece& piece : pieces) {
    if (piece.from > at) addMessage(at, piece.from);
    add(piece, piece.part < parts.size() ? &parts[piece.part] : nullptr);
    at = std::max(at, piece.to);
  }
  addMessage(at, static_cast<std::uint32_t>(message.size()));
}

void Drawing::add(const AlignedPiece& piece, const Part* part) {
  using State = AlignedPiece::State;
  const std::size_t first = columns_.size();
  addMessage(piece.from, piece.to);
  const bool isField = part && part->isField() && piece.state != State::kExtra;
  std::vector<std::string> format;
  if (piece.state == State::kFits && isField) {
    format.assign(columns_.size() - first, "~");
  } else if (piece.state == State::kMissing && isField) {
    format = columnsOf(part->text);
  } else {
    format = columnsOf(piece.text);
  }
  while (columns_.size() < first + format.size()) columns_.push_back({" ", " ", ' ', piece.to});
  for (std::size_t i = 0; i < format.size(); ++i) columns_[first + i].format = format[i];
  if (piece.state != State::kFits) {
    for (std::size_t i = first; i < columns_.size(); ++i) columns_[i].mark = '^';
  }
  const bool isNamed = !labels_.empty() && part && labels_.back().text == "$" + std::to_string(part->variable);
  if (isField && first < columns_.size() && !isNamed) labels_.push_back({first, "$" + std::to_string(part->variable)});
}

void Drawing::addMessage(std::uint32_t from, std::uint32_t to) {
  std::uint32_t byte = from;
  for (std::string& shown : columnsOf(message_.substr(from, to - from))) {
    columns_.push_back({std::move(shown), " ", ' ', byte});
    // An escape has more columns than bytes, and a wide character fewer: the last ones share what is left.
    byte = std::min(to, byte + static_cast<std::uint32_t>(std::max<std::size_t>(1, columns_.back().line.size())));
  }
}

void Drawing::markRange(std::uint32_t from, std::uint32_t to) {
  for (Column& column : columns_) {
    if (column.byte >= from && column.byte < to && column.mark == ' ') column.mark = '-';
  }
}

/// The names of variables between two columns, each in the first row where there is room for it.
std::vector<std::string> Drawing::labelRows(std::size_t first, std::size_t last) const {
  std::vector<std::string> rows;
  for (const Label& label : labels_) {
    if (label.column < first || label.column >= last) continue;
    const std::size_t at = label.column - first;
    const auto hasRoom = [at](const std::string& row) { return row.empty() || row.size() < at; };
    auto row = std::find_if(rows.begin(), rows.end(), hasRoom);
    if (row == rows.end()) row = rows.emplace(row);
    row->resize(at, ' ');
    *row += label.text;
  }
  return rows;
}

std::string Drawing::text(const Style& style, std::string_view indent) const {
  const std::size_t width = std::max<std::size_t>(style.width, 20);
  std::string text;
  for (std::size_t first = 0; first < columns_.size();) {
    std::size_t last = std::min(first + width, columns_.size());
    if (last < columns_.size() && columns_[last].line.empty()) --last;  // a wide character stays whole
    std::string line;
    std::string format;
    std::string marks;
    for (std::size_t i = first; i < last; ++i) {
      line += columns_[i].line;
      format += columns_[i].format;
      marks += columns_[i].mark;
    }
    appendRow(text, indent, line, nullptr);
    appendRow(text, indent, format, nullptr);
    if (!isBlank(marks)) appendRow(text, indent, marks, style.colour ? kMarkColour : nullptr);
    for (const std::string& row : labelRows(first, last))
      appendRow(text, indent, row, style.colour ? kLabelColour : nullptr);
    first = last;
  }
  return text;
}

}  // namespace quillon
