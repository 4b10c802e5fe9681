#include "adapter/RecordMaker.h"

#include <utility>

namespace quillon {
namespace {

/// Bytes of an event's values.
constexpr std::size_t kLargestEvent = 64 << 20;

}  // namespace

RecordMaker::RecordMaker(std::shared_ptr<const FormatFile> formats, delivery::RecordForm form, std::string source)
    : formats_(std::move(formats)), name_(std::move(source)), maker_(formats_->sent()->classes, kLargestEvent) {
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
  name_.set(outcome.positions.empty() ? Position() : outcome.positions.back(), origin, record_);
  if (record_.form == delivery::RecordForm::kAttributes) {
    record_.values = attributes_;
    return &record_;
  }
  if (maker_.make(record_.eventId, attributes_) != EventMaker::Result::kMade) return nullptr;
  record_.className = maker_.event().className;
  record_.values.assign(maker_.event().slots.begin(), maker_.event().slots.end());
  return &record_;
}

}  // namespace quillon
