// Traps in format strings: what is read without a complaint and says something else than it seems to. All of them look
// at the pieces of one format string, as the scanner has cut it.

#include <algorithm>

#include "authoring/check/checks.h"
#include "authoring/check/comments.h"
#include "foundation/characters.h"

namespace quillon {
namespace {

using Token = FormatPlaces::Token;

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

/// One format string. Its newline, if it was read to its end, is not among the pieces.
class FormatStringChecks {
 public:
  FormatStringChecks(const CheckedFile& file, const Statement& statement, Findings& findings)
      : file_(file), pieces_(statement.tokens), findings_(findings) {
    const int last = pieces_.back().kind;
    isWhole_ = last == Token::kNewline;
    if (isWhole_ || last == Token::kEndOfFile) pieces_ = pieces_.first(pieces_.size() - 1);
  }

  void run() {
    if (pieces_.empty()) return;
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      if (isPercent(i)) checkPercent(i);
      if (pieces_[i].kind == Token::kField) checkField(i);
      if (pieces_[i].kind == Token::kWord) checkWord(i);
      if (pieces_[i].kind == Token::kBlank) checkTab(i);
    }
    checkComment();
    if (isWhole_) checkEnds();
    if (isWhole_) checkVariables();
  }

 private:
  std::string_view text(std::size_t i) const { return file_.at(pieces_[i]); }
  bool isPercent(std::size_t i) const { return pieces_[i].kind == Token::kWord && text(i) == "%"; }
  bool isGlued(std::size_t i) const { return i > 0 && startOf(pieces_[i].place) == endOf(pieces_[i - 1].place); }
  bool isVariable(std::size_t i) const { return pieces_[i].kind == Token::kField && text(i) != "%n"; }
  bool isBlank(std::size_t i) const { return pieces_[i].kind == Token::kBlank; }

  /// A "%" that begins no field is text, and so is what follows.
  void checkPercent(std::size_t i) {
    if (i + 1 == pieces_.size() || !isGlued(i + 1)) return;
    const Place& place = pieces_[i].place;
    if (isPercent(i + 1)) {
      if (isGlued(i) && i > 0 && isPercent(i - 1)) return;
      Finding& found = findings_.add(FindingCode::kDoublePercent, joined(place, pieces_[i + 1].place),
                                     "'%%' stands for two per cent signs");
      found.hint = "a per cent sign in a format string is written once";
      return;
    }
    const bool isShare = i > 0 && isGlued(i) && isDigit(text(i - 1).back());
    const std::string_view next = text(i + 1);
    if (pieces_[i + 1].kind != Token::kWord || isShare) return;
    const std::size_t digits = std::min(next.find_first_not_of("0123456789"), next.size());
    if (digits == next.size() || !isLetter(next[digits])) return;
    const char letter = next[digits];
    const auto column = static_cast<std::size_t>(place.column);
    const Place field = placeIn(place.line, column, digits + 2);
    if (digits > 0 && (letter == 't' || letter == 'n')) {
      const std::string plain = std::string("%") + letter;
      Finding& found = findings_.add(FindingCode::kWidthIsText, field,
                                     quoted(file_.at(field)) + " is text: " + plain + " takes no width");
      found.hint = "write " + plain;
      if (letter == 't') found.hint += ", and count it among the variables";
      return;
    }
    Finding& found =
        findings_.add(FindingCode::kUnknownField, field, quoted(file_.at(field)) + " is text and no field");
    found.hint = "the fields are %s, %s*, %s+, %t and %n, in small letters; %s takes any word, numbers too";
  }

  void checkField(std::size_t i) {
    const std::string_view field = text(i);
    const std::size_t digits = std::min(field.find_first_not_of("0123456789", 1), field.size()) - 1;
    if (digits > 0 && field.substr(1, digits).find_first_not_of('0') == std::string_view::npos) {
      Finding& found = findings_.add(FindingCode::kZeroWidth, pieces_[i].place, "a width of 0 is none");
      found.hint = "leave it out, or say how many bytes are to be kept";
      const Place& place = pieces_[i].place;
      found.fix =
          Fix{"remove the width", {{placeIn(place.line, static_cast<std::size_t>(place.column) + 1, digits), ""}}};
    }
    if (i == 0 || !isVariable(i) || !isVariable(i - 1)) return;
    const bool isGap = !isGlued(i);
    Finding& found = findings_.add(FindingCode::kFieldsGlued, joined(pieces_[i - 1].place, pieces_[i].place),
                                   "nothing stands between " + quoted(text(i - 1)) + " and " + quoted(field));
    if (isGap) found.notes.push_back({pieces_[i].place, "a comment is no blank"});
    found.hint = "a field ends at white space or at the text behind it; put one of them between the two";
  }

  /// A comment that begins within a word is part of it.
  void checkWord(std::size_t i) {
    const std::size_t open = text(i).find("/*");
    if (open == std::string_view::npos) return;
    const Place& place = pieces_[i].place;
    const std::size_t from = static_cast<std::size_t>(place.column) - 1 + open;
    const std::string_view line = file_.line(place.line);
    const std::size_t close = line.find("*/", from + 2);
    if (close == std::string_view::npos) return;
    Finding& found = findings_.add(FindingCode::kCommentGlued, placeIn(place.line, from + 1, close + 2 - from),
                                   "this is part of the format string and no comment");
    found.hint = "a comment begins where a word could begin, and /* is followed by a blank";
  }

  void checkTab(std::size_t i) {
    const std::size_t tab = text(i).find('\t');
    if (tab == std::string_view::npos || i == 0 || i + 1 == pieces_.size()) return;
    Finding& found = findings_.add(FindingCode::kTab, pieces_[i].place, "a tab stands for any white space here");
    found.hint = "write a blank, which says the same and can be seen";
    found.fix = Fix{"write a blank", {{pieces_[i].place, " "}}};
  }

  /// A comment behind // in the line of the format string makes the next line part of it.
  void checkComment() {
    const Token& last = pieces_.back();
    const auto next = std::ranges::find_if(
        pieces_, [&](const Token& piece) { return piece.place.line != pieces_.front().place.line; });
    if (next == pieces_.end()) return;
    const FormatPlaces::Comment* const comment = lineCommentBehind(file_, std::prev(next)->place);
    if (!comment) return;
    Finding& found =
        findings_.add(FindingCode::kCommentInFormatString, comment->place,
                      "this comment takes the end of its line along: the format string goes on in the next one");
    found.notes.push_back({joined(next->place, last.place.line == next->place.line ? last.place : next->place),
                           "this is part of the format string"});
    found.hint = "put the comment in a line of its own";
    // What is one name and one value was meant for a slot.
    std::string shape;
    for (auto piece = next; piece != pieces_.end(); ++piece) {
      shape += piece->kind == Token::kBlank ? ' ' : piece->kind == Token::kWord ? 'w' : '?';
    }
    if (shape == "w w" || shape == "w w ") found.fix = commentMoved(file_, pieces_[0].place, *comment);
  }

  void checkEnds() {
    if (pieces_.size() == 1 && isBlank(0)) {
      Finding& found =
          findings_.add(FindingCode::kBlankAtStart, pieces_[0].place, "this format string is nothing but white space");
      found.hint = "a message without text is not worth a block; is the format string in another line?";
      return;
    }
    if (isBlank(0)) {
      Finding& found = findings_.add(FindingCode::kBlankAtStart, pieces_[0].place,
                                     "the format string begins with white space, which no message does");
      found.hint = "white space at the beginning of a message is skipped before: remove it";
      found.fix = Fix{"remove it", {{pieces_[0].place, ""}}};
    }
    const std::size_t last = pieces_.size() - 1;
    if (isBlank(last) && !text(last).ends_with('\r')) {
      Finding& found = findings_.add(FindingCode::kBlankAtEnd, pieces_[last].place,
                                     "the format string ends in white space, so the message must, too");
      found.hint = "remove it; a message may end in white space whether or not the format string does";
    }
    if (text(0) == "\"" && text(isBlank(last) && last > 0 ? last - 1 : last).ends_with('"') && last > 0) {
      Finding& found = findings_.add(FindingCode::kQuotedFormatString, joined(pieces_[0].place, pieces_[last].place),
                                     "the quotes are part of this format string");
      found.hint = "a format string is not quoted; keep the quotes only if the message has them";
    }
  }

  void checkVariables() {
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      if (isVariable(i) || isBlankOnly()) return;
    }
    Finding& found = findings_.add(FindingCode::kNoVariables, joined(pieces_[0].place, pieces_.back().place),
                                   "this format string has no variables, so a message needs no more than a part of it");
    found.hint = "let a field take some part of the message; then all of the text is needed";
  }

  bool isBlankOnly() const { return pieces_.size() == 1 && isBlank(0); }

  const CheckedFile& file_;
  std::span<const Token> pieces_;
  bool isWhole_;
  Findings& findings_;
};

}  // namespace

void checkFormatStrings(const CheckedFile& file, Findings& findings) {
  for (const Statement& statement : file.statements()) {
    if (statement.kind == Statement::Kind::kFormatString) FormatStringChecks(file, statement, findings).run();
  }
}

}  // namespace quillon
