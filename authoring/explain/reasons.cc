#include "authoring/explain/reasons.h"

#include <algorithm>

#include "foundation/visible.h"
#include "src/adapters/logfile/match/MessageText.h"

namespace quillon {
namespace {

using State = AlignedPiece::State;

constexpr std::size_t kMostQuoted = 60;

bool isOpen(const Part& part) { return part.isField() || part.kind == ComponentKind::kBlank; }

/// The constant that the field number `field` looks for, or null.
const Part* boundOf(const std::vector<Part>& parts, std::size_t field) {
  const bool looksFar = parts[field].kind == ComponentKind::kStar || parts[field].kind == ComponentKind::kPlus;
  for (std::size_t i = field + 1; i < parts.size(); ++i) {
    if (parts[i].isConstant() || parts[i].kind == ComponentKind::kNewline) return &parts[i];
    if (!looksFar) return nullptr;
  }
  return nullptr;
}

std::string boundText(const Part& bound) { return bound.isConstant() ? inQuotes(bound.text) : "a newline"; }

std::string variableName(int n) { return "$" + std::to_string(n); }

/// A stretch of the pieces of an alignment, from `first` up to but not with `last`.
struct Stretch {
  std::size_t first;
  std::size_t last;
};

/// The first departure, with those behind it up to the next constant that fits as a whole.
Stretch firstDeparture(const std::vector<AlignedPiece>& pieces, const std::vector<Part>& parts) {
  std::size_t first = 0;
  while (first < pieces.size() && pieces[first].state == State::kFits) ++first;
  std::size_t last = first;
  for (std::size_t i = first; i < pieces.size(); ++i) {
    if (pieces[i].state != State::kFits) {
      last = i + 1;
    } else if (!isOpen(parts[pieces[i].part]) && pieces[i].part != pieces[last - 1].part) {
      break;
    }
  }
  return {first, last};
}

/// True for departures that could have been elsewhere as well: a field is missing, or a constant beside a field, and
/// nothing of the constant is left. White space that stands for text is where it is.
bool isAdrift(const NearBlock& block, const Stretch& stretch, std::string_view message) {
  const std::vector<AlignedPiece>& pieces = block.alignment.pieces;
  const auto isConstant = [&](std::size_t i) { return block.parts[pieces[i].part].isConstant(); };
  const auto isSplit = [&](std::size_t i, std::size_t beside) {
    return isConstant(i) && pieces[i].part == pieces[beside].part;
  };
  bool isMore = false;  // than white space
  for (std::size_t i = stretch.first; i < stretch.last; ++i) {
    const AlignedPiece& piece = pieces[i];
    if (piece.state == State::kExtra || (piece.state == State::kFits && isConstant(i))) return false;
    if (piece.state == State::kDiffers && endsWord(message[piece.from])) return false;
    isMore = isMore || block.parts[piece.part].kind != ComponentKind::kBlank;
  }
  return isMore && (stretch.first == 0 || !isSplit(stretch.first - 1, stretch.first)) &&
         (stretch.last == pieces.size() || !isSplit(stretch.last, stretch.last - 1));
}

/// Where to look. What is lost between fields can have been anywhere in what these have taken.
void setMark(NearBlock& block, std::string_view message) {
  const std::vector<AlignedPiece>& pieces = block.alignment.pieces;
  if (pieces.empty() || block.alignment.fits()) {
    block.markFrom = block.markTo = block.at;
    while (block.markTo < message.size() && !endsWord(message[block.markTo])) ++block.markTo;
    return;
  }
  Stretch stretch = firstDeparture(pieces, block.parts);
  if (isAdrift(block, stretch, message)) {
    const auto isOpenPiece = [&](std::size_t i) { return isOpen(block.parts[pieces[i].part]); };
    while (stretch.first > 0 && isOpenPiece(stretch.first - 1)) --stretch.first;
    while (stretch.last < pieces.size() && isOpenPiece(stretch.last)) ++stretch.last;
  }
  block.markFrom = pieces[stretch.first].from;
  block.markTo = pieces[stretch.last - 1].to;
}

/// The first variable that took other text than in the alignment, which describes the whole message; null when there is
/// none.
const Taken* firstAstray(const NearBlock& block) {
  for (const Taken& taken : block.taken) {
    for (const AlignedPiece& piece : block.alignment.pieces) {
      if (block.parts[piece.part].variable == taken.variable && piece.to != taken.to) return &taken;
    }
  }
  return nullptr;
}

std::size_t partOf(const NearBlock& block, int variable) {
  const auto found = std::find_if(block.parts.begin(), block.parts.end(),
                                  [variable](const Part& part) { return part.variable == variable; });
  return static_cast<std::size_t>(found - block.parts.begin());
}

/// The whole message would fit if a field could end elsewhere.
bool explainAstray(NearBlock& block) {
  if (block.alignment.pieces.empty() || !block.alignment.fits()) return false;
  const Taken* const taken = firstAstray(block);
  if (!taken) return false;
  const Part* const bound = boundOf(block.parts, partOf(block, taken->variable));
  const std::string name = variableName(taken->variable);
  block.rule = taken->variable == 1 ? SurprisingRule::kFirstVariable : SurprisingRule::kEarlierOccurrence;
  block.reason = name + " took " + inQuotes(taken->text);
  if (bound) block.reason += ", up to an occurrence of " + boundText(*bound) + " that is not the one meant";
  block.reason += taken->variable == 1
                      ? ". A later end would fit, but the first variable is not tried again once another was reached."
                      : ". Another end would fit, but is not tried in this order.";
  return true;
}

bool explainTab(NearBlock& block) {
  const auto isTab = [](const Part& part) { return part.isConstant() && part.text.find('\t') != std::string::npos; };
  if (std::none_of(block.parts.begin(), block.parts.end(), isTab)) return false;
  block.rule = SurprisingRule::kTabIsText;
  block.reason =
      "The format string has a tab. There a tab is text, and no word of a message begins with one, so the block binds "
      "nothing: write a blank, which fits any white space, tabs as well.";
  return true;
}

/// A constant that stands further on in the word.
bool explainWordBegin(NearBlock& block, std::string_view message) {
  if (block.part >= block.parts.size() || !block.parts[block.part].isConstant()) return false;
  const std::string& text = block.parts[block.part].text;
  const std::size_t at = block.at;
  const auto end = std::find_if(message.begin() + static_cast<std::ptrdiff_t>(std::min(at, message.size())),
                                message.end(), endsWord);
  std::size_t start = std::min(at, message.size());
  while (start > 0 && !endsWord(message[start - 1])) --start;
  const std::string_view word = message.substr(start, static_cast<std::size_t>(end - message.begin()) - start);
  const std::size_t found = word.find(text, at - start);
  if (found == std::string_view::npos || text.empty()) return false;
  block.rule = SurprisingRule::kWordBegins;
  block.reason = inQuotes(text) + " stands further on in " + inQuotes(word) +
                 ", but a constant must be the next thing in the message: only a field in front of it would take what "
                 "is between.";
  return true;
}

/// A field that could not find its end.
bool explainBound(NearBlock& block) {
  if (block.part >= block.parts.size()) return false;
  const Part& part = block.parts[block.part];
  std::size_t field = block.part;
  if (!part.isField()) {
    if (field == 0 || !block.parts[--field].isField() || boundOf(block.parts, field) != &part) return false;
  }
  const Part* const bound = boundOf(block.parts, field);
  if (!bound) return false;
  const Part& taker = block.parts[field];
  const bool looksFar = taker.kind == ComponentKind::kStar || taker.kind == ComponentKind::kPlus;
  block.reason = variableName(taker.variable) + " ends at the next " + boundText(*bound) + ", and there is none " +
                 (looksFar ? "further on." : "in the word that it stands in.");
  return true;
}

}  // namespace

const char* ruleName(SurprisingRule rule) {
  static const char* const kNames[] = {"none",           "first-variable", "attempt-limit", "earlier-occurrence",
                                       "text-left-over", "tab-is-text",    "word-begins"};
  return kNames[static_cast<std::size_t>(rule)];
}

std::string inQuotes(std::string_view text) {
  if (text.size() <= kMostQuoted) return '"' + visible(text) + '"';
  std::size_t end = kMostQuoted;
  while (end > 0 && (text[end] & 0xc0) == 0x80) --end;
  return '"' + visible(text.substr(0, end)) + "...\"";
}

std::string expectedText(const std::vector<Part>& parts, std::size_t part) {
  if (part >= parts.size()) return "the end of the message";
  const Part* const bound = parts[part].isField() ? boundOf(parts, part) : nullptr;
  switch (parts[part].kind) {
    case ComponentKind::kConstant:
      return inQuotes(parts[part].text);
    case ComponentKind::kBlank:
      return "white space";
    case ComponentKind::kNewline:
      return "a newline";
    case ComponentKind::kTime:
      return "three words";
    case ComponentKind::kString:
      return bound ? "a word with " + boundText(*bound) : "a word";
    default:
      return bound ? "text up to " + boundText(*bound) : "a word";
  }
}

void giveReason(NearBlock& block, std::string_view message) {
  setMark(block, message);
  const bool isExplained = block.bindsWhenRepaired;  // then what was wrong is no matter of attempts
  if (block.outcome == Outcome::kGaveUp && !isExplained) {
    block.rule = SurprisingRule::kAttemptLimit;
    block.reason =
        "A field is tried again with a later end as long as attempts fail, but after 100 of them the block is given "
        "up.";
    return;
  }
  if (explainTab(block) || explainAstray(block)) return;
  if (block.part == block.parts.size()) {
    block.rule = SurprisingRule::kTextLeftOver;
    block.reason = "All of the format string fits, but the message goes on: a block describes whole messages.";
    return;
  }
  if (!explainWordBegin(block, message)) explainBound(block);
}

}  // namespace quillon
