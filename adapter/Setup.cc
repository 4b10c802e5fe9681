#include "adapter/Setup.h"

#include <sys/stat.h>

#include <map>
#include <optional>
#include <tuple>
#include <utility>

#include "src/adapters/logfile/common/Report.h"

namespace quillon {
namespace {

template <class Place>
std::string placed(const std::string& path, const Place& place, const std::string& text) {
  return path + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) + ": " + text;
}

SetupReport configReport(const std::string& path, const ConfigFault& fault) {
  return {true, fault.place.line == 0 ? fault.text : placed(path, fault.place, fault.text)};  // else the text names it
}

/// What is wrong with the format file of `source`, told at its place there; or, when it cannot be read, at the place in
/// the configuration `path` that names it.
SetupReport formatReport(const std::string& path, const SourceConfig& source, const Report& report) {
  const bool isError = report.severity == Severity::kError;
  if (report.code == ReportCode::kCannotOpen || report.code == ReportCode::kCannotRead) {
    return {isError, placed(path, source.formatsPlace, report.text)};
  }
  if (report.place) return {isError, placed(source.formats, report.place, report.text)};
  return {isError, source.formats + ": " + report.text};
}

/// Whoever opens a FIFO waits for a writer, and a device may never end.
bool isFileOrMissing(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

}  // namespace

std::shared_ptr<const Setup> loadSetup(const std::string& path, std::vector<SetupReport>& reports) {
  std::vector<ConfigFault> faults;
  std::optional<Config> config = readConfig(path, faults);
  for (const ConfigFault& fault : faults) reports.push_back(configReport(path, fault));
  if (!config) return nullptr;

  const auto setup = std::make_shared<Setup>();
  bool good = true;
  std::map<std::pair<std::string, FormatOrder>, std::shared_ptr<const FormatFile>> loaded;
  for (const SourceConfig& source : config->sources) {
    if (source.formats.empty()) {
      setup->formats.push_back(nullptr);
      continue;
    }
    const auto [known, isNew] = loaded.try_emplace({source.formats, source.order});
    if (isNew && !isFileOrMissing(source.formats)) {
      reports.push_back({true, placed(path, source.formatsPlace, "cannot read " + source.formats + ": is not a file")});
    } else if (isNew) {
      CollectedReports found;
      const bool isSent = config->delivery.has_value();
      known->second = FormatFile::load(source.formats, source.order, config->output.form, isSent, found);
      for (const Report& report : found.reports) reports.push_back(formatReport(path, source, report));
      if (known->second && isSent && !known->second->sent()) {
        reports.push_back({true, source.formats + ": " + known->second->unsendable()});
        known->second = nullptr;
      }
    }
    good = good && known->second;
    setup->formats.push_back(known->second);
  }
  if (!good) return nullptr;
  setup->config = std::move(*config);
  return setup;
}

}  // namespace quillon
