#include "src/adapters/logfile/match/Words.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quillon {

/// 64 bytes of a message, a bit for each.
struct Words::Block {
  std::uint64_t low;    ///< Blanks and all below: white space, NUL, newline and other control characters.
  std::uint64_t white;  ///< White space that ends a word; before clarify() only blanks.
};

void Words::scan(std::string_view text) {
  text_ = text.data();
  size_ = static_cast<std::uint32_t>(text.size());
  limit_ = readableEnd(text_ + size_);
  count_ = 0;
  firstIrregular_ = UINT32_MAX;
  lastIrregular_ = 0;
  hasNewline_ = false;
  tooMany_ = false;
  inWhite_ = 1;
  words_[0].start = 0;
  std::uint32_t at = 0;
  for (; at + 64 <= size_; at += 64) {
    if (count_ + kMostInBlock > words_.size() && !makeRoom()) return giveUp(at);
    add(classify(at), at);
  }
  if (count_ + kMostInBlock > words_.size() && !makeRoom()) return giveUp(at);
  if (at < size_) add(classifyLast(at), at);
  if (inWhite_ == 0) words_[count_++].end = size_;
  words_[count_] = {size_, size_};
}

bool Words::has(std::uint32_t count, const Word& word) const {
  const auto view = [this](const Word& one) { return std::string_view(text_ + one.start, one.end - one.start); };
  return std::any_of(words_.begin(), words_.begin() + count, [&](const Word& one) { return view(one) == view(word); });
}

inline Words::Block Words::classify(std::uint32_t at) const {
  Block block{0, 0};
#if QUILLON_MATCH_SSE2
  const __m128i blanks = _mm_set1_epi8(' ');
  for (std::uint32_t i = 0; i < 64; i += 16) {
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text_ + at + i));
    block.low |= static_cast<std::uint64_t>(bytes::sameBytes(_mm_min_epu8(text, blanks), text)) << i;
    block.white |= static_cast<std::uint64_t>(bytes::sameBytes(text, blanks)) << i;
  }
#else
  for (std::uint32_t i = 0; i < 64; ++i) {
    const auto c = static_cast<unsigned char>(text_[at + i]);
    block.low |= static_cast<std::uint64_t>(c <= ' ') << i;
    block.white |= static_cast<std::uint64_t>(c == ' ') << i;
  }
#endif
  return block;
}

/// The same for less than 64 bytes.
inline Words::Block Words::classifyLast(std::uint32_t at) const {
  Block block{0, 0};
  const std::uint32_t left = size_ - at;
#if QUILLON_MATCH_SSE2
  const __m128i blanks = _mm_set1_epi8(' ');
  for (std::uint32_t i = 0; i < left; i += 16) {
    const __m128i text = bytes::load(from(at + i));
    block.low |= static_cast<std::uint64_t>(bytes::sameBytes(_mm_min_epu8(text, blanks), text)) << i;
    block.white |= static_cast<std::uint64_t>(bytes::sameBytes(text, blanks)) << i;
  }
  const std::uint64_t inside = (1ULL << left) - 1;
  block.low &= inside;
  block.white &= inside;
#else
  for (std::uint32_t i = 0; i < left; ++i) {
    const auto c = static_cast<unsigned char>(text_[at + i]);
    block.low |= static_cast<std::uint64_t>(c <= ' ') << i;
    block.white |= static_cast<std::uint64_t>(c == ' ') << i;
  }
#endif
  return block;
}

inline void Words::add(Block block, std::uint32_t at) {
  const bool plain = block.low == block.white || clarify(block, at);
  // A text that ends in this block ends its last word: there stands one more blank, so to say.
  const std::uint32_t left = size_ - at;
  const std::uint64_t ended = left < 64 ? block.white | 1ULL << left : block.white;
  if (plain && (ended & (ended << 1 | inWhite_)) == 0) {
    addRegular(ended, at);
    if (left < 64) inWhite_ = 1;
  } else {
    addAny(block.white, at, at + std::min<std::uint32_t>(left, 64));
  }
}

bool Words::makeRoom() {
  if (words_.size() >= kMost) return false;
  words_.resize(2 * words_.size());
  return true;
}

/// Looks no more for words in what begins at `at`, only for what ends it.
[[gnu::cold]] void Words::giveUp(std::uint32_t at) {
  tooMany_ = true;
  const std::string_view rest = std::string_view(text_, size_).substr(at);
  const std::size_t nul = rest.find('\0');
  if (nul != std::string_view::npos) size_ = at + static_cast<std::uint32_t>(nul);
  hasNewline_ = hasNewline_ || rest.substr(0, nul).find('\n') != std::string_view::npos;
}

/// Looks at control characters one by one. A NUL byte ends the text. True when all white space is blanks.
bool Words::clarify(Block& block, std::uint32_t at) {
  bool plain = true;
  for (std::uint64_t others = block.low & ~block.white; others != 0; others &= others - 1) {
    const auto i = static_cast<std::uint32_t>(std::countr_zero(others));
    const char c = text_[at + i];
    if (c == '\0') {
      size_ = at + i;
      block.white &= (1ULL << i) - 1;
      break;
    }
    if (c == '\n') hasNewline_ = true;
    if (!endsWord(c)) continue;
    block.white |= 1ULL << i;
    plain = false;
  }
  return plain;
}

/// Every white space is one blank, and a word begins behind each.
inline void Words::addRegular(std::uint64_t white, std::uint32_t at) {
  inWhite_ = white >> 63;
  Word* word = words_.data() + count_;
  for (; white != 0; white &= white - 1, ++word) {
    const std::uint32_t gap = at + static_cast<std::uint32_t>(std::countr_zero(white));
    word[0].end = gap;
    word[1].start = gap + 1;
  }
  count_ = static_cast<std::uint32_t>(word - words_.data());
}

/// Goes from edge to edge: where words start, and where they end.
void Words::addAny(std::uint64_t white, std::uint32_t at, std::uint32_t end) {
  if (end - at < 64) white |= ~0ULL << (end - at);
  for (std::uint64_t edges = white ^ (white << 1 | inWhite_); edges != 0; edges &= edges - 1) {
    const std::uint32_t edge = at + static_cast<std::uint32_t>(std::countr_zero(edges));
    if (inWhite_ != 0) {
      noteGap(edge);
      words_[count_].start = edge;
    } else {
      words_[count_++].end = edge;
      words_[count_].start = edge + 1;
    }
    inWhite_ ^= 1;
  }
  if (inWhite_ == 0 || end == size_) return;
  noteGap(end);
  words_[count_].start = end;
}

/// White space reaches from the last word up to `nextStart`.
void Words::noteGap(std::uint32_t nextStart) {
  if (count_ == 0) return;
  const std::uint32_t from = words_[count_ - 1].end;
  if (nextStart - from == 1 && text_[from] == ' ') return;
  firstIrregular_ = std::min(firstIrregular_, from);
  lastIrregular_ = from;
}

}  // namespace quillon
