#include "authoring/shadow/PossiblePairs.h"

#include <algorithm>

#include "foundation/characters.h"

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
  const Question question = group.size() * group.size() <= kFew ? Question() : best(group, group);
  if (question.word == 0) {
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
  const Parts parts = divided(group, question);
  for (const auto& [hash, part] : parts.named) {
    within(part);
    between(part, parts.open);
  }
  within(parts.open);
}

void PossiblePairs::between(const Group& one, const Group& other) {
  if (one.empty() || other.empty()) return;
  const Question question = one.size() * other.size() <= kFew ? Question() : best(one, other);
  if (question.word == 0) {
    if (left_ == 0 || looks_ == 0) {
      besides_ += one.size() * other.size();
      return;
    }
    for (const FormatFacts* a : one) {
      for (const FormatFacts* b : other) look(*a, *b);
    }
    return;
  }
  const Parts first = divided(one, question);
  const Parts second = divided(other, question);
  Group secondNamed;
  for (const auto& [hash, part] : second.named) secondNamed.insert(secondNamed.end(), part.begin(), part.end());
  auto at = second.named.begin();
  for (const auto& [hash, part] : first.named) {
    while (at != second.named.end() && at->first < hash) ++at;
    if (at != second.named.end() && at->first == hash) between(part, at->second);
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

/// Empty when the format says nothing of it. Messages that have one answer have no other.
std::string_view PossiblePairs::answer(const FormatFacts& format, Question question) const {
  const WordFact* const fact = facts_.word(format, question.word > 0 ? question.word - 1 : question.word);
  if (!fact) return {};
  const std::string_view head = facts_.head(*fact);
  if (question.beginning) {
    const auto ends = [](char c) { return !isDigit(c) && (c < 'a' || c > 'z') && (c < 'A' || c > 'Z'); };
    const auto end = std::find_if(head.begin(), head.end(), ends);
    if (end != head.end()) return {head.begin(), end + 1};
  }
  return fact->exact ? head : std::string_view();
}

PossiblePairs::Parts PossiblePairs::divided(const Group& group, Question question) const {
  Parts parts;
  std::vector<std::pair<std::size_t, const FormatFacts*>> named;
  for (const FormatFacts* format : group) {
    if (const std::string_view text = answer(*format, question); !text.empty()) {
      named.emplace_back(std::hash<std::string_view>()(text), format);
    } else {
      parts.open.push_back(format);
    }
  }
  std::stable_sort(named.begin(), named.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [hash, format] : named) {
    if (parts.named.empty() || parts.named.back().first != hash) parts.named.push_back({hash, {}});
    parts.named.back().second.push_back(format);
  }
  return parts;
}

/// What leaves the fewest pairs, judged by a sample; nothing when none leaves much fewer than there are.
PossiblePairs::Question PossiblePairs::best(const Group& one, const Group& other) const {
  Question found;
  double least = 0.9;
  for (int word = -kMostBack; word <= kMostFront; ++word) {
    for (const bool beginning : {false, true}) {
      const double share = word == 0 ? 1 : shareLeft(one, other, {word, beginning});
      if (share < least) found = {word, beginning}, least = share;
    }
  }
  return found;
}

double PossiblePairs::shareLeft(const Group& one, const Group& other, Question question) const {
  const auto sample = [](const Group& group) {
    Group some;
    const std::size_t step = group.size() / kSample + 1;
    for (std::size_t i = 0; i < group.size(); i += step) some.push_back(group[i]);
    return some;
  };
  const Parts first = divided(sample(one), question);
  const Parts second = divided(sample(other), question);
  const auto count = [](const Parts& parts) {
    std::size_t named = 0;
    for (const auto& [hash, part] : parts.named) named += part.size();
    return named;
  };
  std::size_t left = first.open.size() * (second.open.size() + count(second)) + count(first) * second.open.size();
  auto at = second.named.begin();
  for (const auto& [hash, part] : first.named) {
    while (at != second.named.end() && at->first < hash) ++at;
    if (at != second.named.end() && at->first == hash) left += part.size() * at->second.size();
  }
  const std::size_t all = (first.open.size() + count(first)) * (second.open.size() + count(second));
  return static_cast<double>(left) / static_cast<double>(all);
}

}  // namespace quillon
