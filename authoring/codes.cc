#include "authoring/codes.h"

#include <algorithm>
#include <cstdlib>

namespace quillon {
namespace {

constexpr CodeEntry kCodes[] = {
    {FindingCode::kCannotRead, Severity::kError, "cannot-read", "the file cannot be read",
     "The file does not exist, may not be read, or is a directory.", "", ""},
};

}  // namespace

std::span<const CodeEntry> allCodes() { return kCodes; }

const CodeEntry& codeEntry(FindingCode code) {
  const auto* const found = std::ranges::lower_bound(kCodes, code, {}, &CodeEntry::code);
  if (found == std::end(kCodes) || found->code != code) std::abort();  // a code without its row
  return *found;
}

std::string codeText(FindingCode code) {
  const std::string digits = std::to_string(static_cast<int>(code));
  return "Q" + std::string(4 - digits.size(), '0') + digits;
}

std::optional<FindingCode> codeNamed(std::string_view text) {
  for (const CodeEntry& entry : kCodes) {
    if (text == entry.name || text == codeText(entry.code)) return entry.code;
  }
  return std::nullopt;
}

}  // namespace quillon
