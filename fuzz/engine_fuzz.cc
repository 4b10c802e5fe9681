// The engine against the plain bind. Up to the first 0xFF byte, each line is a format string; the rest are messages
// with 0xFF between them. Both orders of trying, as a log's messages and as an event log's.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tests/match/support/comparison.h"
#include "tests/match/support/format_list.h"

namespace {

// More would only take longer: the plain bind may go through a message a hundred times for each format.
constexpr std::size_t kMostFormats = 16;
constexpr std::size_t kMostMessages = 6;
constexpr std::size_t kLongestMessage = 400;

/// Up to `separator`, which goes too.
std::string_view take(std::string_view& text, char separator) {
  const std::string_view part = text.substr(0, text.find(separator));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return part;
}

void compare(quillon::Comparison& comparison, const quillon::FormatList& formats, std::string_view message) {
  for (const bool eventLog : {false, true}) {
    if (comparison.agree(message, eventLog)) continue;
    std::fputs(quillon::minimised({formats, std::string(message), eventLog}).c_str(), stderr);
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::string_view lines = take(rest, '\xFF');
  quillon::FormatList formats;
  while (!lines.empty() && formats.size() < kMostFormats) {
    formats.push_back(quillon::tokensOf(std::string(take(lines, '\n')).c_str()));  // up to a NUL
  }
  const quillon::FormatList backwards(formats.rbegin(), formats.rend());
  quillon::Comparison comparison(formats);
  quillon::Comparison other(backwards);
  for (std::size_t n = 0; n < kMostMessages && !rest.empty(); ++n) {
    const std::string_view message = take(rest, '\xFF').substr(0, kLongestMessage);
    compare(comparison, formats, message);
    compare(other, backwards, message);
  }
  return 0;
}
