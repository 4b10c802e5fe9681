// Any bytes as a format file for quillon-check: it comes to an end, says all that it has to say, and its verdict is
// that of the reading which the compiler makes. What its fixes make of a file that compiles compiles.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "authoring/check/CheckedFile.h"
#include "authoring/check/checks.h"
#include "authoring/report/finding_json.h"
#include "authoring/report/finding_text.h"
#include "authoring/check/fixes.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"

namespace {

using quillon::CheckedFile;
using quillon::Finding;

/// PRINTFs that refer to each other twice double their text at each level, so class definitions are not written; that
/// their faults are those of quillon::printFaults() is tested elsewhere.
bool isRead(const std::string& text, bool& hasFaults) {
  quillon::CollectedReports reports;
  quillon::FormatReader reader(reports);
  LogDriver driver;
  const bool read = reader.readText(text, "FILE", driver);
  hasFaults = false;
  for (const FormatSpec* format : driver.getFormats()) hasFaults |= !quillon::printFaults(*format).empty();
  return read;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const CheckedFile file("FILE", text);
  const std::vector<Finding> findings = quillon::check(file);
  bool hasFaults = false;
  if (file.compiles() != (isRead(text, hasFaults) && !hasFaults)) std::abort();
  const auto isError = [](const Finding& finding) { return finding.severity == quillon::Severity::kError; };
  if (file.compiles() != std::ranges::none_of(findings, isError)) std::abort();
  for (const Finding& finding : findings) {
    if (finding.code == quillon::FindingCode::kRefused) std::abort();
    if (quillon::findingText(finding, file.textLines(), true).empty()) std::abort();
  }
  const std::vector<quillon::FileFindings> all = {{"FILE", &file.textLines(), file.compiles(), findings}};
  if (quillon::findingsJson(all).empty() || quillon::findingsSarif(all).empty()) std::abort();
  if (size > 4096) return 0;  // enough to see what fixes do
  const quillon::Fixed fixed = quillon::fixAll("FILE", text, [](const Finding&) { return true; });
  if (file.compiles() && !CheckedFile("FILE", fixed.text).compiles()) std::abort();
  if ((fixed.text == text) != quillon::unifiedDiff("FILE", text, fixed.text).empty()) std::abort();
  return 0;
}
