#include "adapter/FormatFile.h"

#include <map>

#include "cds/CdsId.h"
#include "cds/CdsReader.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace quillon {

std::shared_ptr<const FormatFile> FormatFile::load(const std::string& path, FormatOrder order, EventForm form,
                                                   bool forDelivery, ReportSink& reports) {
  LogDriver driver;
  FormatReader reader(reports);
  if (!reader.read(path.c_str(), driver)) return nullptr;
  {
    const ReportScope scope(&reports);
    if (order == FormatOrder::kLastFirst) {
      driver.orderFmts();
    } else {
      for (FormatSpec* format : driver.getFormats()) format->verifySlot();
    }
  }
  const std::shared_ptr<FormatFile> made(new FormatFile);
  made->forms_ = EventForms::make(driver, form);
  if (forDelivery) {
    const ReportScope scope(&reports);
    made->prepareSending(driver);
  }
  // A driver of its own for each number of lines; they share the formats.
  std::map<unsigned, std::pair<LogDriver, std::vector<std::uint32_t>>> byLines;
  for (FormatSpec* format : driver.getFormats()) {
    auto& [formats, places] = byLines[static_cast<unsigned>(format->numlines())];
    formats.addFormatSpec(format);
    places.push_back(static_cast<std::uint32_t>(made->classes_.size()));
    made->classes_.emplace_back(format->getName().view());
  }
  for (auto& [lines, group] : byLines) {
    made->groups_.push_back({lines, FormatSet::make(group.first), std::move(group.second)});
  }
  return made;
}

void FormatFile::prepareSending(const LogDriver& driver) {
  const std::optional<std::string> definitions = classDefinitions(driver);
  if (!definitions) {
    unsendable_ = "its class definitions cannot be written";
    return;
  }
  const CdsReading reading = readCds(*definitions, platformCodeset());
  if (!reading) {
    const CdsFault& fault = reading.faults.front();
    unsendable_ = "its class definitions cannot be read back, so that no event server would understand them: line " +
                  std::to_string(fault.line) + ", column " + std::to_string(fault.column) + ": " + fault.text;
    return;
  }
  sent_ = Sent{Attributes::make(driver), reading.classes, cdsId(*definitions).bytes()};
}

}  // namespace quillon
