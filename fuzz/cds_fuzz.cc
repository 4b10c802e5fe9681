// Any bytes as class definitions: what can be read makes events of the attributes that it selects. And any bytes as a
// format file: the class definitions that quillon writes for it can be read.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "cds/CdsReader.h"
#include "cds/EventMaker.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/event/Attributes.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

void makeEvents(const quillon::CdsReading& reading) {
  const quillon::ClassSet& classes = *reading.classes;
  quillon::EventMaker maker(reading.classes);
  std::vector<quillon::NamedValue> attributes;
  for (std::size_t place = 0; place < classes.size(); ++place) {
    attributes.clear();
    for (std::size_t n = 0; n < classes.attributeCount(place); ++n)
      attributes.push_back({classes.attribute(place, n), "v"});
    check(maker.make(classes.eventId(place), attributes) == quillon::EventMaker::Result::kMade);
    check(maker.event().className == classes.name(place) && maker.event().slots.size() == classes.slotCount(place));
    const std::vector<quillon::NamedValue> slots(maker.event().slots.begin(), maker.event().slots.end());
    for (std::size_t n = 0; n < slots.size(); ++n) check(slots[n].name == classes.slot(place, n));
    if (attributes.empty()) continue;
    std::reverse(attributes.begin(), attributes.end());
    check(maker.make(classes.eventId(place), attributes) == quillon::EventMaker::Result::kMade);
    attributes.pop_back();
    check(maker.make(classes.eventId(place), attributes) == quillon::EventMaker::Result::kNoAttribute);
  }
}

/// Three that name each other many times are millions of them in the class definitions.
bool hasManyPrints(const FormatSpec& format) {
  int prints = 0;
  for (const MsgMapEntry* entry : format.getMaps()) prints += entry->kind() == printMap ? 1 : 0;
  return prints > 2;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const quillon::CdsReading reading = quillon::readCds(text);
  check(bool(reading) == reading.faults.empty() && reading.faults.size() <= 20);
  for (const quillon::CdsFault& fault : reading.faults) check(fault.line >= 1 && fault.column >= 1);
  if (reading) makeEvents(reading);

  // A quoted text ends at NUL, without its quote; and one that looks like the end of a class is taken for it.
  if (text.find('\0') != std::string_view::npos || text.find("\";\nEND") != std::string_view::npos) return 0;
  quillon::CollectedReports reports;
  LogDriver driver;
  if (!quillon::FormatReader(reports).readText(text, "formats", driver)) return 0;
  for (const FormatSpec* format : driver.getFormats()) {
    if (hasManyPrints(*format)) return 0;
  }
  const quillon::ReportScope scope(&reports);
  if (const auto definitions = quillon::classDefinitions(driver)) {
    const quillon::CdsReading own = quillon::readCds(*definitions);
    check(bool(own));
    makeEvents(own);
  }
  return 0;
}
