#include "adapter/RecordMaker.h"

#include <cinttypes>
#include <cstdio>
#include <random>
#include <utility>

namespace quillon {
namespace {

/// Bytes of an event's values.
constexpr std::size_t kLargestEvent = 64 << 20;

std::string drawName() {
  std::random_device device;
  char name[17];
  std::snprintf(name, sizeof name, "%08x%08x", device(), device());
  return name;
}

}  // namespace

RecordMaker::RecordMaker(std::shared_ptr<const FormatFile> formats, delivery::RecordForm form, std::string source)
    : formats_(std::move(formats)),
      source_(std::move(source)),
      run_(drawName()),
      maker_(formats_->sent()->classes, kLargestEvent) {
  record_.form = form;
  record_.set = formats_->sent()->set;
}

const delivery::Record* RecordMaker::make(const MessageBinder::Outcome& outcome, const EventSource& texts,
                                          const std::optional<Origin>& origin) {
  const std::uint32_t place = outcome.match->place;
  const Attributes& attributes = *formats_->sent()->attributes;
  attributes.list(place, outcome.match->values, texts, attributes_);
  record_.eventId = attributes.eventId(place);
  record_.className = formats_->classes()[place];
  record_.source = origin ? origin->source : source_;
  record_.position = origin ? origin->position : positionOf(outcome);
  if (record_.form == delivery::RecordForm::kAttributes) {
    record_.values = attributes_;
    return &record_;
  }
  if (maker_.make(record_.eventId, attributes_) != EventMaker::Result::kMade) return nullptr;
  record_.className = maker_.event().className;
  record_.values.assign(maker_.event().slots.begin(), maker_.event().slots.end());
  return &record_;
}

/// In a file: the number of the file, the byte behind the message, and a hash of the bytes before that, so that another
/// file, numbered anew after the positions were lost, gives other texts. Elsewhere a message comes only once.
std::string_view RecordMaker::positionOf(const MessageBinder::Outcome& outcome) {
  char text[64];
  const Position position = outcome.positions.empty() ? Position() : outcome.positions.back();
  if (position.file != 0) {
    std::snprintf(text, sizeof text, "%" PRIu64 ":%" PRIu64 ":%" PRIx64, position.file, position.offset, position.tail);
  } else {
    std::snprintf(text, sizeof text, "%s:%" PRIu64, run_.c_str(), ++count_);
  }
  return position_ = text;
}

}  // namespace quillon
