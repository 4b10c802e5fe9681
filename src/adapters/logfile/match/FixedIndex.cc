#include "src/adapters/logfile/match/FixedIndex.h"

#include <algorithm>
#include <bit>

namespace quillon {

void FixedIndex::add(const Literal& literal, std::uint32_t place) {
  places_.push_back(place);
  for (const Operation* operation = literal.begin(place); operation != literal.end(place); ++operation) {
    if (operation->kind() == ComponentKind::kNewline) addText("\n", place);
    if (operation->kind() == ComponentKind::kConstant) addText(literal.text(*operation), place);
  }
}

/// A constant that is empty takes nothing, and one with white space in it is in no word.
void FixedIndex::addText(std::string_view text, std::uint32_t place) {
  if (text.empty() || std::any_of(text.begin(), text.end(), endsWord)) return;
  const std::size_t size = std::min(text.size(), kLongest);
  sizes_[static_cast<unsigned char>(text[0])] |= 1ULL << size;
  uses_.push_back({printOf({text.data(), readableEnd(text.data() + text.size())}, size), place});
}

void FixedIndex::finish() {
  const auto before = [](const Use& a, const Use& b) {
    return a.print != b.print ? a.print < b.print : a.place < b.place;
  };
  std::sort(uses_.begin(), uses_.end(), before);
  known_.assign(std::bit_ceil(2 * uses_.size() + 1), {0, 0, 0});
  for (std::size_t i = 0; i < uses_.size();) {
    const std::uint32_t print = uses_[i].print;
    Known entry{print, static_cast<std::uint32_t>(users_.size()), 0};
    for (; i < uses_.size() && uses_[i].print == print; ++i) {
      if (users_.size() == entry.begin || users_.back() != uses_[i].place) users_.push_back(uses_[i].place);
    }
    entry.end = static_cast<std::uint32_t>(users_.size());
    std::size_t at = print & (known_.size() - 1);
    while (known_[at].end > known_[at].begin) at = (at + 1) & (known_.size() - 1);
    known_[at] = entry;
  }
  uses_ = {};
}

const FixedIndex::Known* FixedIndex::known(std::uint32_t print) const {
  std::size_t at = print & (known_.size() - 1);
  for (; known_[at].end > known_[at].begin; at = (at + 1) & (known_.size() - 1)) {
    if (known_[at].print == print) return &known_[at];
  }
  return nullptr;
}

/// The entries of all constants that `word` begins with.
template <class Visit>
void FixedIndex::visitBeginnings(const Words& words, Word word, const Visit& visit) const {
  std::uint64_t sizes = sizes_[static_cast<unsigned char>(words.text()[word.start])];
  for (; sizes != 0; sizes &= sizes - 1) {
    const auto size = static_cast<std::uint32_t>(std::countr_zero(sizes));
    if (size > word.end - word.start) return;
    if (const Known* const entry = known(printOf(words.from(word.start), size))) visit(*entry);
  }
}

void FixedIndex::find(const Words& words, std::vector<std::uint32_t>& places) const {
  constexpr std::size_t kFew = 4;
  places.clear();
  if (words.count() == 0) return places.push_back(places_[0]);
  std::size_t fewest = SIZE_MAX;
  Word rarest{};
  for (std::uint32_t i = 0; i < words.count() && fewest > kFew; ++i) {
    std::size_t users = 0;
    visitBeginnings(words, words[i], [&users](const Known& entry) { users += entry.end - entry.begin; });
    if (users == 0) return;
    if (users < fewest) fewest = users, rarest = words[i];
  }
  visitBeginnings(words, rarest, [&](const Known& entry) {
    places.insert(places.end(), users_.begin() + entry.begin, users_.begin() + entry.end);
  });
  std::sort(places.begin(), places.end());
  places.erase(std::unique(places.begin(), places.end()), places.end());
}

}  // namespace quillon
