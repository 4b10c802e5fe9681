// Traps of blocks among other blocks, and in what stands between the lines.

#include <string>
#include <string_view>
#include <unordered_map>

#include "authoring/check/checks.h"
#include "authoring/check/comments.h"

namespace quillon {
namespace {

using Block = FormatPlaces::Block;
using Token = FormatPlaces::Token;

/// Blocks of one name, and who follows one of them.
void checkNames(const CheckedFile& file, Findings& findings) {
  struct Named {
    const Block* first;
    const Block* second;
  };
  std::unordered_map<std::string_view, Named> names;
  for (const Block& block : file.blocks()) {
    const auto parent = names.find(block.parentName);
    if (!block.parentName.empty() && parent != names.end() && parent->second.second) {
      Finding& found =
          findings.add(FindingCode::kAmbiguousParent, block.parent,
                       "there is more than one block " + quoted(block.parentName) + "; this follows the first");
      found.notes.push_back({parent->second.first->name, "this one"});
      found.notes.push_back({parent->second.second->name, "and not this one"});
      found.hint = "give each block a name of its own";
    }
    const auto [earlier, isNew] = names.emplace(file.at(block.name), Named{&block, nullptr});
    if (isNew) continue;
    if (!earlier->second.second) earlier->second.second = &block;
    Finding& found = findings.add(FindingCode::kSameName, block.name,
                                  "there is a block " + quoted(file.at(block.name)) + " already");
    found.notes.push_back({earlier->second.first->name, "the first one"});
    found.hint = "give each block a name of its own: FOLLOWS finds the first one alone";
  }
}

/// Lines that only a blank line behind a comment ends.
void checkSavedLines(const CheckedFile& file, Findings& findings) {
  using Kind = Statement::Kind;
  for (const Statement& statement : file.statements()) {
    if (statement.kind == Kind::kOutside || statement.kind == Kind::kFormatString) continue;
    if (statement.tokens.size() < 2 || statement.tokens.back().kind != Token::kNewline) continue;
    const Place& newline = statement.tokens.back().place;
    const Place& last = statement.tokens[statement.tokens.size() - 2].place;
    if (newline.line == last.endLine || !file.isBlank(newline.line)) continue;
    const FormatPlaces::Comment* const comment = lineCommentBehind(file, last);
    const bool isError = statement.kind == Kind::kSlot && statement.tokens.size() == 2;  // told as such
    if (!comment || isError) continue;
    Finding& found = findings.add(FindingCode::kBlankLineSaves, comment->place,
                                  "this comment takes the end of its line along; the blank line behind it stands in");
    found.notes.push_back({startOf(newline), "without this line the next one is read as part of that"});
    found.hint = "put the comment in a line of its own";
    found.fix = commentMoved(file, statement.tokens[0].place, *comment);
    found.fix->edits.push_back({{newline.line, 1, 0, newline.line + 1, 1}, ""});
  }
}

void checkComments(const CheckedFile& file, Findings& findings) {
  for (const FormatPlaces::Comment& comment : file.places().comments()) {
    if (!comment.text.starts_with("/*")) continue;
    const std::size_t inner = comment.text.find("\n/*");
    if (inner == std::string::npos) continue;
    int line = comment.place.line + 1;
    for (std::size_t i = 0; i < inner; ++i) line += comment.text[i] == '\n';
    Finding& found = findings.add(FindingCode::kCommentInComment, placeIn(line, 1, 2),
                                  "this begins no comment: one is open already");
    found.notes.push_back({placeIn(comment.place.line, static_cast<std::size_t>(comment.place.column), 2), "this one"});
    found.hint = "comments do not nest: is a */ missing between the two?";
  }
}

}  // namespace

void checkBlocks(const CheckedFile& file, Findings& findings) {
  checkNames(file, findings);
  checkSavedLines(file, findings);
  checkComments(file, findings);
  if (file.blocks().empty() && file.reports().empty()) {
    Finding& found = findings.add(FindingCode::kNoBlocks, {}, "the file has no blocks");
    found.hint = "a block begins with FORMAT and its name";
  }
}

}  // namespace quillon
