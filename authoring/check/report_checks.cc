// What the reading reports besides syntax errors, and what keeps class definitions from being written. Each report
// becomes one finding, which adds what the reading does not know: what is near, and where the other end is.
//
// One cause, one finding. What a syntax error leaves behind is a block without some of its slots, and a block that was
// skipped is missing altogether: what is reported because of that alone is left out.

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "authoring/check/checks.h"
#include "foundation/characters.h"
#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"

namespace quillon {
namespace {

using Block = FormatPlaces::Block;
using Slot = FormatPlaces::Slot;
using Token = FormatPlaces::Token;

std::string text(const qlStrobj& of) { return std::string(of.view()); }

std::string variable(int n) { return "$" + std::to_string(n); }

/// The format string of `block`, as far as it is in one line.
Place formatString(const Block& block) {
  return block.components.empty() ? block.name : joined(block.components.front(), block.components.back());
}

/// "2 variables, $1 to $2"
std::string variablesOf(const FormatSpec& format) {
  const int n = format.numvars();
  if (n == 0) return "this format string has no variables";
  return n == 1 ? "this format string has one variable, $1"
                : "this format string has " + std::to_string(n) + " variables, $1 to " + variable(n);
}

/// The fields of `block` that are variables, in their order.
std::vector<Place> variablePlaces(const Block& block) {
  std::vector<Place> places;
  std::size_t i = 0;
  for (FormatComponent* component : block.format->getComponents()) {
    if (i == block.components.size()) break;
    if (component->variable()) places.push_back(block.components[i]);
    ++i;
  }
  return places;
}

std::vector<std::string> slotNames(const FormatSpec& format) {
  std::vector<std::string> names;
  for (const MsgMapEntry* entry : format.getMaps()) names.push_back(text(entry->getName()));
  return names;
}

/// Variables of a block without slots that are told one by one; more are told together.
constexpr std::ptrdiff_t kToldApart = 3;

/// How many unknown names are compared with all that there are: whoever has more of them has another problem.
constexpr int kSuggestions = 100;

/// The names of blocks, by where their headers stand: also of those that were skipped behind a syntax error.
class BlockNames {
 public:
  explicit BlockNames(const CheckedFile& file) {
    for (const Block& block : file.blocks()) {
      add(file.at(block.name), block.name);
      read_.insert(block.name.line);
    }
    bool wasSkipped = false;
    for (const Report& report : file.reports()) wasSkipped |= report.code == ReportCode::kSyntaxError;
    if (!wasSkipped) return;
    for (int line = 1; line <= file.lines(); ++line) {
      const std::string_view whole = file.line(line);
      if (!whole.starts_with("FORMAT ") || read_.contains(line)) continue;
      const std::size_t from = std::min(whole.find_first_not_of(" \t", 7), whole.size());
      const std::size_t end = std::min(whole.find_first_of(" \t\r", from), whole.size());
      if (end > from) add(whole.substr(from, end - from), placeIn(line, from + 1, end - from));
    }
  }

  /// Where blocks of this name are.
  const std::vector<Place>& of(const std::string& name) const {
    static const std::vector<Place> none;
    const auto found = places_.find(name);
    return found == places_.end() ? none : found->second;
  }
  bool wasRead(const Place& name) const { return read_.contains(name.line); }
  const std::vector<std::string>& all() const { return names_; }

 private:
  void add(std::string_view name, const Place& place) {
    std::vector<Place>& places = places_[std::string(name)];
    if (places.empty()) names_.emplace_back(name);
    places.push_back(place);
  }

  std::unordered_map<std::string, std::vector<Place>> places_;
  std::unordered_set<int> read_;  ///< Lines of the names of blocks that were read.
  std::vector<std::string> names_;
};

class Explanations {
 public:
  Explanations(const CheckedFile& file, Findings& findings) : file_(file), findings_(findings), names_(file) {}

  void explain(const Report& report) {
    switch (report.code) {
      case ReportCode::kUndefinedParent:
        return explainParent(report);
      case ReportCode::kTokenTooLong: {
        Finding& found = findings_.add(FindingCode::kTokenTooLong, report.place,
                                       "this is " + std::to_string(report.place.length) + " bytes long");
        found.hint = "a word or a quoted text has no more than 255 bytes";
        return;
      }
      case ReportCode::kUnclosedComment:
        return explainComment(report);
      case ReportCode::kTooManyVariables:
        return explainTooMany(report);
      case ReportCode::kVariableOutOfRange:
        return explainRange(report);
      case ReportCode::kInheritedMapDropped:
        return explainDropped(report);
      case ReportCode::kSyntaxError:
        return;
      default:
        findings_.add(FindingCode::kRefused, report.place, report.text);
    }
  }

 private:
  const Block* blockAt(const Place& place) const {
    const auto& blocks = file_.blocks();
    const auto after = std::ranges::upper_bound(blocks, place.line, {}, [](const Block& b) { return b.name.line; });
    return after == blocks.begin() ? nullptr : &*std::prev(after);
  }

  void explainParent(const Report& report) {
    const std::string name(file_.at(report.place));
    const std::vector<Place>& places = names_.of(name);
    const Place* later = nullptr;
    for (const Place& place : places) {
      if (place.line < report.place.line && !names_.wasRead(place)) return;  // a syntax error has hidden it
      if (place.line == report.place.line) {
        Finding& found =
            findings_.add(FindingCode::kParentItself, report.place, "block " + quoted(name) + " follows itself");
        found.hint = "name an earlier block, or remove FOLLOWS";
        return;
      }
      if (!later) later = &place;
    }
    if (later) {
      Finding& found =
          findings_.add(FindingCode::kParentLater, report.place, "block " + quoted(name) + " comes later in the file");
      found.notes.push_back({*later, "it begins here"});
      found.hint =
          "a block follows one that ends before it; put the parent first. Later blocks are tried before earlier ones";
      return;
    }
    Finding& found = findings_.add(FindingCode::kUndefinedParent, report.place, "there is no block " + quoted(name));
    if (const std::string* const near = --suggestions_ >= 0 ? nearest(name, names_.all()) : nullptr) {
      found.notes.push_back({names_.of(*near).front(), "this one is called " + quoted(*near)});
      found.hint = "did you mean " + quoted(*near) + "?";
    } else {
      found.hint = "FOLLOWS names an earlier block of the same file";
    }
  }

  void explainComment(const Report& report) {
    Finding& found = findings_.add(FindingCode::kUnclosedComment, report.place, "this comment is never closed");
    const std::size_t start = file_.offset(report.place) + 2;
    const std::string_view rest = file_.text().substr(std::min(start, file_.text().size()));
    const auto lineOf = [&](std::size_t at) {
      return report.place.line + static_cast<int>(std::ranges::count(rest.substr(0, at), '\n'));
    };
    if (const std::size_t header = rest.find("\nFORMAT "); header != std::string_view::npos) {
      found.notes.push_back({placeIn(lineOf(header + 1), 1, 6), "all from here on is part of it"});
    }
    found.hint = "end it with */; the compiler would wait for that for ever";
  }

  /// All of a block at once: each variable beyond the limit is reported.
  void explainTooMany(const Report& report) {
    const Block* const block = blockAt(report.place);
    if (block == tooMany_) return;
    tooMany_ = block;
    const int count = block->format->numvars();
    Finding& found =
        findings_.add(FindingCode::kTooManyVariables, report.place,
                      "this is variable 65 of " + std::to_string(count) + "; a format string has at most 64");
    found.notes.push_back({block->name, "in this block"});
    found.hint = "let one %s* take several words that no slot needs apart";
  }

  void explainRange(const Report& report) {
    const Block* const block = blockAt(report.place);
    const std::string_view written = file_.at(report.place);
    const bool isBare = written == "$";
    Finding& found =
        findings_.add(FindingCode::kVariableOutOfRange, report.place,
                      isBare ? "'$' without a number is no variable" : "there is no variable " + std::string(written));
    if (block) found.notes.push_back({formatString(*block), variablesOf(*block->format)});
    found.hint = isBare ? "write $1, $2 and so on, or quote a constant: \"$\""
                        : "variables are counted from $1, in the order of the fields";
  }

  void explainDropped(const Report& report) {
    const MsgMapEntry& entry = *report.subject.entry;
    const Block* const block = blockAt(report.place);
    const std::string name = text(entry.getName());
    // A slot that the block maps itself again has lost nothing.
    if (block && block->format->find(entry.getName().view())) return;
    Finding& found =
        findings_.add(FindingCode::kInheritedDropped, report.place,
                      "slot " + quoted(name) + " is not inherited: it is " + variable(entry.position()) + " there");
    if (const Slot* const slot = file_.slotOf(entry))
      found.notes.push_back({slot->namePlace, "the slot of the parent"});
    if (block) found.notes.push_back({formatString(*block), variablesOf(*block->format)});
    found.hint = "give the slot a value in this block, or follow another one";
  }

  const CheckedFile& file_;
  Findings& findings_;
  const BlockNames names_;
  const Block* tooMany_ = nullptr;
  int suggestions_ = kSuggestions;
};

// ---- Variables and slots.

void checkVariables(const CheckedFile& file, const Block& block, Findings& findings) {
  const FormatSpec& format = *block.format;
  const std::vector<Place> places = variablePlaces(block);
  std::vector<std::vector<const MsgMapEntry*>> uses(places.size());
  for (const MsgMapEntry* entry : format.getMaps()) {
    const auto n = static_cast<std::size_t>(entry->position());
    if (n >= 1 && n <= uses.size()) uses[n - 1].push_back(entry);
  }
  const auto limit = std::min(places.size(), static_cast<std::size_t>(FormatSpec::kMaxVariables));
  const auto unmapped = std::count_if(uses.begin(), uses.begin() + static_cast<std::ptrdiff_t>(limit),
                                      [](const auto& slots) { return slots.empty(); });
  bool areTold = false;
  for (std::size_t i = 0; i < limit; ++i) {
    const std::string name = variable(static_cast<int>(i) + 1);
    if (uses[i].empty()) {
      if (areTold) continue;
      areTold = unmapped > kToldApart;
      std::string says = "no slot holds " + name;
      if (areTold) says.append(", nor any of ").append(std::to_string(unmapped - 1)).append(" others");
      Finding& found = findings.add(FindingCode::kVariableNotMapped, places[i], std::move(says));
      found.notes.push_back({block.name, "in this block"});
      found.hint = "map it to a slot; a - before the slot's name keeps it out of the event";
    } else if (uses[i].size() > 1) {
      Finding& found = findings.add(FindingCode::kVariableMappedTwice, places[i],
                                    std::to_string(uses[i].size()) + " slots hold " + name);
      for (const MsgMapEntry* entry : uses[i]) {
        if (const Slot* const slot = file.slotOf(*entry))
          found.notes.push_back({slot->namePlace, quoted(entry->getName().view()) + " does"});
      }
      found.hint = "map each variable once; PRINTF(\"%s\", slot) repeats the value of a slot";
    }
  }
}

// ---- PRINTF.

class PrintExplanations {
 public:
  PrintExplanations(const CheckedFile& file, Findings& findings) : file_(file), findings_(findings) {}

  /// A fault of an inherited PRINTF that its own block has too is told there.
  void explain(const Block& block, const PrintFault& fault) {
    if (!seen_.insert({fault.entry, fault.code, fault.part}).second) return;
    const Slot* const slot = file_.slotOf(*fault.entry);
    const bool isOwn = fault.entry->getOwner() == block.format;
    const auto part = static_cast<std::size_t>(fault.part);
    Place place = block.name;
    if (slot) place = part == 0 || part > slot->arguments.size() ? slot->value : slot->arguments[part - 1];
    const Place inFile = place;
    if (!isOwn) place = block.parent;
    Finding& found = make(block, fault, place, slot);
    if (!isOwn) found.notes.push_back({inFile, "the PRINTF is inherited from here"});
  }

 private:
  Finding& make(const Block& block, const PrintFault& fault, const Place& place, const Slot* slot) {
    const std::string name = text(fault.entry->getName());
    const std::string argument = text(fault.text);
    if (fault.code == ReportCode::kPrintArgumentCount) {
      const int fields = count(argument);
      const auto given = slot ? slot->arguments.size() : 0;
      Finding& found = findings_.add(FindingCode::kPrintfCount, place,
                                     "this text has " + std::to_string(fields) + " %s, and " + std::to_string(given) +
                                         (given == 1 ? " slot follows" : " slots follow"));
      found.hint = "each %s stands for one slot; %%s counts as one, too";
      return found;
    }
    if (fault.code == ReportCode::kPrintUnknownSlot) return unknownSlot(block, place, argument);
    if (argument == name) {
      Finding& found =
          findings_.add(FindingCode::kPrintfItself, place, "the PRINTF of " + quoted(name) + " names its own slot");
      found.hint =
          "put the value that it is to hold into another slot; a - before its name keeps that out of the event";
      return found;
    }
    Finding& found =
        findings_.add(FindingCode::kPrintfCircle, place,
                      "the PRINTFs of " + quoted(argument) + " and " + quoted(name) + " refer to each other");
    const MsgMapEntry* const other = block.format->find(fault.text.view());
    const Slot* const otherSlot = other ? file_.slotOf(*other) : nullptr;
    if (otherSlot) found.notes.push_back({otherSlot->namePlace, "the circle goes through here"});
    found.hint = "let one of them name the variables themselves";
    return found;
  }

  Finding& unknownSlot(const Block& block, const Place& place, const std::string& argument) {
    Finding& found =
        findings_.add(FindingCode::kPrintfUnknownSlot, place,
                      "block " + quoted(block.format->getName().view()) + " has no slot " + quoted(argument));
    if (argument.starts_with('$')) {
      found.hint =
          "PRINTF takes the names of slots; map the variable to one, with a - before its name if it is for PRINTF "
          "alone";
      const int n = leadingNumber(argument.c_str() + 1);
      const MsgMapEntry* holder = nullptr;
      for (const MsgMapEntry* entry : block.format->getMaps()) {
        if (n > 0 && entry->position() == n) holder = entry;
      }
      const Slot* const slot = holder ? file_.slotOf(*holder) : nullptr;
      if (slot) {
        found.notes.push_back({slot->namePlace, "this slot holds it"});
        found.fix = Fix{"name the slot", {{place, text(holder->getName())}}};
      }
      return found;
    }
    const std::vector<std::string> names = --suggestions_ >= 0 ? slotNames(*block.format) : std::vector<std::string>();
    if (const std::string* const near = nearest(argument, names)) {
      const Slot* const slot = file_.slotOf(*block.format->find(*near));
      if (slot) found.notes.push_back({slot->namePlace, "there is " + quoted(*near)});
      found.hint = "did you mean " + quoted(*near) + "?";
    } else {
      found.hint = argument.starts_with('-') ? "name the slot without the -"
                                             : "PRINTF takes slots of its block, inherited ones included";
    }
    return found;
  }

  static int count(std::string_view format) {
    int fields = 0;
    for (std::size_t at = format.find("%s"); at != std::string_view::npos; at = format.find("%s", at + 2)) ++fields;
    return fields;
  }

  const CheckedFile& file_;
  Findings& findings_;
  std::set<std::tuple<const PrintMapEntry*, ReportCode, int>> seen_;
  int suggestions_ = kSuggestions;
};

}  // namespace

void checkReports(const CheckedFile& file, Findings& findings) {
  Explanations explanations(file, findings);
  for (const Report& report : file.reports()) explanations.explain(report);
  for (const Block& block : file.blocks()) {
    if (file.isWhole(block)) checkVariables(file, block, findings);
  }
}

void checkPrintfs(const CheckedFile& file, Findings& findings) {
  PrintExplanations explanations(file, findings);
  for (const CheckedFile::BlockFaults& faults : file.printFaults()) {
    if (!file.isWhole(*faults.block)) continue;
    for (const PrintFault& fault : faults.faults) explanations.explain(*faults.block, fault);
  }
}

}  // namespace quillon
