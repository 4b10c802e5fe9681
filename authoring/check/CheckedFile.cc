#include "authoring/check/CheckedFile.h"

#include <algorithm>
#include <utility>

#include "foundation/characters.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"

namespace quillon {

using Token = FormatPlaces::Token;

CheckedFile::CheckedFile(std::string name, std::string text)
    : name_(std::move(name)), text_(std::move(text)), lines_(text_), driver_(std::make_unique<LogDriver>()) {
  FormatReader reader(reports_, {.keepsPlaces = true, .recovers = true});
  compiles_ = reader.readText(text_, name_.c_str(), *driver_);
  places_ = reader.takePlaces();
  findStatements();
  findPartial();
  for (const FormatPlaces::Block& block : blocks()) {
    std::vector<PrintFault> faults = quillon::printFaults(*block.format);
    if (faults.empty()) continue;
    compiles_ = false;
    printFaults_.push_back({&block, std::move(faults)});
  }
}

/// A syntax error ends its statement; behind it the next token is that of a header.
void CheckedFile::findStatements() {
  using Kind = Statement::Kind;
  Kind kind = Kind::kOutside;
  const std::span<const Token> tokens = places_.tokens();
  std::size_t first = 0;
  const auto endAt = [&](std::size_t end, Kind next) {
    if (end > first) statements_.push_back({kind, tokens.subspan(first, end - first)});
    first = end;
    kind = next;
  };
  std::vector<Place> errors;
  for (const Report& report : reports()) {
    if (report.code == ReportCode::kSyntaxError) errors.push_back(report.place);
  }
  auto error = errors.begin();
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (error != errors.end() && tokens[i].place == *error) {
      ++error;
      endAt(i + 1, Kind::kOutside);
    } else if (tokens[i].kind == Token::kFormat) {
      endAt(i, Kind::kHeader);
    } else if (kind == Kind::kSlot && i == first && tokens[i].kind == Token::kEnd) {
      kind = Kind::kEnd;
    } else if (tokens[i].kind == Token::kNewline) {
      const bool isBegun = kind == Kind::kFormatString || kind == Kind::kSlot;
      endAt(i + 1, kind == Kind::kHeader ? Kind::kFormatString : isBegun ? Kind::kSlot : Kind::kOutside);
    }
  }
  endAt(tokens.size(), Kind::kOutside);
}

void CheckedFile::findPartial() {
  for (const FormatPlaces::Block& block : blocks()) {
    const FormatSpec* const parent = block.format->getFollows();
    const FormatPlaces::Block* const parentBlock = parent ? places_.blockOf(*parent) : nullptr;
    const bool inherits = !block.parentName.empty();
    if (!block.end || (inherits && (!parentBlock || partial_.contains(parentBlock)))) partial_.insert(&block);
  }
}

Place joined(const Place& first, const Place& last) {
  Place whole = first;
  whole.endLine = last.endLine;
  whole.endColumn = last.endColumn;
  if (whole.line == whole.endLine) whole.length = whole.endColumn - whole.column;
  return whole;
}

}  // namespace quillon
