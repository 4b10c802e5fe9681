#include "delivery/record_json.h"

#include <string_view>
#include <unordered_set>

#include "foundation/json_text.h"
#include "foundation/utf8.h"

namespace quillon::delivery {
namespace {

void appendMember(std::string& json, std::string_view name, std::string_view value) {
  if (value.empty()) return;
  ((json += ",\"") += name) += "\":\"";
  quillon::appendJson(json, value);
  json += '"';
}

/// Names as an object has them: each only once.
class Names {
 public:
  /// The name that stands for `name`; valid until the next call.
  std::string_view next(std::string_view name) {
    const std::string_view repaired = repairUtf8(name, room_);
    if (taken_.insert(std::string(repaired)).second) return repaired;
    std::string told;
    for (int n = 2;; ++n) {
      told.assign(repaired).append("#").append(std::to_string(n));
      if (taken_.insert(told).second) break;
    }
    return room_ = told;
  }

 private:
  std::unordered_set<std::string> taken_;
  std::string room_;
};

/// True when no name needs another look: they differ, as those of a class do.
bool areDistinct(const std::vector<NamedValue>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!isPlainJson(values[i].name)) return false;
    for (std::size_t j = 0; j < i; ++j) {
      if (values[i].name == values[j].name) return false;
    }
  }
  return true;
}

void appendValues(std::string& json, const std::vector<NamedValue>& values) {
  constexpr std::size_t kFew = 32;  // above, comparing each with each takes longer than the names
  const bool asTheyAre = values.size() <= kFew && areDistinct(values);
  Names names;
  json += '{';
  for (const NamedValue& value : values) {
    json += json.back() == '{' ? "\"" : ",\"";
    quillon::appendJson(json, asTheyAre ? value.name : names.next(value.name));
    json += "\":\"";
    quillon::appendJson(json, value.value);
    json += '"';
  }
  json += '}';
}

}  // namespace

std::string hex(const SetId& set) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : set) (text += kDigits[byte >> 4]) += kDigits[byte & 15];
  return text;
}

void appendJson(std::string& json, const Record& record) {
  if (record.form == RecordForm::kRaw) {
    json += "{\"text\":\"";
    quillon::appendJson(json, record.text);
    json += '"';
  } else {
    json += "{\"class\":\"";
    quillon::appendJson(json, record.className);
    json += "\",\"event_id\":" + std::to_string(record.eventId);
    json += record.form == RecordForm::kEvent ? ",\"slots\":" : ",\"attributes\":";
    appendValues(json, record.values);
  }
  appendMember(json, "source", record.source);
  appendMember(json, "position", record.position);
  if (record.set != SetId{}) appendMember(json, "set", hex(record.set));
  json += '}';
}

}  // namespace quillon::delivery
