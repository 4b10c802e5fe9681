#include "authoring/compare/ChangeSummary.h"

#include <algorithm>
#include <utility>

#include "authoring/report/JsonText.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

constexpr Change kChanges[] = {Change::kClass, Change::kSlots, Change::kValues, Change::kGained, Change::kLost};

std::string nameOf(const ComparedSet& set, std::uint32_t place) {
  return place == Difference::kNone ? "none" : visible(set.name(place));
}

const SlotValue* find(const std::vector<SlotValue>& slots, const std::string& name) {
  const auto found = std::find_if(slots.begin(), slots.end(), [&name](const SlotValue& s) { return s.name == name; });
  return found == slots.end() ? nullptr : &*found;
}

/// The slots that differ: "-" for what is gone, "+" for what has come.
std::string slotsText(const ChangedMessage& changed, const std::string& indent) {
  std::string text;
  const auto addLine = [&](const char* sign, const SlotValue& slot) {
    text += indent + sign + visible(slot.name) + " = " + visible(slot.value) + "\n";
  };
  for (const SlotValue& slot : changed.before) {
    const SlotValue* const other = find(changed.after, slot.name);
    if (other && other->value == slot.value) continue;
    addLine("- ", slot);
    if (other) addLine("+ ", *other);
  }
  for (const SlotValue& slot : changed.after) {
    if (!find(changed.before, slot.name)) addLine("+ ", slot);
  }
  if (text.empty() && changed.difference.change == Change::kSlots) text = indent + "the same in another order\n";
  return text;
}

void addEvent(JsonText& json, const ComparedSet& set, std::uint32_t place, const std::vector<SlotValue>& slots) {
  if (place == Difference::kNone) {
    json.null();
    return;
  }
  json.open('{').key("class").string(set.name(place)).key("event_id").number(set.formats()->eventId(place));
  json.key("slots").open('[');
  for (const SlotValue& slot : slots)
    json.open('{').key("slot").string(slot.name).key("value").string(slot.value).close('}');
  json.close(']').close('}');
}

void addChange(JsonText& json, const ChangedMessage& changed, const ComparedSet& before, const ComparedSet& after) {
  json.key("change").string(changeName(changed.difference.change)).key("message").string(changed.message);
  addEvent(json.key("old"), before, changed.difference.before, changed.before);
  addEvent(json.key("new"), after, changed.difference.after, changed.after);
}

/// The places of the blocks that have bound nothing, in the order of the file.
std::vector<std::uint32_t> idle(const ComparedSet& set, const std::vector<std::uint64_t>& bound) {
  std::vector<std::uint32_t> places;
  for (std::uint32_t place = 0; place < set.size(); ++place) {
    if (place >= bound.size() || bound[place] == 0) places.push_back(place);
  }
  std::sort(places.begin(), places.end(),
            [&set](std::uint32_t a, std::uint32_t b) { return set.formats()->eventId(a) < set.formats()->eventId(b); });
  return places;
}

std::string idleText(const char* which, const ComparedSet& set, const std::vector<std::uint64_t>& bound) {
  std::string text;
  for (const std::uint32_t place : idle(set, bound)) text += "  " + visible(set.name(place)) + "\n";
  return text.empty() ? text : std::string("\nbind nothing in ") + which + ":\n" + text;
}

}  // namespace

void ChangeSummary::add(const Difference& difference, std::string_view message, const SetComparer& slots) {
  ++messages_;
  if (difference.change == Change::kNone) return;
  Entry& entry = entryOf(difference);
  if (entry.count++ > 0) return;
  entry.example = {difference, std::string(message), slots.slotsBefore(), slots.slotsAfter()};
}

void ChangeSummary::add(ChangeSummary&& later) {
  messages_ += later.messages_;
  for (Entry& entry : later.changes_) {
    Entry& known = entryOf(entry.example.difference);
    if (known.count == 0) known.example = std::move(entry.example);
    known.count += entry.count;
  }
  later.clear();
}

void ChangeSummary::addBound(const ComparedSet& before, const ComparedSet& after, const SetComparer& comparer) {
  boundBefore_.resize(before.size());
  boundAfter_.resize(after.size());
  for (std::uint32_t place = 0; place < before.size(); ++place) boundBefore_[place] += comparer.boundBefore(place);
  for (std::uint32_t place = 0; place < after.size(); ++place) boundAfter_[place] += comparer.boundAfter(place);
}

void ChangeSummary::clear() {
  messages_ = 0;
  places_.clear();
  changes_.clear();
}

ChangeSummary::Entry& ChangeSummary::entryOf(const Difference& difference) {
  const auto [known, isNew] =
      places_.try_emplace({difference.before, difference.after, difference.change}, changes_.size());
  return isNew ? changes_.emplace_back() : changes_[known->second];
}

std::vector<const ChangeSummary::Entry*> ChangeSummary::byCount() const {
  std::vector<const Entry*> entries;
  entries.reserve(changes_.size());
  for (const Entry& entry : changes_) entries.push_back(&entry);
  std::stable_sort(entries.begin(), entries.end(), [](const Entry* a, const Entry* b) { return a->count > b->count; });
  return entries;
}

std::uint64_t ChangeSummary::countOf(Change change) const {
  std::uint64_t count = 0;
  for (const Entry& entry : changes_) count += entry.example.difference.change == change ? entry.count : 0;
  return count;
}

std::string ChangeSummary::text(const ComparedSet& before, const ComparedSet& after) const {
  std::string text = "messages " + std::to_string(messages_) + "\n";
  std::uint64_t changed = 0;
  for (const Change change : kChanges) changed += countOf(change);
  text += "the same " + std::to_string(messages_ - changed) + "\n";
  for (const Change change : kChanges) {
    if (countOf(change) > 0) text += std::string(changeText(change)) + " " + std::to_string(countOf(change)) + "\n";
  }
  for (const Entry* entry : byCount()) {
    const Difference& difference = entry->example.difference;
    text += "\n" + std::to_string(entry->count) + " " + nameOf(before, difference.before) + " -> " +
            nameOf(after, difference.after) + ", " + changeText(difference.change) + "; the first:\n  " +
            visible(entry->example.message) + "\n" + slotsText(entry->example, "  ");
  }
  return text + idleText("OLD", before, boundBefore_) + idleText("NEW", after, boundAfter_);
}

std::string ChangeSummary::json(const ComparedSet& before, const ComparedSet& after) const {
  JsonText json;
  json.open('{').key("messages").number(messages_).key("changed").open('{');
  for (const Change change : kChanges) json.key(changeName(change)).number(countOf(change));
  json.close('}').key("pairs").open('[');
  for (const Entry* entry : byCount()) {
    json.open('{').key("count").number(entry->count);
    addChange(json, entry->example, before, after);
    json.close('}');
  }
  json.close(']');
  const auto addIdle = [&json](const char* key, const ComparedSet& set, const std::vector<std::uint64_t>& bound) {
    json.key(key).open('[');
    for (const std::uint32_t place : idle(set, bound)) json.string(set.name(place));
    json.close(']');
  };
  addIdle("idle_old", before, boundBefore_);
  addIdle("idle_new", after, boundAfter_);
  return json.close('}').take();
}

std::string changeText(const ChangedMessage& changed, const ComparedSet& before, const ComparedSet& after) {
  return nameOf(before, changed.difference.before) + " -> " + nameOf(after, changed.difference.after) + ", " +
         changeText(changed.difference.change) + ": " + visible(changed.message) + "\n" + slotsText(changed, "  ");
}

std::string changeJson(const ChangedMessage& changed, const ComparedSet& before, const ComparedSet& after) {
  JsonText json;
  json.open('{');
  addChange(json, changed, before, after);
  return json.close('}').take();
}

}  // namespace quillon
