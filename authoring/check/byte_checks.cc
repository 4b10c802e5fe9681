// Bytes that are not what they seem: carriage returns, NUL bytes, and text that is not in the codeset that it will be
// converted from.

#include <algorithm>
#include <optional>
#include <string>

#include "authoring/check/checks.h"
#include "foundation/utf8.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace quillon {
namespace {

using Kind = Statement::Kind;
using Token = FormatPlaces::Token;

/// A range of a text.
struct Range {
  std::size_t at;
  std::size_t length;
};

std::optional<Range> illFormed(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Sequence sequence = firstSequence(text.substr(at));
    if (!sequence.wellFormed) return Range{at, sequence.length};
    at += sequence.length;
  }
  return std::nullopt;
}

/// The first character of `text` that the codeset `codeset` does not have; its conversion to UTF-8 is "?".
std::optional<Range> unmapped(std::string_view text, nxl_cs codeset) {
  constexpr std::size_t kLongest = 4;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t length = 1;
    for (; length <= std::min(kLongest, text.size() - at); ++length) {
      const char* source = text.data() + at;
      int left = static_cast<int>(length);
      char target[8];
      char* to = target;
      int room = sizeof target;
      const bool isDone = nxl_to_utf8_r(&codeset, &source, &left, &to, &room) == 0 && left == 0;
      if (!isDone || to == target) continue;
      if (to == target + 1 && target[0] == '?' && text[at] != '?') return Range{at, length};
      break;
    }
    at += length;
  }
  return std::nullopt;
}

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Only what is converted, or shown as text: comments may hold any bytes.
void checkCodeset(const CheckedFile& file, Findings& findings) {
  nxl_cs* const codeset = platformCodeset() ? platformCodeset() : nxl_get_def_cs();
  const bool isMixed = codeset->kind == kMixedEbcdicKind || codeset->kind == kEbcdicKind;
  if (isMixed) return;  // the language itself is not written in it
  int latest = 0;
  for (const Statement& statement : file.statements()) {
    for (const Token& token : statement.tokens) {
      const bool isText = token.kind == Token::kWord || token.kind == Token::kQuoted;
      if (!isText || statement.kind == Kind::kOutside || token.place.line == latest) continue;
      const std::string_view text = file.at(token);
      if (isAscii(text)) continue;
      const std::optional<Range> found = isUtf8(codeset) ? illFormed(text) : unmapped(text, *codeset);
      if (!found || token.place.line != token.place.endLine) continue;
      latest = token.place.line;
      Finding& finding = findings.add(
          FindingCode::kNotInCodeset,
          placeIn(latest, static_cast<std::size_t>(token.place.column) + found->at, found->length),
          isUtf8(codeset) ? "this is not UTF-8" : "the codeset of this system does not have this character");
      finding.hint =
          "in which codeset was the file saved? LC_ALL, or NXL_CODESET where LC_ALL is C, says which is used";
    }
  }
}

Place placeAt(const CheckedFile& file, std::size_t at) {
  const std::string_view before = file.text().substr(0, at);
  const auto line = static_cast<int>(std::ranges::count(before, '\n')) + 1;
  return placeIn(line, at - (before.rfind('\n') + 1) + 1, 1);
}

void checkControls(const CheckedFile& file, Findings& findings) {
  const std::string_view text = file.text();
  if (const std::size_t at = text.find('\0'); at != std::string_view::npos) {
    Finding& found =
        findings.add(FindingCode::kNulByte, placeAt(file, at), "a NUL byte ends the text that it stands in");
    found.hint = "save the file as plain text";
  }
  if (const std::size_t at = text.find("\r\n"); at != std::string_view::npos) {
    Finding& found = findings.add(FindingCode::kCarriageReturn, placeAt(file, at),
                                  "the lines end in a carriage return, so each format string ends in white space");
    found.hint = "save the file with newlines alone, unless each message of the log ends in white space, too";
  }
}

}  // namespace

void checkBytes(const CheckedFile& file, Findings& findings) {
  checkCodeset(file, findings);
  checkControls(file, findings);
}

}  // namespace quillon
