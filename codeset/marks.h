#ifndef QUILLON_CODESET_MARKS_H_
#define QUILLON_CODESET_MARKS_H_

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <bit>
#include <cstddef>
#include <cstdint>

/// Where the characters of a text begin, found for 64 bytes at a time without a branch.
///
/// Read one by one, each character must be measured before the next is seen, and a processor guesses wrongly at every
/// change between ASCII and the rest. Here the bytes are sorted into classes first, one bit a byte, and a few
/// operations on these bits give all beginnings at once (the idea of G. Langdale and D. Lemire, "Parsing Gigabytes of
/// JSON per Second", 2019). "a\u00e9b" in UTF-8, the bytes 61 C3 A9 62, has `starts` 1011 (the lowest bit first) and
/// `others` 0100.
///
/// Cost: about one operation a byte. It is no check of the text: `size` ends before what is certainly malformed, and
/// what is in doubt otherwise has no form, so that the careful path looks at it.
namespace quillon {

inline constexpr int kBlock = 64;

using BlockBits = std::uint64_t;

struct Marks {
  BlockBits starts;  ///< Bit i: a character begins at byte i.
  BlockBits others;  ///< Bit i: one begins there that is not ASCII.
  BlockBits longer;  ///< Bit i: it takes a byte more than the shortest of those.
  int size;          ///< The bytes for which this holds.
};

/// Bytes from `first` to `first + span`.
struct ByteRange {
  std::uint8_t first;
  std::uint8_t span;
};

/// The lowest `count` bits, 0 to 64 of them.
constexpr BlockBits lowBits(int count) { return count < kBlock ? (BlockBits{1} << count) - 1 : ~BlockBits{0}; }

/// Bit i is bit 7 - kBelow of byte i.
template <int kBelow>
BlockBits bitsOf(const unsigned char* block) {
  BlockBits bits = 0;
#ifdef __SSE2__
  for (int i = 0; i < kBlock; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
    bits |= BlockBits{static_cast<unsigned>(_mm_movemask_epi8(_mm_slli_epi16(bytes, kBelow)))} << i;
  }
#else
  for (int i = 0; i < kBlock; ++i) bits |= BlockBits{block[i] >> (7 - kBelow) & 1u} << i;
#endif
  return bits;
}

/// Bit i is set when byte i is in the range.
inline BlockBits bitsIn(const unsigned char* block, ByteRange range) {
  BlockBits bits = 0;
#ifdef __SSE2__
  const __m128i first = _mm_set1_epi8(static_cast<char>(range.first));
  const __m128i span = _mm_set1_epi8(static_cast<char>(range.span));
  for (int i = 0; i < kBlock; i += 16) {
    const __m128i offset = _mm_sub_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i)), first);
    const __m128i inside = _mm_cmpeq_epi8(_mm_min_epu8(offset, span), offset);
    bits |= BlockBits{static_cast<unsigned>(_mm_movemask_epi8(inside))} << i;
  }
#else
  for (int i = 0; i < kBlock; ++i)
    bits |= BlockBits{static_cast<std::uint8_t>(block[i] - range.first) <= range.span} << i;
#endif
  return bits;
}

/// Every byte is a character.
inline Marks markBytes(const unsigned char* block) { return {~BlockBits{0}, bitsOf<0>(block), 0, kBlock}; }

/// UTF-8. A byte from 10xxxxxx must stand where a lead byte before asks for one, and nowhere else; `size` ends at the
/// first place where that does not hold. `longer` are the leads of three bytes and more.
inline Marks markUtf8(const unsigned char* block) {
  const BlockBits high = bitsOf<0>(block);
  if (high == 0) return {~BlockBits{0}, 0, 0, kBlock};
  const BlockBits lead = high & bitsOf<1>(block);
  const BlockBits three = lead & bitsOf<2>(block);
  const BlockBits four = three != 0 ? three & bitsOf<3>(block) : 0;
  const BlockBits trail = high & ~lead;
  const BlockBits wrong = trail ^ (lead << 1 | three << 2 | four << 3);
  return {~trail, lead, three, wrong ? std::countr_zero(wrong) : kBlock};
}

/// Which lead bytes begin a pair, where any byte may follow a lead: the first, the third and so on of each run of them,
/// since what stands before a run is no lead and so ends a character. A run that begins at an even place is told from
/// the others by adding its first bit, which carries it away.
constexpr BlockBits pairLeads(BlockBits leads) {
  constexpr BlockBits kEven = 0x5555555555555555;
  const BlockBits first = leads & ~(leads << 1);
  const BlockBits from_even = leads & ~(leads + (first & kEven));
  return (from_even & kEven) | (leads & ~from_even & ~kEven);
}
static_assert(pairLeads(0b0111'0110'1111) == 0b0101'0010'0101);

/// Codesets of pairs that begin with a byte of `leads`; `longer` are those that do.
inline Marks markPairs(const unsigned char* block, const ByteRange (&leads)[2]) {
  const BlockBits high = bitsOf<0>(block);
  if (high == 0) return {~BlockBits{0}, 0, 0, kBlock};
  const BlockBits pairs = pairLeads(bitsIn(block, leads[0]) | bitsIn(block, leads[1]));
  const BlockBits starts = ~(pairs << 1);
  return {starts, starts & high, pairs, kBlock};
}

}  // namespace quillon

#endif  // QUILLON_CODESET_MARKS_H_
