#include "src/adapters/logfile/event/EventWriter.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "foundation/json_text.h"

namespace quillon {
namespace {

/// Room that is kept for the value of a later event.
constexpr std::size_t kMostKept = 65536;

char* copyInStrides(char* out, std::string_view text) {
  const char* in = text.data();
  std::size_t left = text.size();
  for (; left > EventWriter::kStride; left -= EventWriter::kStride) {
    std::memcpy(out, in, EventWriter::kStride);
    out += EventWriter::kStride;
    in += EventWriter::kStride;
  }
  std::memcpy(out, in, EventWriter::kStride);
  return out + left;
}

/// Short ones come with a stride behind them, see ready().
char* copyValue(char* out, std::string_view value) {
  if (value.size() <= EventWriter::kStride) {
    std::memcpy(out, value.data(), EventWriter::kStride);
  } else {
    std::memcpy(out, value.data(), value.size());
  }
  return out + value.size();
}

/// Also of addresses that belong to different texts, so not by comparing pointers.
bool isWithin(std::string_view text, std::string_view part) {
  return !text.empty() &&
         reinterpret_cast<std::uintptr_t>(part.data()) - reinterpret_cast<std::uintptr_t>(text.data()) <= text.size();
}

}  // namespace

EventWriter::EventWriter(std::shared_ptr<const EventForms> forms, const EventSource& source)
    : forms_(std::move(forms)) {
  values_[EventForms::kNothing] = ready(room_[EventForms::kNothing], "", true, false);
  setSource(source);
}

void EventWriter::setSource(const EventSource& source) {
  longestSource_ = 0;
  const auto set = [this](EventForms::Value value, std::string_view text) {
    values_[value] = ready(room_[value], text, false, false);
    if (values_[value].data() == text.data()) values_[value] = room_[value] = text;  // a long one is the caller's
    longestSource_ = std::max(longestSource_, values_[value].size());
  };
  set(EventForms::kDefault, source.defaultText);
  set(EventForms::kLabel, source.label);
  set(EventForms::kFileName, source.fileName);
}

std::size_t EventWriter::begin(std::size_t format, std::span<const std::string_view> values) {
  return begin(format, values, {});
}

std::size_t EventWriter::begin(std::size_t format, std::span<const std::string_view> values, std::string_view text) {
  const bool isPlain = forms_->form() == EventForm::kText || (!text.empty() && isPlainJson(text));
  std::size_t longest = longestSource_;
  std::string_view* out = values_.data();
  for (std::string_view value : values.first(std::min<std::size_t>(values.size(), EventForms::kDefault - 1))) {
    ++out;
    const bool isReadable = isWithin(text, value);
    *out = isPlain && isReadable
               ? value
               : ready(room_[static_cast<std::size_t>(out - values_.data())], value, isPlain, isReadable);
    longest = std::max(longest, out->size());
  }
  format_ = format;
  const EventForms::Format& form = forms_->formats_[format];
  return form.fixed + form.uses * longest;
}

char* EventWriter::write(char* out) const {
  const char* const texts = forms_->texts_.data();
  for (const EventForms::Piece& piece : pieces()) {
    out = copyInStrides(out, {texts + piece.text, piece.size});
    out = copyValue(out, values_[piece.value]);
  }
  return out;
}

void EventWriter::append(std::vector<std::string_view>& parts) const {
  for (const EventForms::Piece& piece : pieces()) {
    for (std::string_view part : {forms_->view(piece.text, piece.size), values_[piece.value]}) {
      if (!part.empty()) parts.push_back(part);
    }
  }
}

/// `value` as the form has it, with a stride of bytes behind it that can be read when it is short; in `room` unless it
/// can be used where it is.
std::string_view EventWriter::ready(std::string& room, std::string_view value, bool isPlain, bool isReadable) {
  isPlain = isPlain || forms_->form() == EventForm::kText || isPlainJson(value);
  if (isPlain && (isReadable || value.size() > kStride)) return value;
  if (room.capacity() > kMostKept) room = std::string();
  room.clear();
  isPlain ? void(room = value) : appendJson(room, value);
  const std::size_t size = room.size();
  room.append(kStride, '\0');
  return {room.data(), size};
}

std::span<const EventForms::Piece> EventWriter::pieces() const {
  const auto* const format = &forms_->formats_[format_];
  return {forms_->pieces_.data() + format[0].piece, forms_->pieces_.data() + format[1].piece};
}

}  // namespace quillon
