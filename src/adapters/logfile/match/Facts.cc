#include "src/adapters/logfile/match/Facts.h"

#include <algorithm>

namespace quillon {

bool Facts::add(std::uint32_t place) {
  format_ = {};
  format_.place = place;
  format_.front = static_cast<std::uint32_t>(words_.size());
  head_.clear(), tail_.clear();
  begun_ = solid_ = field_ = starred_ = glued_ = false;
  bool certain = true;
  for (const Operation* operation = literal_.begin(place); operation != literal_.end(place); ++operation) {
    switch (operation->kind()) {
      case ComponentKind::kConstant: {
        const std::string_view text = literal_.text(*operation);
        if (std::any_of(text.begin(), text.end(), quillon::endsWord)) return false;  // no word has it
        certain &= !text.empty();
        addText(text);
        break;
      }
      case ComponentKind::kNewline:
        addText("\n");
        break;
      case ComponentKind::kBlank:
        if (!begun_) return false;  // at the start, and behind a blank, no white space is left
        endWord();
        break;
      case ComponentKind::kString:
        addField();
        break;
      case ComponentKind::kTime:
        for (int i = 0; i < 2; ++i) addField(), endWord();
        addField();
        break;
      case ComponentKind::kStar:
      case ComponentKind::kPlus:
        addStar();
        break;
    }
  }
  endWord();
  format_.exactCount = !starred_;
  if (!starred_) {
    format_.backCount = format_.frontCount;
  } else {
    std::reverse(words_.begin() + format_.back, words_.end());
    format_.backCount = static_cast<std::uint16_t>(words_.size() - format_.back);
  }
  // An empty constant takes nothing, but asks for a word: not worth a thought.
  if (!certain) {
    format_.frontCount = format_.backCount = format_.leastWords = 0;
    format_.middle = format_.back;
    format_.exactCount = false;
  }
  formats_.push_back(format_);
  return true;
}

void Facts::addText(std::string_view text) {
  begun_ = solid_ = true;
  if (!field_) head_ += text;
  tail_ += text;
}

void Facts::addField() {
  begun_ = solid_ = field_ = true;
  tail_.clear();
}

/// What is glued to it in front belongs to the word that the front facts end with, what is glued to it behind to the
/// word that the back facts begin with. Of what was between two stars the whole words are
/// kept.
void Facts::addStar() {
  if (!starred_) {
    if (!head_.empty()) tail_.clear(), addWord(true);
    starred_ = true;
    format_.middle = static_cast<std::uint32_t>(words_.size());
  } else {
    const auto parts = [](const WordFact& fact) { return !fact.exact; };
    words_.erase(std::remove_if(words_.begin() + format_.back, words_.end(), parts), words_.end());
  }
  format_.back = static_cast<std::uint32_t>(words_.size());
  head_.clear(), tail_.clear();
  begun_ = field_ = glued_ = true;
}

void Facts::endWord() {
  if (begun_) {
    addWord(false);
    if (solid_ && format_.leastWords < UINT16_MAX) ++format_.leastWords;
  }
  head_.clear(), tail_.clear();
  begun_ = solid_ = field_ = glued_ = false;
}

/// `open`: the word goes on with a star.
void Facts::addWord(bool open) {
  constexpr std::size_t kMost = UINT16_MAX;
  WordFact fact{};
  fact.text = static_cast<std::uint32_t>(texts_.size());
  fact.exact = !field_ && !open && head_.size() <= kMost;
  fact.head = static_cast<std::uint16_t>(std::min(head_.size(), kMost));
  texts_.append(head_, 0, fact.head);
  if (fact.exact) {
    fact.tail = fact.head;
  } else if (!open) {
    fact.tail = static_cast<std::uint16_t>(std::min(tail_.size(), kMost));
    texts_.append(tail_, tail_.size() - fact.tail);
  }
  words_.push_back(fact);
  if (!starred_ && format_.frontCount < UINT16_MAX) ++format_.frontCount;
}

const WordFact* Facts::word(const FormatFacts& format, int position) const {
  if (position >= 0)
    return position < format.frontCount ? &words_[format.front + static_cast<unsigned>(position)] : nullptr;
  if (-position > format.backCount) return nullptr;
  if (format.exactCount) return &words_[format.front + static_cast<unsigned>(format.frontCount + position)];
  return &words_[format.back + static_cast<unsigned>(-position - 1)];
}

bool Facts::differ(const WordFact& one, const WordFact& other) const {
  const std::string_view a = head(one);
  const std::string_view b = head(other);
  if (one.exact && other.exact) return a != b;
  const std::size_t common = std::min(a.size(), b.size());
  return a.substr(0, common) != b.substr(0, common) || (one.exact && a.size() < b.size()) ||
         (other.exact && b.size() < a.size());
}

Probe Facts::checkOf(const WordFact& fact, int position) {
  Probe probe;
  probe.part = fact.exact ? Probe::Part::kWhole : Probe::Part::kHead;
  probe.position = static_cast<std::int8_t>(position);
  if (!fact.exact) probe.parameter = static_cast<std::uint8_t>(std::min<std::size_t>(fact.head, 16));
  return probe;
}

bool Facts::answer(const FormatFacts& format, Probe probe, std::uint32_t& print) const {
  if (probe.part == Probe::Part::kCount) {
    print = format.leastWords;
    return format.exactCount;
  }
  const WordFact* const fact = word(format, probe.position);
  if (!fact) return false;
  const std::string_view known = probe.part == Probe::Part::kTail ? tail(*fact) : head(*fact);
  const auto size = static_cast<std::uint32_t>(known.size());
  // What is known must be all that is asked for.
  const bool complete = fact->exact || (probe.part == Probe::Part::kUpTo
                                            ? known.find(static_cast<char>(probe.parameter)) != std::string_view::npos
                                            : probe.part != Probe::Part::kWhole && size >= probe.parameter);
  if (!complete) return false;
  print = printOfPart(probe, {known.data(), texts_.data() + texts_.size()}, size);
  return true;
}

}  // namespace quillon
