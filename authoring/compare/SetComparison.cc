#include "authoring/compare/SetComparison.h"

#include <algorithm>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"

namespace quillon {
namespace {

constexpr char kEndOfPart = '\0';  // is in no text of a format file

void addPart(std::string& definition, std::string_view part) { (definition += part) += kEndOfPart; }

/// All that the event has of an entry but the values of variables.
std::string definitionOf(const MsgMapEntry& entry) {
  std::string definition;
  addPart(definition, std::to_string(entry.kind()));
  addPart(definition, entry.getName().view());
  if (entry.kind() == varMap) {
    addPart(definition, std::to_string(entry.position()));
  } else if (entry.kind() == constMap) {
    addPart(definition, static_cast<const ConstMapEntry&>(entry).getValue().view());
  } else if (entry.kind() == printMap) {
    for (const qlStrobj* part : static_cast<const PrintMapEntry&>(entry).parts()) addPart(definition, part->view());
  }
  return definition;
}

/// The variable that `entry` shows, from 0; nothing when it shows a text.
std::optional<std::uint32_t> variableOf(const MsgMapEntry& entry, const FormatSpec& format) {
  const int n = entry.position();
  if (entry.kind() != varMap || n < 1 || n > std::min(format.numvars(), FormatSpec::kMaxVariables)) return std::nullopt;
  return static_cast<std::uint32_t>(n - 1);
}

std::vector<const MsgMapEntry*> entriesOf(const FormatSpec& format) {
  std::vector<const MsgMapEntry*> entries;
  for (const MsgMapEntry* entry : format.getMaps()) entries.push_back(entry);
  return entries;
}

std::vector<SlotValue> slotsOf(const ComparedSet& set, const Match* match) {
  if (!match) return {};
  return slotValues(*set.at(match->place).format, match->values);
}

}  // namespace

const char* changeText(Change change) {
  static const char* const kTexts[] = {"the same",      "newly bound", "bound no more",
                                       "another class", "other slots", "other values"};
  return kTexts[static_cast<std::size_t>(change)];
}

const char* changeName(Change change) {
  static const char* const kNames[] = {"none", "gained", "lost", "class", "slots", "values"};
  return kNames[static_cast<std::size_t>(change)];
}

ComparedSet::ComparedSet(const LogDriver& driver) : formats_(FormatSet::make(driver)) {
  all_.reserve(formats_->size());
  for (const FormatSpec* format : driver.getFormats()) {
    Format& made = all_.emplace_back();
    made.format = format;
    made.string = format->getFmtStr().view();
    for (const MsgMapEntry* entry : format->getMaps()) made.slots.push_back(definitionOf(*entry));
  }
}

std::string_view ComparedSet::name(std::uint32_t place) const { return all_[place].format->getName().view(); }

SetComparer::SetComparer(const ComparedSet& before, const ComparedSet& after)
    : old_(before), new_(after), oldMatcher_(before.formats()), newMatcher_(after.formats()) {}

Difference SetComparer::compare(std::string_view message, bool fromEventLog) {
  oldMatch_ = oldMatcher_.bind(message, fromEventLog);
  newMatch_ = newMatcher_.bind(message, fromEventLog);
  Difference difference;
  if (oldMatch_) difference.before = oldMatch_->place;
  if (newMatch_) difference.after = newMatch_->place;
  if (!oldMatch_ || !newMatch_) {
    if (newMatch_) difference.change = Change::kGained;
    if (oldMatch_) difference.change = Change::kLost;
    return difference;
  }
  const Relation& blocks = relation(difference.before, difference.after);
  difference.change = blocks.change;
  if (difference.change != Change::kNone) return difference;
  const bool isSamePairs =
      std::all_of(blocks.pairs.begin(), blocks.pairs.end(), [this](const SlotPair& pair) { return isSame(pair); });
  if (!isSamePairs || (blocks.comparesEvents && slotsBefore() != slotsAfter())) difference.change = Change::kValues;
  return difference;
}

std::vector<SlotValue> SetComparer::slotsBefore() const { return slotsOf(old_, oldMatch_); }
std::vector<SlotValue> SetComparer::slotsAfter() const { return slotsOf(new_, newMatch_); }

const SetComparer::Relation& SetComparer::relation(std::uint32_t before, std::uint32_t after) {
  const auto [known, isNew] = relations_.try_emplace(static_cast<std::uint64_t>(before) << 32 | after);
  if (isNew) known->second = relate(old_.at(before), new_.at(after));
  return known->second;
}

/// A PRINTF shows other slots, which have pairs of their own: only where it is another one, the events are compared.
SetComparer::Relation SetComparer::relate(const ComparedSet::Format& before, const ComparedSet::Format& after) {
  Relation blocks;
  const std::vector<const MsgMapEntry*> old = entriesOf(*before.format);
  const std::vector<const MsgMapEntry*> made = entriesOf(*after.format);
  const auto isSameSlot = [](const MsgMapEntry* a, const MsgMapEntry* b) {
    return a->getName().view() == b->getName().view();
  };
  if (before.format->getName().view() != after.format->getName().view()) {
    blocks.change = Change::kClass;
    return blocks;
  }
  if (!std::equal(old.begin(), old.end(), made.begin(), made.end(), isSameSlot)) {
    blocks.change = Change::kSlots;
    return blocks;
  }
  // What a text is does not depend on the message; variables are left out of these.
  const std::vector<SlotValue> textsBefore = slotValues(*before.format, {});
  const std::vector<SlotValue> textsAfter = slotValues(*after.format, {});
  const bool isSameFormat = before.string == after.string;  // then all variables are the same
  for (std::size_t i = 0; i < old.size(); ++i) {
    const bool isSameDefinition = before.slots[i] == after.slots[i];
    if (old[i]->kind() == printMap || made[i]->kind() == printMap) {
      blocks.comparesEvents = blocks.comparesEvents || !isSameDefinition;
      continue;
    }
    SlotPair pair;
    pair.before = variableOf(*old[i], *before.format).value_or(SlotPair::kText);
    pair.after = variableOf(*made[i], *after.format).value_or(SlotPair::kText);
    if (isSameDefinition && (isSameFormat || pair.before == SlotPair::kText)) continue;
    if (pair.before == SlotPair::kText) pair.textBefore = textsBefore[i].value;
    if (pair.after == SlotPair::kText) pair.textAfter = textsAfter[i].value;
    const bool isFixed = pair.before == SlotPair::kText && pair.after == SlotPair::kText;
    if (!isFixed) {
      blocks.pairs.push_back(std::move(pair));
    } else if (pair.textBefore != pair.textAfter) {
      blocks.change = Change::kValues;
    }
  }
  return blocks;
}

bool SetComparer::isSame(const SlotPair& pair) const {
  const std::string_view before =
      pair.before == SlotPair::kText ? std::string_view(pair.textBefore) : oldMatch_->values[pair.before];
  const std::string_view after =
      pair.after == SlotPair::kText ? std::string_view(pair.textAfter) : newMatch_->values[pair.after];
  return before == after;
}

}  // namespace quillon
