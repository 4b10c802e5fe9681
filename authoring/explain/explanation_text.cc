#include "authoring/explain/explanation_text.h"

#include <algorithm>
#include <vector>

#include "authoring/explain/reasons.h"
#include "authoring/report/JsonText.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

std::string formatString(const std::vector<Part>& parts) {
  std::string text;
  for (const Part& part : parts) text += part.text;
  return text;
}

std::string counted(std::size_t n, const char* what) { return std::to_string(n) + " " + what + (n == 1 ? "" : "s"); }

std::string bold(const std::string& text, const Drawing::Style& style) {
  return style.colour ? "\x1b[1m" + text + "\x1b[0m" : text;
}

std::string takenText(const std::vector<Taken>& taken) {
  std::string text;
  for (const Taken& one : taken) {
    text += text.empty() ? "" : ", ";
    text += "$" + std::to_string(one.variable) + " " + inQuotes(one.text);
  }
  return text;
}

std::string boundText(const BoundBlock& bound, const Explanation& explanation, const ExplanationStyle& style) {
  std::string text = "bound by " + bold(visible(bound.name), style.drawing);
  if (!explanation.tried.empty()) text += ", tried behind " + counted(explanation.tried.size(), "other block");
  text += "\n  format: " + visible(formatString(bound.parts)) + "\n\n";
  text += Drawing(bound.pieces, bound.parts, explanation.message).text(style.drawing, "  ") + "\n";
  for (const Taken& taken : bound.taken)
    text += "  $" + std::to_string(taken.variable) + " = " + visible(taken.text) + "\n";
  for (const SlotValue& slot : bound.slots) text += "  " + visible(slot.name) + " = " + visible(slot.value) + "\n";
  return text;
}

/// Those that came furthest.
std::string triedText(const std::vector<TriedBlock>& tried, std::size_t most) {
  if (tried.empty() || most == 0) return "";
  std::vector<const TriedBlock*> furthest;
  furthest.reserve(tried.size());
  for (const TriedBlock& block : tried) furthest.push_back(&block);
  std::stable_sort(furthest.begin(), furthest.end(),
                   [](const TriedBlock* a, const TriedBlock* b) { return a->at > b->at; });
  const std::size_t shown = std::min(most, furthest.size());
  std::string text = "\ntried before it:\n";
  for (std::size_t i = 0; i < shown; ++i) {
    const TriedBlock& block = *furthest[i];
    text += "  " + visible(block.name) + ": stopped at byte " + std::to_string(block.at + 1) + ", expected " +
            block.expected + "\n";
  }
  const std::size_t rest = furthest.size() - shown;
  if (rest > 0) text += "  and " + std::to_string(rest) + " more, which came no further\n";
  return text;
}

void addTaken(JsonText& json, const std::vector<Taken>& taken) {
  json.key("variables").open('[');
  for (const Taken& one : taken) {
    json.open('{').key("variable").number(static_cast<std::uint64_t>(one.variable));
    json.key("from").number(one.from).key("to").number(one.to).key("value").string(one.text).close('}');
  }
  json.close(']');
}

void addTried(JsonText& json, const TriedBlock& block) {
  static const char* const kOutcomes[] = {"bound", "failed", "gave-up", "left-over"};
  json.key("block").string(block.name).key("event_id").number(block.eventId).key("place").number(block.place);
  json.key("outcome").string(kOutcomes[static_cast<std::size_t>(block.outcome)]);
  json.key("attempts").number(static_cast<std::uint64_t>(block.attempts));
  if (block.outcome == Outcome::kBound) return;
  json.key("component").number(block.part).key("at").number(block.at).key("expected").string(block.expected);
}

void addPieces(JsonText& json, const std::vector<AlignedPiece>& pieces) {
  static const char* const kStates[] = {"fits", "differs", "missing", "extra"};
  json.key("alignment").open('[');
  for (const AlignedPiece& piece : pieces) {
    json.open('{').key("state").string(kStates[static_cast<std::size_t>(piece.state)]);
    json.key("component").number(piece.part).key("from").number(piece.from).key("to").number(piece.to).close('}');
  }
  json.close(']');
}

void addNear(JsonText& json, const NearBlock& block) {
  json.open('{');
  addTried(json, block);
  json.key("format").string(formatString(block.parts)).key("found").string(block.found);
  json.key("mark").open('{').key("from").number(block.markFrom).key("to").number(block.markTo).close('}');
  addTaken(json, block.taken);
  addPieces(json, block.alignment.pieces);
  json.key("rule").string(ruleName(block.rule)).key("reason").string(block.reason).key("repaired");
  block.bindsWhenRepaired ? json.string(block.repairedMessage) : json.null();
  json.close('}');
}

void addBound(JsonText& json, const BoundBlock& bound) {
  json.open('{').key("block").string(bound.name).key("event_id").number(bound.eventId);
  json.key("place").number(bound.place).key("format").string(formatString(bound.parts));
  addTaken(json, bound.taken);
  json.key("slots").open('[');
  for (const SlotValue& slot : bound.slots)
    json.open('{').key("slot").string(slot.name).key("value").string(slot.value).close('}');
  json.close(']').close('}');
}

}  // namespace

std::string stopText(const NearBlock& block) {
  if (block.binds) return "binds the message";
  return "stopped at byte " + std::to_string(block.at + 1) + ": expected " + block.expected + ", found " +
         (block.found.empty() ? "nothing" : inQuotes(block.found));
}

std::string nearBlockText(const NearBlock& block, std::string_view message, const Drawing::Style& style) {
  std::string text = bold(visible(block.name), style) + "\n  format: " + visible(formatString(block.parts)) + "\n\n";
  if (!block.alignment.pieces.empty()) {
    Drawing drawing(block.alignment.pieces, block.parts, message);
    if (!block.binds) drawing.markRange(block.markFrom, block.markTo);
    text += drawing.text(style, "  ") + "\n";
  }
  if (block.binds) return text + "  It binds the message, but is not reached: another block is tried before it.\n";
  text += "  " + stopText(block) + "\n  " + counted(static_cast<std::size_t>(block.attempts), "attempt") +
          (block.outcome == Outcome::kGaveUp ? ", then given up" : "") +
          (block.taken.empty() ? "" : "; taken in the furthest: " + takenText(block.taken)) + "\n";
  if (!block.reason.empty()) text += "  " + block.reason + "\n";
  if (block.bindsWhenRepaired) text += "  It would bind: " + visible(block.repairedMessage) + "\n";
  return text;
}

std::string explanationText(const Explanation& explanation, const ExplanationStyle& style) {
  std::string text;
  if (explanation.bound) {
    text = boundText(*explanation.bound, explanation, style) + triedText(explanation.tried, style.mostTried);
  } else {
    text = "no block binds this message; " + counted(explanation.tried.size(), "block") + " tried\n";
  }
  if (explanation.nearest.empty()) return text;  // nothing has any text in common with it, or nobody asked
  text += explanation.bound ? "\nnearer to the message, but not binding it:\n" : "\nthe nearest:\n";
  int n = 0;
  for (const NearBlock& block : explanation.nearest)
    text += "\n" + std::to_string(++n) + ". " + nearBlockText(block, explanation.message, style.drawing);
  return text;
}

std::string explanationJson(const Explanation& explanation) {
  JsonText json;
  json.open('{').key("message").string(explanation.message).key("bound");
  explanation.bound ? addBound(json, *explanation.bound) : void(json.null());
  json.key("tried").open('[');
  for (const TriedBlock& block : explanation.tried) {
    json.open('{');
    addTried(json, block);
    json.close('}');
  }
  json.close(']').key("nearest").open('[');
  for (const NearBlock& block : explanation.nearest) addNear(json, block);
  return json.close(']').close('}').take();
}

}  // namespace quillon
