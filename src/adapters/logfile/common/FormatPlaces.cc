#include "src/adapters/logfile/common/FormatPlaces.h"

#include <utility>

#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"

namespace quillon {

const FormatPlaces::Slot* FormatPlaces::Block::slotOf(const MsgMapEntry& entry) const {
  const auto found = byEntry_.find(&entry);
  return found == byEntry_.end() ? nullptr : &slots[found->second];
}

Place FormatPlaces::Block::variable(int n) const {
  std::size_t i = 0;
  for (FormatComponent* component : format->getComponents()) {
    if (i == components.size()) break;
    if (component->variable() && --n == 0) return components[i];
    ++i;
  }
  return {};
}

const FormatPlaces::Block* FormatPlaces::blockOf(const FormatSpec& format) const {
  const auto found = byFormat_.find(&format);
  return found == byFormat_.end() ? nullptr : found->second;
}

const FormatPlaces::Slot* FormatPlaces::slotOf(const MsgMapEntry& entry) const {
  const auto owner = byFormat_.find(entry.getOwner());
  return owner == byFormat_.end() ? nullptr : owner->second->slotOf(entry);
}

Place FormatPlaces::of(const Subject& subject) const {
  if (subject.entry) {
    if (const Slot* const slot = slotOf(*subject.entry)) {
      const auto argument = static_cast<std::size_t>(subject.part) - 1;
      if (subject.part > 0 && argument < slot->arguments.size()) return slot->arguments[argument];
      return subject.variable > 0 || subject.part == 0 ? slot->value : slot->namePlace;
    }
  }
  const Block* const block = subject.format ? blockOf(*subject.format) : nullptr;
  if (!block) return {};
  const Place field = subject.variable > 0 ? block->variable(subject.variable) : Place();
  return field ? field : block->name;
}

FormatPlaces::Block& FormatPlaces::begin(const FormatSpec* format) {
  Block& block = blocks_.emplace_back();
  block.format = format;
  byFormat_[format] = &block;
  return block;
}

void PlacedReports::take(Report report) {
  if (report.file.empty()) report.file = file_;
  if (!report.place) report.place = places_.of(report.subject);
  sink_.take(std::move(report));
}

}  // namespace quillon
