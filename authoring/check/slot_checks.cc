// Traps in slots: values that are not what they look like, and slots that do nothing. All but the last look at one line
// each.

#include <algorithm>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "authoring/check/checks.h"
#include "foundation/characters.h"
#include "src/adapters/logfile/common/FormatSpec.h"

namespace quillon {
namespace {

using Block = FormatPlaces::Block;
using Slot = FormatPlaces::Slot;

bool isWordOf(std::string_view text, std::initializer_list<std::string_view> words) {
  return std::ranges::find(words, text) != words.end();
}

std::string upper(std::string_view text) {
  std::string all(text);
  for (char& c : all) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return all;
}

/// Slots of one block by their names, without a "-".
std::string_view nameOf(const Slot& slot) {
  std::string_view name = slot.name;
  if (name.starts_with('-')) name.remove_prefix(1);
  return name;
}

void checkName(const Slot& slot, Findings& findings) {
  const std::string_view name = nameOf(slot);
  if (name.empty()) {
    Finding& found = findings.add(FindingCode::kEmptySlotName, slot.namePlace, "this slot has an empty name");
    found.hint = "the - stands directly before the name";
  } else if (name == "FORMAT" || name == "FOLLOWS") {
    Finding& found = findings.add(FindingCode::kSlotNamedKeyword, slot.namePlace,
                                  "this is a slot named " + std::string(name) + " of the block that is still open");
    found.hint = name == "FORMAT" ? "is an END missing before it?" : "FOLLOWS stands in the line of FORMAT";
  } else if (name.ends_with(':') || name.ends_with('=')) {
    Finding& found = findings.add(FindingCode::kSlotPunctuation, slot.namePlace,
                                  quoted(name.substr(name.size() - 1)) + " is part of the name of this slot");
    found.hint = "nothing but white space stands between the name of a slot and its value";
  }
}

/// A constant that its author may have meant for something else.
void checkConstant(const CheckedFile& file, const Block& block, const Slot& slot, Findings& findings) {
  const std::string_view value = file.at(slot.value);
  const std::string_view bare = value.starts_with('"') ? withoutEnds(value) : value;
  const bool isQuoted = bare.size() != value.size();
  const bool isVariable =
      bare.size() > 1 && bare[0] == '$' && bare.find_first_not_of("0123456789", 1) == std::string_view::npos;
  if (isQuoted && isVariable) {
    Finding& found =
        findings.add(FindingCode::kQuotedVariable, slot.value, "this is the text " + quoted(bare) + " and no variable");
    found.hint = "without quotes it is the variable";
    const int n = leadingNumber(std::string(bare.substr(1)).c_str());
    if (n >= 1 && n <= block.format->numvars()) found.fix = Fix{"remove the quotes", {{slot.value, std::string(bare)}}};
  } else if (!isQuoted && value.size() > 1 && value[0] == '$' && slot.entry) {
    Finding& found =
        findings.add(FindingCode::kNotAVariable, slot.value, quoted(value) + " is a constant and no variable");
    found.hint =
        "a variable is $ and its number; PRINTF joins a variable with text, and quotes say that a constant is meant";
  }
  const std::string keyword = upper(value);
  if (!isQuoted && keyword != value && isWordOf(keyword, {"DEFAULT", "LABEL", "FILENAME", "PRINTF"})) {
    Finding& found = findings.add(FindingCode::kKeywordAsConstant, slot.value,
                                  quoted(value) + " is a constant and not the keyword " + keyword);
    found.hint = "keywords are written in capital letters; quotes say that the constant is meant";
  }
  if (!isQuoted && value.ends_with('\\')) {
    Finding& found =
        findings.add(FindingCode::kTrailingBackslash, slot.value,
                     "the backslash at the end makes the closing quote of the class definition part of the text");
    found.hint = "a constant that ends in a backslash is written \"...\\\\\", which keeps both";
  }
}

/// A text between quotes, of a constant or a PRINTF.
void checkText(const CheckedFile& file, const Slot& slot, Findings& findings) {
  if (slot.value.line != slot.value.endLine) {
    Finding& found = findings.add(FindingCode::kTextOverLines, slot.value, "this text goes over the end of its line");
    found.notes.push_back(
        {placeIn(slot.value.endLine, static_cast<std::size_t>(slot.value.endColumn) - 1, 1), "it ends here"});
    found.hint = "is a quote missing? A line break in a text becomes one in the class definition";
  }
  if (slot.entry && slot.entry->kind() != printMap) return;
  const std::string_view text = file.at(slot.value);
  for (std::size_t at = text.find('%'); at < text.size(); at = text.find('%', at + 2)) {
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    const bool isConversion = next == 'd' || next == 'i' || next == 'u' || next == 'x' || next == 'c' || next == 'f' ||
                              next == 't' || next == 'n' || next == 'S' || next == '%';
    const bool isShare = at > 0 && isDigit(text[at - 1]);
    if (!isConversion || isShare || slot.value.line != slot.value.endLine) continue;
    const std::string_view conversion = text.substr(at, 2);
    Finding& found = findings.add(FindingCode::kOtherConversion,
                                  placeIn(slot.value.line, static_cast<std::size_t>(slot.value.column) + at, 2),
                                  quoted(conversion) + " stays as it is: PRINTF knows %s alone");
    found.hint = next == '%' ? "a per cent sign is written once" : "%s stands for the value of any slot";
  }
}

/// Slots that were given twice: the later line takes the earlier one's place.
void checkTwice(const Block& block, Findings& findings) {
  std::unordered_map<std::string_view, const Slot*> first;
  for (const Slot& slot : block.slots) {
    const auto [earlier, isNew] = first.emplace(nameOf(slot), &slot);
    if (isNew) continue;
    Finding& found = findings.add(FindingCode::kSlotTwice, slot.namePlace,
                                  "slot " + quoted(nameOf(slot)) + " has a value already, which this one replaces");
    found.notes.push_back({earlier->second->namePlace, "the value before"});
    found.hint = "remove one of the two";
    earlier->second = &slot;
  }
}

/// Arguments of a PRINTF that are PRINTFs themselves.
void checkArguments(const CheckedFile& file, const Block& block, const Slot& slot, Findings& findings) {
  for (const Place& argument : slot.arguments) {
    const std::string_view name = file.at(argument);
    const MsgMapEntry* const found = block.format->find(name);
    if (!found || found->kind() != printMap || found == slot.entry) continue;
    Finding& finding =
        findings.add(FindingCode::kPrintfOfPrintf, argument,
                     "slot " + quoted(name) + " is a PRINTF itself, which only class definitions can hold");
    if (const Slot* const other = file.slotOf(*found)) finding.notes.push_back({other->namePlace, "this one"});
    finding.hint = "in the text of an event its %s stays as it is: name the slots that it names";
  }
}

/// Slots that reach no event and no PRINTF: constants with a "-" before their names that nothing names.
void checkUse(const CheckedFile& file, Findings& findings) {
  std::unordered_set<std::string_view> used;
  for (const Block& block : file.blocks()) {
    for (const Slot& slot : block.slots) {
      for (const Place& argument : slot.arguments) used.insert(file.at(argument));
    }
  }
  for (const Block& block : file.blocks()) {
    for (const Slot& slot : block.slots) {
      if (!slot.entry || slot.entry->mapped() || slot.entry->selected() || used.contains(nameOf(slot))) continue;
      if (!file.isWhole(block)) continue;
      Finding& found = findings.add(FindingCode::kUnusedSlot, slot.namePlace,
                                    "slot " + quoted(nameOf(slot)) + " reaches no event, and no PRINTF names it");
      found.hint = "remove the - before its name, or the line";
    }
  }
}

}  // namespace

void checkSlots(const CheckedFile& file, Findings& findings) {
  for (const Block& block : file.blocks()) {
    for (const Slot& slot : block.slots) {
      checkName(slot, findings);
      const bool isPrint = !slot.arguments.empty() || (slot.entry && slot.entry->kind() == printMap);
      if (slot.entry && slot.entry->kind() == constMap) checkConstant(file, block, slot, findings);
      if (isPrint || (slot.entry && slot.entry->kind() == constMap)) checkText(file, slot, findings);
      checkArguments(file, block, slot, findings);
    }
    checkTwice(block, findings);
  }
  checkUse(file, findings);
}

}  // namespace quillon
