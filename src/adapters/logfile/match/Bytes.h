#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_BYTES_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_BYTES_H_

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

#if defined(__has_feature)  // the way in which clang tells what GCC tells by __SANITIZE_ADDRESS__ and its kin
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QUILLON_MATCH_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUILLON_MATCH_SANITIZED 1
#endif

#if defined(__SSE2__) && !defined(QUILLON_MATCH_SANITIZED)
#define QUILLON_MATCH_SSE2 1
#include <emmintrin.h>
#else
#define QUILLON_MATCH_SSE2 0
#endif

/// Comparing, hashing and finding short texts, 16 bytes at a time where the processor can. Words of a log have 6 bytes
/// on the average, so most calls are one load. What such a load takes in behind the end of a text is masked out; it
/// never goes beyond the page of memory that the text ends in, where reading is always safe. Builds under a sanitizer,
/// which would complain all the same, and other processors go byte by byte; the results are the same.

namespace quillon {

/// Behind the last byte that may be loaded when the text ends at `end`.
inline const char* readableEnd(const char* end) {
#if QUILLON_MATCH_SSE2
  constexpr std::uintptr_t kPage = 4096;
  const std::uintptr_t last = reinterpret_cast<std::uintptr_t>(end) - 1;
  return end + (kPage - 1 - (last & (kPage - 1)));
#else
  return end;
#endif
}

/// A place in a text from which bytes may be loaded up to `limit`, see readableEnd().
struct Bytes {
  const char* at;
  const char* limit;
};

namespace bytes {

#if QUILLON_MATCH_SSE2

/// What is left before the limit, and zeros.
[[gnu::noinline, gnu::cold]] inline __m128i loadLeft(const char* at, const char* limit) {
  char copy[16] = {};
  if (limit > at) std::memcpy(copy, at, static_cast<std::size_t>(limit - at));
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(copy));
}

inline __m128i load(Bytes from) {
  if (from.limit - from.at < 16) return loadLeft(from.at, from.limit);
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from.at));
}

/// One bit for each byte that is the same in both.
inline std::uint32_t sameBytes(__m128i a, __m128i b) {
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
}

#endif

}  // namespace bytes

namespace bytes {

#if QUILLON_MATCH_SSE2
/// The 16 bytes at `text`, which is in a set's own memory: that ends with room for one load.
inline __m128i loadKept(const char* text) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text)); }

[[gnu::noinline]] inline bool sameLongText(Bytes from, const char* text, std::size_t size) {
  for (; size > 16; from.at += 16, text += 16, size -= 16) {
    if (sameBytes(load(from), loadKept(text)) != 0xffff) return false;
  }
  const std::uint32_t wanted = (1U << size) - 1;
  return (sameBytes(load(from), loadKept(text)) & wanted) == wanted;
}
#endif

}  // namespace bytes

/// True when the `size` bytes at `from` are those of `text`. `from` must have as many.
inline bool sameText(Bytes from, const char* text, std::size_t size) {
#if QUILLON_MATCH_SSE2
  if (size > 16) return bytes::sameLongText(from, text, size);
  const std::uint32_t wanted = (1U << size) - 1;
  return (bytes::sameBytes(bytes::load(from), bytes::loadKept(text)) & wanted) == wanted;
#else
  return std::memcmp(from.at, text, size) == 0;
#endif
}

/// Of the texts that a set keeps: what sameText() may load behind one.
inline constexpr std::size_t kTextPadding = 16;

/// The 32 bits that stand for a text in the index. Two texts may have the same.
inline std::uint32_t printOf(Bytes from, std::size_t size) {
  constexpr std::uint64_t kOdd1 = 0x9e3779b97f4a7c15;  // 2^64 over the golden ratio; then two large primes
  constexpr std::uint64_t kOdd2 = 0xd6e8feb86659fd93;
  constexpr std::uint64_t kOdd3 = 0xa0761d6478bd642f;
  std::uint64_t hash = size * kOdd1;
  for (;;) {
    const std::size_t piece = size < 16 ? size : 16;
    std::uint64_t low = 0;
    std::uint64_t high = 0;
#if QUILLON_MATCH_SSE2
    alignas(16) static constexpr unsigned char kMasks[32] = {255, 255, 255, 255, 255, 255, 255, 255,
                                                             255, 255, 255, 255, 255, 255, 255, 255};
    const __m128i mask = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kMasks + 16 - piece));
    const __m128i text = _mm_and_si128(bytes::load(from), mask);
    low = static_cast<std::uint64_t>(_mm_cvtsi128_si64(text));
    high = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(text, text)));
#else
    char copy[16] = {};
    std::memcpy(copy, from.at, piece);
    std::memcpy(&low, copy, 8);
    std::memcpy(&high, copy + 8, 8);
#endif
    hash = (hash ^ low) * kOdd2;
    hash = ((hash ^ (hash >> 29)) + high) * kOdd3;
    if (size <= 16) break;
    hash ^= hash >> 32;
    from.at += 16, size -= 16;
  }
  return static_cast<std::uint32_t>(hash >> 32);
}

namespace bytes {

#if QUILLON_MATCH_SSE2
/// The places of `text` in the 16 bytes at `from`, of which those up to `last` count: a bit for each, perhaps for
/// others when `text` has more than two bytes. Both ends of the text are looked for at once: Mula, "SIMD-friendly
/// algorithms for substring searching".
inline std::uint32_t likelyPlaces(Bytes from, std::size_t last, std::string_view text) {
  std::uint32_t found = sameBytes(load(from), _mm_set1_epi8(text.front()));
  if (text.size() > 1) found &= sameBytes(load({from.at + text.size() - 1, from.limit}), _mm_set1_epi8(text.back()));
  return last < 16 ? found & ((2U << last) - 1) : found;
}

[[gnu::noinline]] inline std::size_t findFar(Bytes from, std::size_t size, std::string_view text) {
  const std::size_t last = size - text.size();
  for (std::size_t at = 0; at <= last; at += 16) {
    std::uint32_t found = likelyPlaces({from.at + at, from.limit}, last - at, text);
    for (; found != 0; found &= found - 1) {
      const std::size_t place = at + static_cast<std::size_t>(std::countr_zero(found));
      if (text.size() <= 2 || std::memcmp(from.at + place, text.data(), text.size()) == 0) return place;
    }
  }
  return size;
}
#endif

}  // namespace bytes

/// The first place of `text`, which is not empty, in the `size` bytes at `from`; `size` when there is none.
inline std::size_t findText(Bytes from, std::size_t size, std::string_view text) {
  if (text.size() > size) return size;
#if QUILLON_MATCH_SSE2
  const std::size_t last = size - text.size();
  if (last < 16 && text.size() <= 2) {
    const std::uint32_t found = bytes::likelyPlaces(from, last, text);
    return found != 0 ? static_cast<std::size_t>(std::countr_zero(found)) : size;
  }
  return bytes::findFar(from, size, text);
#else
  const std::size_t place = std::string_view(from.at, size).find(text);
  return place == std::string_view::npos ? size : place;
#endif
}

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_BYTES_H_
