// Any bytes as samples, in a format file and in a file of their own: what is understood stands where it is said to
// stand, and each of those that can be run has a result.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "authoring/samples/sample_findings.h"
#include "authoring/samples/test_report.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace {

/// The bytes of `text` at `place`; no such range ends the process.
std::string_view at(std::string_view text, const quillon::Place& place) {
  std::size_t start = 0;
  for (int line = 1; line < place.line; ++line) {
    start = text.find('\n', start) + 1;
    if (start == 0) std::abort();
  }
  start += static_cast<std::size_t>(place.column - 1);
  if (place.line < 1 || place.column < 1 || start + static_cast<std::size_t>(place.length) > text.size()) std::abort();
  return text.substr(start, static_cast<std::size_t>(place.length));
}

void checkPlaces(const quillon::SampleList& list, std::string_view text) {
  for (const quillon::Sample& sample : list.samples) {
    const std::string_view written = at(text, sample.place);
    if (!written.starts_with('"') && written != sample.message) std::abort();
    for (const quillon::Sample::Value& value : sample.values) {
      if (!at(text, value.place).starts_with(value.name)) std::abort();
    }
  }
  for (const quillon::SampleFault& fault : list.faults) at(text, fault.place);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quillon::holdCodeset();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const quillon::SampleList beside = quillon::samplesInText(text);
  checkPlaces(beside, text);
  quillon::CollectedReports reports;
  LogDriver formats;
  quillon::FormatReader reader(reports, {.keepsPlaces = true, .recovers = true});
  const bool isRead = reader.readText(text, "FILE", formats);
  const quillon::SampleList own = quillon::samplesIn(reader.places());
  checkPlaces(own, text);
  if (!isRead) return 0;
  const quillon::SampledFormats sampled{formats, reader.places(), "FILE"};
  const quillon::TestedFile file{"FILE", sampleFaults(own, "FILE"), runSamples(sampled, own, beside, "BESIDE")};
  if (file.samples.size() != own.samples.size() + beside.samples.size()) std::abort();
  if (quillon::tapText({&file, 1}).empty() || quillon::junitText({&file, 1}).empty()) std::abort();
  return 0;
}
