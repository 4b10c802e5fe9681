#include "authoring/check/matcher_checks.h"

#include <algorithm>
#include <cstdio>
#include <tuple>
#include <utility>

#include "authoring/check/checks.h"
#include "authoring/shadow/Retries.h"

namespace quillon {
namespace {

using Block = FormatPlaces::Block;

/// `message` as a note tells it: in one line, and not all of a very long one.
std::string line(std::string_view message) {
  constexpr std::size_t kLongest = 160;
  std::string text(message.substr(0, kLongest));
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) text.replace(at, 1, "\\n");
  return message.size() > kLongest ? text + "... (" + std::to_string(message.size()) + " bytes)" : text;
}

class MatcherCheck {
 public:
  MatcherCheck(const CheckedFile& file, TryOrder order)
      : file_(file), order_(order), formats_(formatsInOrder(file.driver(), order)) {}

  MatcherFindings run() {
    const Shadows shadows = findShadows(formats_);
    const Retries retries = findRetries(formats_);
    for (const ImpassableBlock& block : shadows.impassable) addImpassable(block);
    for (const OddBlock& block : shadows.odd) addOdd(block);
    addShadows(shadows);
    for (const LostEnd& end : retries.lostEnds) addLostEnd(end);
    for (const BlockCost& cost : retries.costly) addCost(cost, retries.usualReadings);
    std::ranges::stable_sort(made_.findings, {}, [](const Finding& finding) {
      return std::tuple(finding.place.line, finding.place.column, finding.code);
    });
    made_.undecidedBlocks = shadows.undecidedBlocks + retries.undecidedBlocks;
    made_.undecidedPairs = shadows.undecidedPairs;
    return std::move(made_);
  }

 private:
  const Block& blockAt(std::uint32_t place) const { return file_.blocks()[formats_->eventId(place)]; }
  std::string nameOf(const Block& block) const { return quoted(file_.at(block.name)); }

  Finding& add(FindingCode code, const Place& place, std::string text) {
    return made_.findings.emplace_back(code, file_.name(), place, std::move(text));
  }

  /// One finding for each block, with all that it loses messages to but those that rightly come first.
  void addShadows(const Shadows& shadows) {
    for (auto first = shadows.found.begin(); first != shadows.found.end();) {
      const auto other = [&](const Shadow& shadow) { return shadow.block != first->block; };
      const auto last = std::find_if(first, shadows.found.end(), other);
      const bool isOdd = std::ranges::binary_search(shadows.odd, first->block, {}, &OddBlock::block);
      std::vector<const Shadow*> faults;
      for (; first != last; ++first) {
        if (isFault(*first, isOdd)) faults.push_back(&*first);
      }
      if (!faults.empty()) addShadow(faults);
    }
  }

  /// What an odd block loses are lines that nobody meant it to have.
  static bool isFault(const Shadow& shadow, bool isOdd) {
    if (shadow.loss == Shadow::Loss::kAll) return true;
    if (isOdd || shadow.loss == Shadow::Loss::kDetail) return false;
    return shadow.loss == Shadow::Loss::kTypical || shadow.plausible;
  }

  void addShadow(const std::vector<const Shadow*>& faults) {
    constexpr std::size_t kMostNotes = 3;
    const Shadow& worst = **std::ranges::min_element(faults, {}, [](const Shadow* shadow) { return shadow->loss; });
    const Block& block = blockAt(worst.block);
    const std::string name = nameOf(block);
    FindingCode code = FindingCode::kOverlap;
    std::string text = name + " loses some of its lines to " + nameOf(blockAt(worst.by));
    if (worst.loss == Shadow::Loss::kAll) {
      code = FindingCode::kNeverBinds;
      text = name + " never binds: what it describes goes to " + nameOf(blockAt(worst.by));
    } else if (worst.loss == Shadow::Loss::kTypical) {
      code = FindingCode::kLosesLines;
      text = name + " loses its lines to " + nameOf(blockAt(worst.by));
    }
    Finding& found = add(code, block.name, std::move(text));
    for (std::size_t i = 0; i < std::min(faults.size(), kMostNotes); ++i) {
      const Block& taker = blockAt(faults[i]->by);
      found.notes.push_back({taker.name, "this one is tried before it, and takes: " + line(faults[i]->witness)});
    }
    if (faults.size() > kMostNotes) {
      found.notes.push_back({Place(), "and " + std::to_string(faults.size() - kMostNotes) + " more blocks take lines"});
    }
    found.hint = order_ == TryOrder::kLastFirst
                     ? "put the more special block behind the more general one: the last block is tried first"
                     : "put the more special block before the more general one: the first block is tried first";
  }

  void addImpassable(const ImpassableBlock& block) {
    const Block& where = blockAt(block.block);
    const Place& component = where.components[block.component];
    Finding& found =
        add(FindingCode::kBindsNothing, component, "no message gets past here: " + nameOf(where) + " binds nothing");
    found.notes.push_back({where.name, "in this block"});
    found.hint = "the fields before it take all that it could match, or there is nothing where it stands";
  }

  void addOdd(const OddBlock& block) {
    const Block& where = blockAt(block.block);
    Finding& found = add(FindingCode::kBindsOddly, joined(where.components.front(), where.components.back()),
                         nameOf(where) + " does not bind lines like its own format string");
    found.notes.push_back({Place(), "not bound: " + line(block.unbound)});
    found.notes.push_back({Place(), "bound:     " + line(block.bound)});
    found.hint =
        "a field of several words ends at the first place where the next constant stands, also in the middle "
        "of a word";
  }

  void addLostEnd(const LostEnd& end) {
    const Block& where = blockAt(end.block);
    const std::string variable = "$" + std::to_string(end.variable);
    const bool first = end.occurrences == 1;
    Finding& found = add(FindingCode::kValueHoldsEnd, where.components[end.component],
                         variable + " may hold the text that ends it, and then " + nameOf(where) + " does not bind");
    found.notes.push_back({Place(), "not bound: " + line(end.witness)});
    const std::string why = first ? "nothing goes back to the first variable once a later one was reached"
                                  : "after 100 failures the matcher gives up";
    found.hint = why + ": end " + variable + " with a text that it cannot hold";
  }

  void addCost(const BlockCost& cost, double usual) {
    const Block& where = blockAt(cost.block);
    char times[64];
    std::snprintf(times, sizeof times, "%.0f times, in other blocks %.0f", cost.readings, usual);
    Finding& found = add(FindingCode::kCostly, joined(where.components.front(), where.components.back()),
                         "a line can cost far more here than in other blocks: each byte is read " + std::string(times));
    found.notes.push_back({Place(), "for example: " + line(cost.message)});
    found.hint = "fields of several words that end at a text which occurs often are tried again and again";
  }

  const CheckedFile& file_;
  const TryOrder order_;
  const std::shared_ptr<const FormatSet> formats_;
  MatcherFindings made_;
};

}  // namespace

std::string MatcherFindings::undecided() const {
  const auto counted = [](std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
  };
  std::string text;
  if (undecidedBlocks > 0) text = counted(undecidedBlocks, "block");
  if (undecidedPairs > 0) text += (text.empty() ? "" : " and ") + counted(undecidedPairs, "pair") + " of blocks";
  return text.empty() ? text : text + " undecided";
}

MatcherFindings checkMatcher(const CheckedFile& file, TryOrder order) {
  if (!file.compiles() || file.blocks().empty()) return {};
  return MatcherCheck(file, order).run();
}

}  // namespace quillon
