#include "authoring/check/checks.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace quillon {
namespace {

Check* const kChecks[] = {checkSyntax, checkReports, checkPrintfs, checkFormatStrings,
                          checkSlots,  checkBlocks,  checkBytes};

bool isError(const Finding& finding) { return finding.severity == Severity::kError; }

/// A quote that is missing makes a text of all up to the next one, which then is too long as well.
void dropConsequences(std::vector<Finding>& findings) {
  std::vector<std::pair<int, int>> halfQuoted;
  for (const Finding& finding : findings) {
    if (finding.code == FindingCode::kHalfQuoted) halfQuoted.emplace_back(finding.place.line, finding.place.column);
  }
  std::ranges::sort(halfQuoted);
  std::erase_if(findings, [&](const Finding& finding) {
    return finding.code == FindingCode::kTokenTooLong &&
           std::ranges::binary_search(halfQuoted, std::pair(finding.place.line, finding.place.column));
  });
}

/// The edit distance of `a` and `b`, exchanges of neighbours included (optimal string alignment), as far as it is not
/// above `limit`.
std::size_t distance(std::string_view a, std::string_view b, std::size_t limit) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > limit) return limit + 1;
  std::vector<std::size_t> before(b.size() + 1), row(b.size() + 1), next(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    next[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      next[j] = std::min({row[j] + 1, next[j - 1] + 1, row[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        next[j] = std::min(next[j], before[j - 2] + 1);
    }
    if (std::ranges::min(next) > limit) return limit + 1;
    std::swap(before, row);
    std::swap(row, next);
  }
  return row[b.size()];
}

}  // namespace

std::vector<Finding> check(const CheckedFile& file) {
  Findings findings(file);
  for (Check* const one : kChecks) one(file, findings);
  std::vector<Finding> all = findings.take();
  dropConsequences(all);
  for (Finding& finding : all) {
    if (finding.fix && finding.fix->edits.empty()) finding.fix.reset();
  }
  if (!file.compiles() && std::ranges::none_of(all, isError))
    all.emplace_back(FindingCode::kRefused, file.name(), Place(), "the compiler refuses this file");
  std::ranges::stable_sort(all, {}, [](const Finding& finding) {
    return std::tuple(finding.place.line, finding.place.column, finding.code);
  });
  return all;
}

std::string quoted(std::string_view text) {
  constexpr std::size_t kLongest = 60;
  if (text.size() <= kLongest) return "'" + std::string(text) + "'";
  return "'" + std::string(text.substr(0, kLongest)) + "...'";
}

const std::string* nearest(std::string_view name, const std::vector<std::string>& names) {
  if (name.size() < 2) return nullptr;
  const std::size_t limit = name.size() < 8 ? 1 : 2;
  const std::string* found = nullptr;
  std::size_t best = limit + 1;
  for (const std::string& candidate : names) {
    const std::size_t d = distance(name, candidate, limit);
    if (d > best || d == 0) continue;
    found = d < best ? &candidate : nullptr;
    best = d;
  }
  return best <= limit ? found : nullptr;
}

}  // namespace quillon
