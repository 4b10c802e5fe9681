#include "cds/ClassSet.h"

#include <algorithm>

namespace quillon {

std::optional<std::size_t> ClassSet::find(std::uint32_t eventId) const {
  if (eventId < size() && classes_[eventId].eventId == eventId) return eventId;  // so quillon writes them
  const auto found =
      std::lower_bound(byId_.begin(), byId_.end(), eventId,
                       [this](std::uint32_t place, std::uint32_t id) { return classes_[place].eventId < id; });
  if (found == byId_.end() || classes_[*found].eventId != eventId) return std::nullopt;
  return *found;
}

ClassSet::Class ClassSet::behind(std::size_t place) const {
  if (place + 1 < size()) return classes_[place + 1];
  Class end;
  end.attribute = static_cast<std::uint32_t>(attributes_.size());
  end.slot = static_cast<std::uint32_t>(slots_.size());
  return end;
}

std::uint32_t ClassSet::pieceBehind(std::size_t slot) const {
  return slot + 1 < slots_.size() ? slots_[slot + 1].piece : static_cast<std::uint32_t>(pieces_.size());
}

}  // namespace quillon
