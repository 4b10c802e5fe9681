#include "cds/EventMaker.h"

#include <algorithm>
#include <utility>

namespace quillon {
namespace {

/// Stands where an attribute has not come yet; told by its address.
constexpr std::string_view kNotYet = "?";

}  // namespace

EventMaker::EventMaker(std::shared_ptr<const ClassSet> classes, std::size_t most)
    : classes_(std::move(classes)), most_(most) {}

EventMaker::Result EventMaker::make(std::uint32_t eventId, std::span<const NamedValue> attributes) {
  event_ = {};
  const std::optional<std::size_t> place = classes_->find(eventId);
  if (!place) return Result::kNoClass;
  if (!select(*place, attributes)) return Result::kNoAttribute;

  const std::size_t begin = classes_->classes_[*place].slot;
  const std::size_t end = begin + classes_->slotCount(*place);
  std::size_t size = 0;
  for (std::size_t slot = begin; slot < end; ++slot) {
    size += sizeOf(slot);
    if (size > most_) return Result::kTooLarge;
  }
  room_.clear();
  room_.reserve(size);  // so that it stays where it is while views of it are taken
  slots_.clear();
  slots_.reserve(end - begin);
  for (std::size_t slot = begin; slot < end; ++slot) {
    slots_.push_back({classes_->view(classes_->slots_[slot].name), put(slot)});
  }
  event_ = {classes_->name(*place), eventId, slots_};
  return Result::kMade;
}

/// Sets the values of the lines of SELECT: false when one has none.
bool EventMaker::select(std::size_t place, std::span<const NamedValue> attributes) {
  const std::size_t count = classes_->attributeCount(place);
  values_.resize(count + 2);
  values_[0] = {};
  values_[1] = classes_->view(classes_->classes_[place].number);
  if (takeInOrder(place, attributes)) return true;

  const auto lines = std::span(values_).subspan(2);
  std::fill(lines.begin(), lines.end(), kNotYet);
  const auto byName = std::span(classes_->byName_).subspan(classes_->classes_[place].attribute, count);
  for (const NamedValue& attribute : attributes) {
    const auto found = std::lower_bound(
        byName.begin(), byName.end(), attribute.name,
        [this, place](std::uint32_t n, std::string_view name) { return classes_->attribute(place, n) < name; });
    if (found == byName.end() || classes_->attribute(place, *found) != attribute.name) continue;
    if (lines[*found].data() == kNotYet.data()) lines[*found] = attribute.value;
  }
  for (std::size_t n = 0; n < count; ++n) {
    if (lines[n].data() != kNotYet.data()) continue;
    missing_ = classes_->attribute(place, n);
    return false;
  }
  return true;
}

bool EventMaker::takeInOrder(std::size_t place, std::span<const NamedValue> attributes) {
  const std::size_t count = classes_->attributeCount(place);
  if (attributes.size() < count) return false;
  for (std::size_t n = 0; n < count; ++n) {
    if (attributes[n].name != classes_->attribute(place, n)) return false;
    values_[n + 2] = attributes[n].value;
  }
  return true;
}

/// The bytes that put() needs room for.
std::size_t EventMaker::sizeOf(std::size_t slot) const {
  if (isOnePart(pieces(slot))) return 0;
  std::size_t size = 0;
  for (const ClassSet::Piece& piece : pieces(slot)) size += piece.text.size + values_[piece.line].size();
  return size;
}

std::string_view EventMaker::put(std::size_t slot) {
  const auto parts = pieces(slot);
  if (isOnePart(parts)) {
    const ClassSet::Piece& part = parts.front();
    return part.line != 0 ? values_[part.line] : classes_->view(part.text);
  }
  const std::size_t begin = room_.size();
  for (const ClassSet::Piece& piece : parts) (room_ += classes_->view(piece.text)) += values_[piece.line];
  return std::string_view(room_).substr(begin);
}

std::span<const ClassSet::Piece> EventMaker::pieces(std::size_t slot) const {
  const std::size_t begin = classes_->slots_[slot].piece;
  return std::span(classes_->pieces_).subspan(begin, classes_->pieceBehind(slot) - begin);
}

/// A constant or a value alone is not copied.
bool EventMaker::isOnePart(std::span<const ClassSet::Piece> pieces) const {
  return pieces.size() == 1 && (pieces.front().text.size == 0 || pieces.front().line == 0);
}

}  // namespace quillon
