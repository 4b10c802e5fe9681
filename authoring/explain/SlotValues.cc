#include "authoring/explain/SlotValues.h"

#include <algorithm>
#include <cstddef>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace quillon {
namespace {

/// `text`, of the format file, in UTF-8.
std::string utf8(std::string_view text) {
  std::string source(text);
  const bool isAscii = std::none_of(text.begin(), text.end(), [](char c) { return c < 0; });
  if (isAscii || isUtf8(platformCodeset())) return source;
  const ConvertedText converted(nxl_to_utf8, platformCodeset(), source);
  return converted.text() ? converted.text() : source;
}

/// Of an entry that is no PRINTF.
std::string plainValue(const MsgMapEntry& entry, const FormatSpec& format, std::span<const std::string_view> values) {
  const int n = entry.position();
  if (entry.kind() == varMap && n >= 1 && static_cast<std::size_t>(n) <= values.size())
    return std::string(values[static_cast<std::size_t>(n - 1)]);
  if (entry.kind() == varMap) return "???";
  // What it says does not depend on the message; the established functions are not constant.
  return utf8(const_cast<MsgMapEntry&>(entry).svalue(&const_cast<FormatSpec&>(format)).view());
}

/// Each "%s" of the text takes the next argument, as PrintMapEntry::svalue() has it.
std::string printedValue(const PrintMapEntry& entry, const FormatSpec& format,
                         std::span<const std::string_view> values) {
  const std::string quoted = utf8(entry.getFormat().view());
  std::string_view text = withoutEnds(quoted);
  std::string value;
  auto argument = entry.parts().begin();
  if (argument == entry.parts().end()) return value;
  std::size_t at = 0;
  while (++argument != entry.parts().end() && (at = text.find("%s", at)) != std::string_view::npos) {
    const MsgMapEntry* const found = format.find((*argument)->view());
    at += 2;
    if (!found || found->kind() == printMap) continue;
    value += text.substr(0, at - 2);
    value += plainValue(*found, format, values);
    text.remove_prefix(at);
    at = 0;
  }
  return value.append(text);
}

}  // namespace

std::vector<SlotValue> slotValues(const FormatSpec& format, std::span<const std::string_view> values) {
  std::vector<SlotValue> slots;
  for (const MsgMapEntry* entry : format.getMaps()) {
    slots.push_back({utf8(entry->getName().view()),
                     entry->kind() == printMap ? printedValue(static_cast<const PrintMapEntry&>(*entry), format, values)
                                               : plainValue(*entry, format, values)});
  }
  return slots;
}

}  // namespace quillon
