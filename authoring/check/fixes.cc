#include "authoring/check/fixes.h"

#include <algorithm>
#include <vector>

#include "authoring/check/CheckedFile.h"
#include "authoring/check/checks.h"

namespace quillon {
namespace {

/// A file that has more hidden behind its faults is not worth more rounds.
constexpr int kRounds = 100;

/// An edit by its bytes.
struct Change {
  std::size_t from;
  std::size_t to;
  std::string_view text;
};

std::vector<Change> changesOf(const Fix& fix, const TextLines& lines) {
  std::vector<Change> changes;
  changes.reserve(fix.edits.size());
  for (const Edit& edit : fix.edits) {
    const std::size_t from = lines.offset(edit.range.line, edit.range.column);
    changes.push_back({from, std::max(from, lines.offset(edit.range.endLine, edit.range.endColumn)), edit.text});
  }
  std::ranges::sort(changes, {}, &Change::from);
  return changes;
}

/// `text` with the fixes of `fixes`, but for those that overlap with an earlier one, which `count` leaves out.
std::string applied(const TextLines& lines, const std::vector<const Fix*>& fixes, int& count) {
  std::vector<Change> all;
  // Fixes are local and come in their order, so that only the latest changes can be in the way.
  std::size_t end = 0;
  bool isBegun = false;
  for (const Fix* fix : fixes) {
    const std::vector<Change> changes = changesOf(*fix, lines);
    if (changes.empty() || (isBegun && changes.front().from <= end)) continue;
    isBegun = true;
    ++count;
    for (const Change& change : changes) end = std::max(end, change.to);
    all.insert(all.end(), changes.begin(), changes.end());
  }
  std::string text;
  std::size_t copied = 0;
  for (const Change& change : all) {
    if (change.from < copied) continue;
    text.append(lines.text().substr(copied, change.from - copied)).append(change.text);
    copied = change.to;
  }
  return text.append(lines.text().substr(copied));
}

bool compiles(const std::string& file, const std::string& text) { return CheckedFile(file, text).compiles(); }

}  // namespace

Fixed fixAll(const std::string& file, std::string text, const std::function<bool(const Finding&)>& wanted) {
  Fixed result{std::move(text)};
  for (int round = 0; round < kRounds; ++round) {
    const CheckedFile checked(file, result.text);
    const std::vector<Finding> findings = check(checked);
    std::vector<const Fix*> fixes;
    for (const Finding& finding : findings) {
      if (finding.fix && wanted(finding)) fixes.push_back(&*finding.fix);
    }
    std::ranges::stable_sort(fixes, {},
                             [&](const Fix* fix) { return changesOf(*fix, checked.textLines()).front().from; });
    int count = 0;
    std::string next = applied(checked.textLines(), fixes, count);
    if (checked.compiles() && !compiles(file, next)) {
      // One of them is not as safe as it should be: take those that are, one at a time.
      next.clear();
      for (const Fix* fix : fixes) {
        count = 0;
        std::string one = applied(checked.textLines(), {fix}, count);
        if (!compiles(file, one)) continue;
        next = std::move(one);
        break;
      }
      if (next.empty()) break;
    }
    if (next == result.text) break;
    result.text = std::move(next);
    result.fixes += count;
  }
  return result;
}

namespace {

/// How far a difference is followed until lines are the same again.
constexpr std::size_t kReach = 200;
constexpr std::size_t kContext = 3;

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return lines;
}

/// Lines [from, to) of the old text that become lines [newFrom, newTo) of the new one.
struct Hunk {
  std::size_t from, to, newFrom, newTo;
};

/// Finds where two texts differ. At a difference it looks for the nearest lines behind that are the same in both, two
/// in a row: what fixes change is a few lines at a time. Not the shortest diff, but a right one, in linear time.
std::vector<Hunk> differences(const std::vector<std::string_view>& a, const std::vector<std::string_view>& b) {
  std::vector<Hunk> hunks;
  std::size_t i = 0;
  std::size_t j = 0;
  const auto isSame = [&](std::size_t x, std::size_t y) {
    const bool first = x < a.size() && y < b.size() ? a[x] == b[y] : x == a.size() && y == b.size();
    if (!first || x == a.size()) return first;
    return x + 1 < a.size() && y + 1 < b.size() ? a[x + 1] == b[y + 1] : x + 1 == a.size() && y + 1 == b.size();
  };
  while (i < a.size() || j < b.size()) {
    if (i < a.size() && j < b.size() && a[i] == b[j]) {
      ++i, ++j;
      continue;
    }
    Hunk hunk{i, a.size(), j, b.size()};
    bool isFound = false;
    for (std::size_t sum = 1; sum <= kReach && !isFound; ++sum) {
      for (std::size_t x = 0; x <= sum && !isFound; ++x) {
        if (i + x > a.size() || j + (sum - x) > b.size() || !isSame(i + x, j + (sum - x))) continue;
        hunk.to = i + x;
        hunk.newTo = j + (sum - x);
        isFound = true;
      }
    }
    hunks.push_back(hunk);
    i = hunk.to;
    j = hunk.newTo;
  }
  return hunks;
}

void addLines(std::string& diff, char mark, const std::vector<std::string_view>& lines, std::size_t from,
              std::size_t to) {
  for (; from < to; ++from) {
    diff.append(1, mark).append(lines[from]);
    if (!lines[from].ends_with('\n')) diff += "\n\\ No newline at end of file\n";
  }
}

/// "12,3", or "12" for one line; of no lines, the one before.
std::string range(std::size_t from, std::size_t to) {
  const std::size_t count = to - from;
  const std::string first = std::to_string(count == 0 ? from : from + 1);
  return count == 1 ? first : first + "," + std::to_string(count);
}

}  // namespace

std::string unifiedDiff(std::string_view file, std::string_view before, std::string_view after) {
  const std::vector<std::string_view> a = linesOf(before);
  const std::vector<std::string_view> b = linesOf(after);
  const std::vector<Hunk> hunks = differences(a, b);
  if (hunks.empty()) return "";
  std::string diff = "--- " + std::string(file) + "\n+++ " + std::string(file) + "\n";
  for (auto first = hunks.begin(); first != hunks.end();) {
    auto last = first;
    while (last + 1 != hunks.end() && (last + 1)->from - last->to <= 2 * kContext) ++last;
    const std::size_t lead = std::min(first->from, kContext);
    const std::size_t trail = std::min(a.size() - last->to, kContext);
    diff += "@@ -" + range(first->from - lead, last->to + trail) + " +" +
            range(first->newFrom - lead, last->newTo + trail) + " @@\n";
    std::size_t at = first->from - lead;
    for (auto hunk = first; hunk != last + 1; ++hunk) {
      addLines(diff, ' ', a, at, hunk->from);
      addLines(diff, '-', a, hunk->from, hunk->to);
      addLines(diff, '+', b, hunk->newFrom, hunk->newTo);
      at = hunk->to;
    }
    addLines(diff, ' ', a, at, at + trail);
    first = last + 1;
  }
  return diff;
}

}  // namespace quillon
