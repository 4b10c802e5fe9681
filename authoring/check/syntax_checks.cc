// What a syntax error probably means. The parser says which token does not fit; the tokens that it took before say what
// it was in the middle of. Take
//
//     FORMAT Login
//     %s logged in
//     user $1 // who
//     END
//
// Nothing fits at END: the tokens of its statement are user, $1 and END, since the comment took its newline along. So
// what is at fault is a comment behind text, in line 3.
//
// A syntax error ends its block, so there is one finding for each. Cost: a look at the tokens of one statement, and for
// some the lines up to the end of the block.

#include <algorithm>
#include <optional>

#include "authoring/check/checks.h"
#include "authoring/check/comments.h"
#include "foundation/characters.h"

namespace quillon {
namespace {

using Kind = Statement::Kind;
using Token = FormatPlaces::Token;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::ranges::equal(a, b, {}, lower, lower);
}

bool isKeyword(const Token& token) { return token.kind >= Token::kEnd && token.kind <= Token::kFilename; }

/// `line` without white space at its ends.
std::string_view trimmed(std::string_view line) {
  while (!line.empty() && isWhiteSpace(line.front())) line.remove_prefix(1);
  while (!line.empty() && isWhiteSpace(line.back())) line.remove_suffix(1);
  return line;
}

std::string_view firstWord(std::string_view line) {
  line = trimmed(line);
  return line.substr(0, static_cast<std::size_t>(std::ranges::find_if(line, isWhiteSpace) - line.begin()));
}

/// One syntax error.
class SyntaxError {
 public:
  /// `statement` ends with the token that does not fit.
  SyntaxError(const CheckedFile& file, std::size_t statement, Findings& findings)
      : file_(file),
        statement_(file.statements()[statement]),
        tokens_(statement_.tokens),
        bad_(tokens_.back()),
        before_(tokens_.size() - 1),
        findings_(findings),
        header_(statement_.kind == Kind::kHeader ? &statement_ : nullptr) {
    for (std::size_t i = statement; i > 0 && !header_; --i) {
      const Statement& earlier = file.statements()[i - 1];
      if (earlier.kind == Kind::kFormatString && !formatString_) formatString_ = &earlier;
      if (earlier.kind == Kind::kHeader) header_ = &earlier;
    }
  }

  void explain() {
    switch (statement_.kind) {
      case Kind::kOutside:
        return explainOutside();
      case Kind::kHeader:
        return explainHeader();
      case Kind::kFormatString:
        return explainFormatString();
      case Kind::kSlot:
        return explainSlot();
      case Kind::kEnd:
        return explainEnd();
    }
  }

 private:
  // ---- What surrounds it.

  std::string_view text(std::size_t token) const { return file_.at(tokens_[token]); }
  std::string_view badText() const { return file_.at(bad_); }
  bool isLineEnd() const { return bad_.kind == Token::kNewline || isFileEnd(); }
  bool isFileEnd() const { return bad_.kind == Token::kEndOfFile; }
  /// The place behind the last token that fits.
  Place behind() const { return endOf(tokens_[before_ - 1].place); }
  bool isGlued() const { return before_ > 0 && behind() == startOf(bad_.place); }
  /// The place of `token` and all behind it in its line, but for a comment there and white space.
  Place restFrom(const Place& start) const {
    std::string_view line = file_.line(start.line);
    const auto from = static_cast<std::size_t>(start.column) - 1;
    const std::size_t comment = line.find(" //", from);
    if (comment != std::string_view::npos) line = line.substr(0, comment);
    while (line.size() > from && isWhiteSpace(line.back())) line.remove_suffix(1);
    return placeIn(start.line, static_cast<std::size_t>(start.column), line.size() - std::min(from, line.size()));
  }

  /// The comment that took the newline behind the last token that fits along.
  const FormatPlaces::Comment* commentBehind() const {
    const bool isSameLine = before_ == 0 || bad_.place.line == behind().line;
    return isSameLine ? nullptr : lineCommentBehind(file_, tokens_[before_ - 1].place);
  }

  Note blockNote() const {
    const Place name = header_ && header_->tokens.size() > 1 ? header_->tokens[1].place : statement_.tokens[0].place;
    return {name, "the block begins here"};
  }

  /// The first line from `number` on that is not blank; 0 when there is none.
  int textLine(int number) const {
    for (; number <= file_.lines(); ++number) {
      if (!file_.isBlank(number)) return number;
    }
    return 0;
  }

  // ---- Fixes.

  Fix inserted(std::string title, const Place& at, std::string text) const {
    return {std::move(title), {{startOf(at), std::move(text)}}};
  }

  Place fileEnd() const {
    const int line = file_.lines();
    return placeIn(line, file_.line(line).size() + 1, 0);
  }

  Fix endAppended() const { return inserted("add END", fileEnd(), file_.text().ends_with('\n') ? "END\n" : "\nEND\n"); }

  /// Quotes what stands in `value`, if it becomes a constant by that and cannot have been meant as anything else.
  std::optional<Fix> valueQuoted(const Place& value) const {
    const std::string_view text = file_.at(value);
    if (text.empty() || text.find_first_of("\"$\\\n") != std::string_view::npos) return std::nullopt;
    if (text.find("//") != std::string_view::npos || text.find("/*") != std::string_view::npos) return std::nullopt;
    return Fix{"quote the value", {{startOf(value), "\""}, {endOf(value), "\""}}};
  }

  // ---- Findings that more than one place can come to.

  /// True when a comment has taken the newline of this statement along.
  bool explainComment() {
    const FormatPlaces::Comment* const comment = commentBehind();
    if (!comment) return false;
    Finding& found =
        findings_.add(FindingCode::kCommentBehindText, comment->place,
                      "this comment takes the end of its line along, so that the next one is read as part of it");
    found.notes.push_back({bad_.place, isFileEnd() ? "the file ends here" : "this does not fit there"});
    found.hint = "put the comment in a line of its own, or write it as /* ... */";
    found.fix = commentMoved(file_, tokens_[0].place, *comment);
    return true;
  }

  void explainMissingEnd(const Place& place, std::string text, Fix fix) {
    Finding& found = findings_.add(FindingCode::kMissingEnd, place, std::move(text));
    found.notes.push_back(blockNote());
    found.hint = "close the block with a line that holds END";
    found.fix = std::move(fix);
  }

  void explainFileEnd() { explainMissingEnd(bad_.place, "the file ends within a block", endAppended()); }

  void explainKeywordCase(const Place& place, std::string_view keyword) {
    Finding& found = findings_.add(FindingCode::kKeywordCase, place,
                                   quoted(file_.at(place)) + " is not the keyword " + std::string(keyword));
    found.hint = "keywords are written in capital letters";
    found.fix = Fix{"write " + std::string(keyword), {{place, std::string(keyword)}}};
  }

  /// The quote at `place` has no other one. `missing` is where that should stand.
  void explainHalfQuoted(const Place& place, const Place& missing, bool isFirst) {
    Finding& found = findings_.add(FindingCode::kHalfQuoted, place,
                                   isFirst ? "this quote is never closed in its line" : "no quote opens this text");
    found.hint = "a text between quotes has one at either end; within it, a quote is written \\\"";
    found.fix = inserted("add the other quote", missing, "\"");
  }

  // ---- The kinds of statements.

  void explainOutside() {
    const std::string_view word = badText();
    const bool isFirst = bad_.place.line == 1 && bad_.place.column == 1;
    if (isFirst && (word.starts_with("\xFF\xFE") || word.starts_with("\xFE\xFF"))) {
      Finding& found = findings_.add(FindingCode::kByteOrderMark, placeIn(1, 1, 2), "the file is in UTF-16");
      found.hint = "save the file as UTF-8 without a byte order mark";
    } else if (isFirst && word.starts_with(kByteOrderMark)) {
      Finding& found = findings_.add(FindingCode::kByteOrderMark, placeIn(1, 1, kByteOrderMark.size()),
                                     "the file begins with a byte order mark, which is read as part of the first word");
      found.hint = "save the file as UTF-8 without a byte order mark";
      found.fix = Fix{"remove it", {{found.place, ""}}};
    } else if (word.starts_with("//") && bad_.place.line == file_.lines()) {
      Finding& found = findings_.add(FindingCode::kCommentWithoutNewline, restFrom(bad_.place),
                                     "this is no comment: the last line of the file has no newline");
      found.hint = "end the line";
      found.fix = inserted("add a newline", fileEnd(), "\n");
    } else if (equalsIgnoringCase(word, "FORMAT")) {
      explainKeywordCase(bad_.place, "FORMAT");
    } else {
      Finding& found =
          findings_.add(FindingCode::kTextOutsideBlock, bad_.place, quoted(word) + " stands outside any block");
      found.hint =
          word.starts_with("*/")   ? "comments do not nest: the first */ has ended the comment"
          : word.starts_with("/*") ? "a comment begins with /* and something that cannot continue a word, best a blank"
          : header_                ? "the block before has ended with END; only blank lines and comments may follow it"
                    : "a block begins with FORMAT and its name; before it there may be blank lines and comments";
    }
  }

  void explainHeader() {
    const bool expectsName = before_ == 1 || before_ == 3;
    if (explainComment()) return;
    if (expectsName && isLineEnd()) {
      Finding& found = before_ == 1
                           ? findings_.add(FindingCode::kMissingName, tokens_[0].place, "this block has no name")
                           : findings_.add(FindingCode::kMissingParent, tokens_[2].place, "FOLLOWS names no block");
      found.hint =
          before_ == 1 ? "write FORMAT and the name of the class" : "name the block to inherit from, or remove FOLLOWS";
      return;
    }
    if (isFileEnd()) return explainNoFormatString();
    const bool isSpecial = bad_.kind < Token::kWord;
    if (isSpecial && (expectsName || isGlued())) {
      const Place name = isGlued() && !expectsName ? joined(tokens_[before_ - 1].place, bad_.place) : bad_.place;
      Finding& found = findings_.add(FindingCode::kBadName, name, "a name cannot hold " + quoted(badText()));
      found.hint = "names are words: without quotes, parentheses, commas and %";
      return;
    }
    if (before_ == 2 && equalsIgnoringCase(badText(), "FOLLOWS")) return explainKeywordCase(bad_.place, "FOLLOWS");
    Finding& found = findings_.add(FindingCode::kTextBehindName, bad_.place,
                                   quoted(badText()) + " stands behind the name of the block");
    found.hint = before_ == 2 ? "a name is one word; behind it there can be FOLLOWS and the name of an earlier block"
                              : "a block follows one other block, whose name is one word";
  }

  void explainFormatString() {
    if (before_ == 0) return explainNoFormatString();
    if (isFileEnd() && !explainComment()) explainFileEnd();
  }

  /// The line behind the header is blank, or there is none.
  void explainNoFormatString() {
    const int next = isFileEnd() ? 0 : textLine(bad_.place.line);
    const bool isBlank = !isFileEnd() && file_.isBlank(bad_.place.line);
    Finding& found = findings_.add(
        FindingCode::kMissingFormatString, bad_.place,
        isFileEnd() ? "the file ends where the format string should stand"
        : isBlank   ? "this line is blank; the format string should stand here"
                    : "a block comment alone in its line leaves the line blank; the format string should stand here");
    found.notes.push_back(blockNote());
    found.hint = "the format string is the line behind the header";
    const std::string_view word = next ? firstWord(file_.line(next)) : "";
    if (isBlank && next && word != "FORMAT" && word != "END") {
      found.fix = Fix{"remove the blank line", {}};
      for (int line = bad_.place.line; line < next; ++line) found.fix->edits.push_back({wholeLine(line), ""});
    }
  }

  static Place wholeLine(int line) { return {line, 1, 0, line + 1, 1}; }

  void explainEnd() {
    if (explainComment()) return;
    if (isFileEnd()) {
      Finding& found =
          findings_.add(FindingCode::kNoNewlineAtEnd, tokens_[0].place, "the line of the last END is not ended");
      found.hint = "END must be followed by a newline, also at the end of the file";
      found.fix = inserted("add a newline", fileEnd(), "\n");
      return;
    }
    const Place rest = restFrom(bad_.place);
    Finding& found = findings_.add(FindingCode::kTextBehindEnd, rest, quoted(file_.at(rest)) + " stands behind END");
    found.hint = "END stands alone in its line; a comment there has to be written as /* ... */";
  }

  void explainSlot() {
    if (explainMissingEarlier()) return;
    if (before_ == 0) return explainSlotName();
    if (before_ >= 2 && explainComment()) return;
    if (before_ == 1) return explainNoValue();
    if (tokens_[1].kind == Token::kPrintf) return explainPrintf();
    explainBehindValue();
  }

  /// What went wrong before this statement, and was no error there.
  bool explainMissingEarlier() {
    // The line of a header is a slot like any other in a block that is still open: FORMAT, with its name for a value.
    const auto isHeader = [&](const Statement& slot) {
      return slot.kind == Kind::kSlot && file_.at(slot.tokens[0]) == "FORMAT";
    };
    const Statement* const end = file_.statements().data() + file_.statements().size();
    for (const Statement* slot = formatString_ ? formatString_ + 1 : end; slot != end && slot <= &statement_; ++slot) {
      if (!isHeader(*slot) || slot->tokens.size() < 2) continue;
      const Place place = slot->tokens[0].place;
      explainMissingEnd(place, "a block begins while the one before is still open",
                        inserted("add END", placeIn(place.line, 1, 0), "END\n"));
      return true;
    }
    const bool isFirst = formatString_ && formatString_ + 1 == &statement_;
    if (isFirst && formatString_->tokens.size() == 2 && formatString_->tokens[0].kind == Token::kBlank && before_ < 2) {
      const int line = formatString_->tokens[0].place.line;
      Finding& found = findings_.add(FindingCode::kMissingFormatString, formatString_->tokens[0].place,
                                     "this line holds nothing but white space, which is the format string");
      found.notes.push_back(blockNote());
      found.hint = "the format string is the line behind the header";
      if (file_.isBlank(line)) found.fix = Fix{"remove the blank line", {{wholeLine(line), ""}}};
      return true;
    }
    return false;
  }

  void explainSlotName() {
    if (isFileEnd()) return explainFileEnd();
    if (bad_.kind == Token::kNewline) return explainBlankLine();
    if (isKeyword(bad_)) {
      Finding& found =
          findings_.add(FindingCode::kKeywordAsSlot, bad_.place, quoted(badText()) + " is a keyword and names no slot");
      found.hint = "a slot line begins with the name of the slot";
      return;
    }
    Finding& found = findings_.add(FindingCode::kBadSlotName, bad_.place,
                                   "the name of a slot cannot begin with " + quoted(badText().substr(0, 1)));
    found.notes.push_back(blockNote());
    found.hint = "a slot line is the name of the slot and its value; only the format string stands alone";
  }

  void explainBlankLine() {
    const int next = textLine(bad_.place.line + 1);
    const std::string_view word = next ? firstWord(file_.line(next)) : "FORMAT";
    const bool isBlank = file_.isBlank(bad_.place.line);
    if (isBlank && word == "FORMAT") {
      return explainMissingEnd(bad_.place, "the block is still open here",
                               inserted("add END", placeIn(bad_.place.line, 1, 0), "END\n"));
    }
    Finding& found = findings_.add(FindingCode::kBlankLineInBlock, bad_.place,
                                   isBlank ? "a blank line within a block"
                                           : "a block comment alone in its line leaves a blank line within a block");
    found.notes.push_back(blockNote());
    found.hint = isBlank ? "remove the blank line; a comment behind // may stand there"
                         : "write the comment behind //, which takes the end of its line along";
    if (isBlank) {
      found.fix = Fix{"remove the blank lines of the block", {}};
      for (int line = bad_.place.line; line <= file_.lines(); ++line) {
        const std::string_view first = firstWord(file_.line(line));
        if (first == "FORMAT" || first == "END" || line == file_.lines()) break;
        if (first.empty()) found.fix->edits.push_back({wholeLine(line), ""});
      }
    } else {
      found.fix = commentBehindSlashes();
    }
  }

  /// Rewrites a block comment that is alone in the line of the bad token.
  std::optional<Fix> commentBehindSlashes() const {
    const int line = bad_.place.line;
    const std::string_view whole = trimmed(file_.line(line));
    if (!whole.starts_with("/*") || whole.find("*/") != whole.size() - 2 || whole.size() < 4) return std::nullopt;
    const auto at = static_cast<std::size_t>(whole.data() - file_.line(line).data());
    std::string_view inside = whole.substr(2, whole.size() - 4);
    while (!inside.empty() && isWhiteSpace(inside.back())) inside.remove_suffix(1);
    return Fix{"write the comment behind //", {{placeIn(line, at + 1, whole.size()), "//" + std::string(inside)}}};
  }

  void explainNoValue() {
    const Place name = tokens_[0].place;
    if (isLineEnd()) {
      if (text(0) != "END" && equalsIgnoringCase(text(0), "END")) return explainKeywordCase(name, "END");
      if (explainComment()) return;
      Finding& found = findings_.add(FindingCode::kMissingValue, name, "slot " + quoted(text(0)) + " has no value");
      found.hint = text(0).find_first_of("=:") != std::string_view::npos
                       ? "the name of a slot and its value stand apart, with white space between them"
                       : "a slot line is the name of the slot and its value; \"\" is an empty text";
      return;
    }
    if (isKeyword(bad_)) {
      Finding& found =
          findings_.add(FindingCode::kKeywordAsValue, bad_.place, quoted(badText()) + " is a keyword and no constant");
      found.hint = "quote it";
      found.fix = valueQuoted(bad_.place);
      return;
    }
    if (bad_.kind == '"') return explainHalfQuoted(bad_.place, endOf(restFrom(bad_.place)), true);
    explainSpecialCharacter();
  }

  /// The value, all of it, that begins with the second token and goes on up to the end of its line.
  Place wholeValue() const { return restFrom(tokens_[1].place); }

  void explainSpecialCharacter() {
    const Place value = wholeValue();
    Finding& found = findings_.add(FindingCode::kSpecialCharacter, bad_.place,
                                   "a value with " + quoted(badText()) + " in it must be quoted");
    if (file_.at(value).find('$') != std::string_view::npos) {
      found.hint = "a value is one variable or one text; PRINTF joins several";
    } else {
      found.hint = "quote the value";
      found.fix = valueQuoted(value);
    }
  }

  void explainBehindValue() {
    if (isFileEnd()) return explainFileEnd();
    const Token& value = tokens_[1];
    if (value.kind == Token::kQuoted && value.place.line != value.place.endLine) {
      const Place open = placeIn(value.place.line, static_cast<std::size_t>(value.place.column), 1);
      return explainHalfQuoted(open, endOf(restFrom(open)), true);
    }
    if (value.kind == Token::kWord && bad_.kind == '"' && isGlued()) {
      return explainHalfQuoted(bad_.place, value.place, false);
    }
    if (value.kind == Token::kWord && bad_.kind < Token::kWord && bad_.kind != '"') return explainSpecialCharacter();
    const bool isPlain = value.kind == Token::kWord;
    const Place rest = isPlain ? wholeValue() : restFrom(bad_.place);
    Finding& found =
        isPlain
            ? findings_.add(FindingCode::kSeveralWords, rest, "a value of several words must be quoted")
            : findings_.add(FindingCode::kTextBehindValue, rest, quoted(file_.at(rest)) + " stands behind the value");
    if (text(1) == "=" || text(1) == ":") {
      found.hint = "nothing but white space stands between the name of a slot and its value";
    } else if (file_.at(rest).find('$') != std::string_view::npos) {
      found.hint = "a value is one variable or one text; PRINTF joins several";
    } else if (isPlain) {
      found.hint = "quote the value";
      found.fix = valueQuoted(rest);
    } else {
      found.hint = "a slot has one value; PRINTF joins several";
    }
  }

  void explainPrintf() {
    if (before_ == 3 && bad_.kind == '"') return explainHalfQuoted(bad_.place, endOf(restFrom(bad_.place)), true);
    if (before_ <= 3) {
      Finding& found = findings_.add(FindingCode::kPrintfWithoutText, isLineEnd() ? tokens_[1].place : bad_.place,
                                     before_ == 2 ? "PRINTF needs a parenthesis" : "PRINTF needs a quoted text first");
      found.hint = "PRINTF is written PRINTF(\"text with %s\", slot, ...)";
      return;
    }
    const Token& last = tokens_[before_ - 1];
    if (last.kind == Token::kQuoted && last.place.line != last.place.endLine) {
      const Place open = placeIn(last.place.line, static_cast<std::size_t>(last.place.column), 1);
      Finding& found = findings_.add(FindingCode::kHalfQuoted, open, "this quote is never closed in its line");
      found.hint = "a text between quotes has one at either end; within it, a quote is written \\\"";
      return;
    }
    if (last.kind == ')') {
      if (isFileEnd()) return explainFileEnd();
      const Place rest = restFrom(bad_.place);
      Finding& found =
          findings_.add(FindingCode::kTextBehindValue, rest, quoted(file_.at(rest)) + " stands behind the value");
      found.hint = "a slot has one value";
      return;
    }
    if (isLineEnd()) {
      Finding& found = findings_.add(FindingCode::kPrintfNotClosed, last.place, "PRINTF is not closed in its line");
      found.hint = "a PRINTF is one line and ends with a parenthesis";
      const std::string_view next = trimmed(bad_.place.line < file_.lines() ? file_.line(bad_.place.line + 1) : "");
      if (last.kind != ',' && !next.starts_with(',') && !next.starts_with(')'))
        found.fix = inserted("add the parenthesis", endOf(last.place), ")");
      return;
    }
    Finding& found = findings_.add(FindingCode::kPrintfArgument, bad_.place,
                                   last.kind == ',' ? quoted(badText()) + " is not the name of a slot"
                                                    : "a comma is missing before " + quoted(badText()));
    found.hint =
        "behind its text PRINTF takes the names of slots, each after a comma; a text goes into a slot of its own";
    if (last.kind != ',' && bad_.kind == Token::kWord) found.fix = inserted("add a comma", endOf(last.place), ",");
  }

  const CheckedFile& file_;
  const Statement& statement_;
  const std::span<const Token> tokens_;
  const Token& bad_;
  const std::size_t before_;  ///< Tokens that fit.
  Findings& findings_;
  const Statement* header_;                  ///< Of the block, or the one before.
  const Statement* formatString_ = nullptr;  ///< Of the block.
};

}  // namespace

void checkSyntax(const CheckedFile& file, Findings& findings) {
  const bool isOpen = std::ranges::any_of(
      file.reports(), [](const Report& report) { return report.code == ReportCode::kUnclosedComment; });
  const std::vector<Statement>& statements = file.statements();
  std::size_t statement = 0;
  for (const Report& report : file.reports()) {
    if (report.code != ReportCode::kSyntaxError) continue;
    while (statement < statements.size() && statements[statement].tokens.back().place != report.place) ++statement;
    if (statement == statements.size()) break;
    // Behind a comment that is open to the end of the file nothing is wrong that closing it would not show.
    const bool isEnd = statements[statement].tokens.back().kind == Token::kEndOfFile;
    if (!isOpen || !isEnd) SyntaxError(file, statement, findings).explain();
  }
}

}  // namespace quillon
