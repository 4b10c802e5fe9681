#include "src/adapters/logfile/event/EventForms.h"

#include <algorithm>
#include <array>
#include <functional>
#include <new>
#include <set>
#include <utility>

#include "foundation/json_text.h"
#include "foundation/utf8.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "src/adapters/logfile/event/EventWriter.h"

namespace quillon {
namespace {

constexpr std::size_t kSample = 200;

/// `text`, of the format file, in UTF-8. The language of the file is ASCII: what is ASCII alone stays as it is.
std::string utf8(std::string_view text) {
  nxl_cs* const codeset = platformCodeset();
  const bool isAscii = std::none_of(text.begin(), text.end(), [](char c) { return c < 0; });
  if (isAscii || isUtf8(codeset)) return std::string(text);
  const std::string source(text);
  const ConvertedText converted(nxl_to_utf8, codeset, source);
  if (!converted.text()) throw std::bad_alloc();
  return converted.text();
}

bool isIn(const MsgMapEntry& entry, EventSlots slots) { return slots == EventSlots::kAll || entry.mapped(); }

/// The names of the slots of `format` as an object has them: UTF-8, and each only once.
std::vector<std::string> objectKeys(const FormatSpec& format, EventSlots slots) {
  std::vector<std::string> names;
  std::set<std::string> taken;
  std::string room;
  for (const MsgMapEntry* entry : format.getMaps()) {
    if (!isIn(*entry, slots)) continue;
    names.push_back(utf8(entry->getName().view()));
    if (repairUtf8(names.back(), room) == names.back()) taken.insert(names.back());
  }
  for (std::string& name : names) {
    const std::string repaired(repairUtf8(name, room));
    if (repaired == name) continue;  // names of a format differ
    name = repaired;
    for (int n = 2; !taken.insert(name).second; ++n) name = repaired + "#" + std::to_string(n);
  }
  return names;
}

}  // namespace

/// Takes the formats apart, one after the other.
class EventForms::Builder {
 public:
  Builder(EventForms& forms, EventSlots slots) : forms_(forms), slots_(slots) {}

  void add(FormatSpec& format, std::size_t id) {
    mark();
    forms_.form_ == EventForm::kJson ? addObject(format, id) : addLine(format);
    if (!text_.empty()) endPiece(kNothing);
  }

  /// Makes room for `formats` like the first kSample. Growing piece by piece would cost twice the memory at its end,
  /// while room that is not used costs none.
  void reserve(std::size_t formats) {
    const std::size_t share = 3 * formats / kSample / 2;
    forms_.texts_.reserve(share * forms_.texts_.size());
    forms_.pieces_.reserve(share * forms_.pieces_.size());
    forms_.formats_.reserve(formats + 1);
  }

  void finish() {
    mark();
    forms_.texts_.append(EventWriter::kStride, '\0');
  }

 private:
  /// The next format begins here.
  void mark() { forms_.formats_.push_back({static_cast<std::uint32_t>(forms_.pieces_.size()), 0, 0}); }

  void addLine(FormatSpec& format) {
    (text_ += "EVENT ") += format.getName().view();
    for (MsgMapEntry* entry : format.getMaps()) {
      if (!isIn(*entry, slots_)) continue;
      ((text_ += " `") += entry->getName().view()) += "=";
      slot(*entry, format);
      text_ += "'";
    }
    text_ += " END";
  }

  void addObject(FormatSpec& format, std::size_t id) {
    text_ += "{\"class\":\"";
    appendJson(text_, utf8(format.getName().view()));
    text_ += "\",\"event_id\":" + std::to_string(id) + ",\"slots\":{";
    const std::vector<std::string> keys = objectKeys(format, slots_);
    std::size_t i = 0;
    for (MsgMapEntry* entry : format.getMaps()) {
      if (!isIn(*entry, slots_)) continue;
      text_ += i == 0 ? "\"" : ",\"";
      appendJson(text_, keys[i++]);
      text_ += "\":\"";
      slot(*entry, format);
      text_ += '"';
    }
    text_ += "},\"values\":[";
    for (int n = 1; n <= std::min(format.numvars(), FormatSpec::kMaxVariables); ++n) {
      text_ += n == 1 ? "\"" : ",\"";
      endPiece(static_cast<std::uint8_t>(n));
      text_ += '"';
    }
    text_ += "]}";
  }

  void slot(MsgMapEntry& entry, FormatSpec& format) {
    if (entry.kind() == printMap) {
      print(static_cast<PrintMapEntry&>(entry), format);
    } else {
      source(entry, format);
    }
    endConstant();
  }

  /// Each "%s" of the text takes the next argument, as PrintMapEntry::svalue() has it.
  void print(const PrintMapEntry& entry, FormatSpec& format) {
    auto argument = entry.parts().begin();
    if (argument == entry.parts().end()) return;
    const std::string quoted = utf8((*argument)->view());
    std::string_view text = quoted;
    text = text.size() < 2 ? "" : text.substr(1, text.size() - 2);
    std::size_t at = 0;
    while (++argument != entry.parts().end() && (at = text.find("%s", at)) != std::string_view::npos) {
      int ignored = 0;
      MsgMapEntry* const found = format.getmap((*argument)->getString(), ignored);
      at += 2;
      if (!found || found->kind() == printMap) continue;
      constant_ += text.substr(0, at - 2);
      source(*found, format);
      text.remove_prefix(std::exchange(at, 0));
    }
    constant_ += text;
  }

  /// The value of an entry that is no PRINTF.
  void source(MsgMapEntry& entry, FormatSpec& format) {
    const int n = entry.position();
    if (entry.kind() == varMap && n >= 1 && n <= std::min(format.numvars(), FormatSpec::kMaxVariables)) {
      value(static_cast<std::uint8_t>(n));
    } else if (entry.kind() == defaultMap) {
      value(kDefault);
    } else if (entry.kind() == labelMap) {
      value(kLabel);
    } else if (entry.kind() == filenameMap) {
      value(kFileName);
    } else {
      constant_ += utf8(entry.svalue(&format).view());
    }
  }

  void value(std::uint8_t value) {
    endConstant();
    endPiece(value);
  }

  /// Constants are escaped as a whole: a character may be in two of them.
  void endConstant() {
    if (constant_.empty()) return;
    forms_.form_ == EventForm::kJson ? appendJson(text_, constant_) : void(text_ += constant_);
    constant_.clear();
  }

  void endPiece(std::uint8_t value) {
    Format& format = forms_.formats_.back();
    format.fixed += static_cast<std::uint32_t>(text_.size());
    format.uses += value == kNothing ? 0 : 1;
    std::string_view text = text_;
    for (; text.size() > UINT16_MAX; text.remove_prefix(UINT16_MAX)) addPiece(text.substr(0, UINT16_MAX), kNothing);
    addPiece(text, value);
    text_.clear();
  }

  void addPiece(std::string_view text, std::uint8_t value) {
    Piece& known = known_[std::hash<std::string_view>()(text) % known_.size()];
    if (forms_.view(known.text, known.size) != text) {
      known = {static_cast<std::uint32_t>(forms_.texts_.size()), static_cast<std::uint16_t>(text.size()), kNothing};
      forms_.texts_ += text;
    }
    forms_.pieces_.push_back({known.text, known.size, value});
  }

  EventForms& forms_;
  const EventSlots slots_;
  std::array<Piece, 1024> known_{};  ///< Texts that came lately: most come again in other formats.
  std::string text_;                 ///< Of the next piece,
  std::string constant_;             ///< and behind it what must still be escaped.
};

std::shared_ptr<const EventForms> EventForms::make(const LogDriver& driver, EventForm form, EventSlots slots) {
  std::shared_ptr<EventForms> forms(new EventForms(form));
  Builder builder(*forms, slots);
  const std::vector<FormatSpec*> formats = driver.listed();
  for (std::size_t i = 0; i < formats.size(); ++i) {
    if (i == kSample) builder.reserve(formats.size());
    builder.add(*formats[i], driver.isInFileOrder() ? i : formats.size() - 1 - i);
  }
  builder.finish();
  return forms;
}

}  // namespace quillon
