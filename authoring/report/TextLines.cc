#include "authoring/report/TextLines.h"

#include <algorithm>

#include "foundation/characters.h"

namespace quillon {

TextLines::TextLines(std::string_view text) : text_(text), starts_{0} {
  for (std::size_t at = text.find('\n'); at < text.size(); at = text.find('\n', at + 1)) starts_.push_back(at + 1);
}

std::string_view TextLines::line(int number) const {
  const auto index = static_cast<std::size_t>(number) - 1;
  if (number < 1 || index >= starts_.size()) return {};
  const std::size_t end = index + 1 < starts_.size() ? starts_[index + 1] - 1 : text_.size();
  return text_.substr(starts_[index], end - starts_[index]);
}

std::size_t TextLines::offset(int line, int column) const {
  const auto index = static_cast<std::size_t>(line) - 1;
  if (line < 1 || index >= starts_.size()) return text_.size();
  return std::min(starts_[index] + static_cast<std::size_t>(column) - 1, text_.size());
}

bool TextLines::isBlank(int number) const { return std::ranges::all_of(line(number), isWhiteSpace); }

std::string_view TextLines::at(const Place& place) const {
  const std::size_t start = offset(place.line, place.column);
  return text_.substr(start, std::max(offset(place.endLine, place.endColumn), start) - start);
}

}  // namespace quillon
