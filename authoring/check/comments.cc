#include "authoring/check/comments.h"

#include <algorithm>
#include <utility>

#include "foundation/characters.h"

namespace quillon {

const FormatPlaces::Comment* lineCommentBehind(const CheckedFile& file, const Place& end) {
  const auto& comments = file.places().comments();
  auto found = std::ranges::lower_bound(comments, std::pair(end.endLine, end.endColumn), {}, [](const auto& comment) {
    return std::pair(comment.place.line, comment.place.column);
  });
  for (; found != comments.end() && found->place.line == end.endLine; ++found) {
    if (found->text.starts_with("//")) return &*found;
  }
  return nullptr;
}

Fix commentMoved(const CheckedFile& file, const Place& start, const FormatPlaces::Comment& comment) {
  Place gone = comment.place;
  const std::string_view line = file.line(gone.line);
  while (gone.column > 1 && isWhiteSpace(line[static_cast<std::size_t>(gone.column) - 2])) {
    --gone.column;
    ++gone.length;
  }
  std::string text = comment.text + "\n";
  const std::string_view indent = file.line(start.line).substr(0, static_cast<std::size_t>(start.column) - 1);
  if (std::ranges::all_of(indent, isWhiteSpace)) text += indent;
  return {"put the comment in a line of its own", {{startOf(start), text}, {gone, ""}}};
}

}  // namespace quillon
