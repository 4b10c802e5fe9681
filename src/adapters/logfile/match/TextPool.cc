#include "src/adapters/logfile/match/TextPool.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "src/adapters/logfile/match/Bytes.h"

namespace quillon {

std::uint32_t TextPool::keep(std::string_view text) {
  if (text.empty()) return 0;
  const std::uint32_t hash = printOf({text.data(), readableEnd(text.data() + text.size())}, text.size());
  std::size_t i = hash & (known_.size() - 1);
  for (; known_[i].size != 0; i = (i + 1) & (known_.size() - 1)) {
    const Known& known = known_[i];
    if (known.hash == hash && known.size == text.size() &&
        std::memcmp(texts_.data() + known.text, text.data(), text.size()) == 0) {
      return known.text;
    }
  }
  if (texts_.size() + text.size() > UINT32_MAX) throw std::length_error("the constants of the formats are too long");
  const auto at = static_cast<std::uint32_t>(texts_.size());
  known_[i] = {at, static_cast<std::uint32_t>(text.size()), hash};
  texts_ += text;
  if (2 * ++count_ > known_.size()) grow();
  return at;
}

std::string TextPool::finish() {
  known_ = std::vector<Known>();  // gives its memory back, which {} does not
  std::string texts;
  texts.reserve(texts_.size() + kTextPadding);
  texts = texts_;
  texts.append(kTextPadding, '\0');
  return texts;
}

void TextPool::grow() {
  std::vector<Known> larger(2 * known_.size());
  for (const Known& known : known_) {
    if (known.size == 0) continue;
    std::size_t i = known.hash & (larger.size() - 1);
    while (larger[i].size != 0) i = (i + 1) & (larger.size() - 1);
    larger[i] = known;
  }
  known_ = std::move(larger);
}

}  // namespace quillon
