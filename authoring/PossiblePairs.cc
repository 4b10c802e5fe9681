#include "authoring/PossiblePairs.h"

#include <algorithm>

namespace quillon {

namespace {

constexpr int kMostFront = 24;        ///< Words that are asked for, from the front
constexpr int kMostBack = 8;          ///< and from the back.
constexpr std::size_t kSample = 64;   ///< Formats of a group that are asked which word divides it best.
constexpr std::size_t kFew = 4096;    ///< Pairs: not worth a division.
constexpr std::uint64_t kLooks = 30;  ///< For each pair that may be visited. A look takes about 30 ns.

}  // namespace

std::uint64_t PossiblePairs::find(const Facts& facts, std::uint64_t most, const Visit& visit) {
  Group all;
  all.reserve(facts.formats().size());
  for (const FormatFacts& format : facts.formats()) all.push_back(&format);
  PossiblePairs pairs(facts, most, visit);
  pairs.looks_ = most * kLooks;
  pairs.within(all);
  return pairs.besides_;
}

void PossiblePairs::within(const Group& group) {
  const int word = group.size() * group.size() <= kFew ? 0 : bestWord(group, group);
  if (word == 0) {
    const std::uint64_t pairs = group.size() * (group.size() - (group.empty() ? 0 : 1)) / 2;
    if (left_ == 0 || looks_ == 0) {
      besides_ += pairs;
      return;
    }
    for (std::size_t i = 0; i < group.size(); ++i) {
      for (std::size_t j = i + 1; j < group.size(); ++j) look(*group[i], *group[j]);
    }
    return;
  }
  const Parts parts = divided(group, word);
  for (const auto& [print, part] : parts.named) {
    within(part);
    between(part, parts.open);
  }
  within(parts.open);
}

void PossiblePairs::between(const Group& one, const Group& other) {
  if (one.empty() || other.empty()) return;
  const int word = one.size() * other.size() <= kFew ? 0 : bestWord(one, other);
  if (word == 0) {
    if (left_ == 0 || looks_ == 0) {
      besides_ += one.size() * other.size();
      return;
    }
    for (const FormatFacts* a : one) {
      for (const FormatFacts* b : other) look(*a, *b);
    }
    return;
  }
  const Parts first = divided(one, word);
  const Parts second = divided(other, word);
  Group secondNamed;
  for (const auto& [print, part] : second.named) secondNamed.insert(secondNamed.end(), part.begin(), part.end());
  auto at = second.named.begin();
  for (const auto& [print, part] : first.named) {
    while (at != second.named.end() && at->first < print) ++at;
    if (at != second.named.end() && at->first == print) between(part, at->second);
    between(part, second.open);
  }
  between(first.open, secondNamed);
  between(first.open, second.open);
}

void PossiblePairs::look(const FormatFacts& one, const FormatFacts& other) {
  if (left_ == 0 || looks_ == 0) {
    ++besides_;
    return;
  }
  --looks_;
  if (differ(one, other)) return;
  --left_;
  visit_(std::min(one.place, other.place), std::max(one.place, other.place));
}

bool PossiblePairs::differ(const FormatFacts& one, const FormatFacts& other) const {
  if (one.exactCount && one.leastWords < other.leastWords) return true;
  if (other.exactCount && other.leastWords < one.leastWords) return true;
  for (int i = 0; i < std::min(one.frontCount, other.frontCount); ++i) {
    if (facts_.differ(*facts_.word(one, i), *facts_.word(other, i))) return true;
  }
  for (int i = -1; i >= -std::min(one.backCount, other.backCount); --i) {
    if (facts_.differ(*facts_.word(one, i), *facts_.word(other, i))) return true;
  }
  return false;
}

/// `word`: from 1 at the front, from -1 at the back.
PossiblePairs::Parts PossiblePairs::divided(const Group& group, int word) const {
  Parts parts;
  std::vector<std::pair<std::uint32_t, const FormatFacts*>> named;
  for (const FormatFacts* format : group) {
    const WordFact* const fact = facts_.word(*format, word > 0 ? word - 1 : word);
    if (fact && fact->exact) {
      named.emplace_back(facts_.print(*fact), format);
    } else {
      parts.open.push_back(format);
    }
  }
  std::stable_sort(named.begin(), named.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [print, format] : named) {
    if (parts.named.empty() || parts.named.back().first != print) parts.named.push_back({print, {}});
    parts.named.back().second.push_back(format);
  }
  return parts;
}

/// The word that leaves the fewest pairs, judged by a sample; 0 when none leaves fewer than there are.
int PossiblePairs::bestWord(const Group& one, const Group& other) const {
  int best = 0;
  double least = 0.9;
  for (int word = -kMostBack; word <= kMostFront; ++word) {
    const double share = word == 0 ? 1 : shareLeft(one, other, word);
    if (share < least) best = word, least = share;
  }
  return best;
}

double PossiblePairs::shareLeft(const Group& one, const Group& other, int word) const {
  const auto sample = [](const Group& group) {
    Group some;
    const std::size_t step = group.size() / kSample + 1;
    for (std::size_t i = 0; i < group.size(); i += step) some.push_back(group[i]);
    return some;
  };
  const Parts first = divided(sample(one), word);
  const Parts second = divided(sample(other), word);
  const auto count = [](const Parts& parts) {
    std::size_t named = 0;
    for (const auto& [print, part] : parts.named) named += part.size();
    return named;
  };
  std::size_t left = first.open.size() * (second.open.size() + count(second)) + count(first) * second.open.size();
  auto at = second.named.begin();
  for (const auto& [print, part] : first.named) {
    while (at != second.named.end() && at->first < print) ++at;
    if (at != second.named.end() && at->first == print) left += part.size() * at->second.size();
  }
  const std::size_t all = (first.open.size() + count(first)) * (second.open.size() + count(second));
  return static_cast<double>(left) / static_cast<double>(all);
}

}  // namespace quillon
