#ifndef QUILLON_CODESET_FORMS_H_
#define QUILLON_CODESET_FORMS_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codeset/codeset.h"
#include "codeset/marks.h"

/// What a table says, laid out for the quick paths of the converters (codeset/transcode.h). It is made when the table
/// is loaded, by asking the careful path for every character, so that the two cannot differ, and never changes
/// afterwards.
///
/// A *form* is the bytes of one character in one word, the first in the lowest place. Where it is looked up, 0 stands
/// for "ask the careful path". How many bytes count is seen from the highest that is not 0, which no byte of a
/// character is, NUL's own apart; in UTF-8, where three bytes are the most, the highest place tells it: U+20AC is
/// 0x03AC82E2.
namespace quillon {

/// The form in UTF-8 of a character below U+10000.
constexpr std::uint32_t utf8Form(char32_t c) {
  const std::uint32_t last = 0x80 | (c & 0x3F);
  if (c < 0x80) return 1u << 24 | c;
  if (c < 0x800) return 2u << 24 | last << 8 | 0xC0 | c >> 6;
  return 3u << 24 | last << 16 | (0x80 | (c >> 6 & 0x3F)) << 8 | 0xE0 | c >> 12;
}

/// The forms of one codeset: up to 420 KB towards UTF-8 and 330 KB back, made in one or two milliseconds.
struct Forms {
  std::uint16_t kind;  ///< The kind of the codeset: only its own converters use them.

  /// Towards UTF-8. In single-byte codesets the forms of the 256 bytes; pairForm() and mixedForm() read the others.
  std::uint32_t* units = nullptr;

  /// From UTF-8: codeForm() reads them.
  std::uint32_t* codes = nullptr;

  /// Codesets of pairs: the first bytes that are likely to begin one, which is all that markPairs() needs.
  ByteRange leads[2] = {};

  /// Single-byte codesets: the byte of each character below U+0800. Mixed EBCDIC: of ASCII.
  unsigned char singles[0x800] = {};
};

/// Makes the forms of a codeset whose kind and table are set; null where its kind has none or memory is short, which
/// costs time later and nothing else. Release with freeForms().
Forms* makeForms(const nxl_cs& cs);
void freeForms(Forms* forms);

/// The forms of a codeset for the converters of one kind; null for those of another.
inline const Forms* formsFor(const nxl_cs& cs, NxlKind kind) {
  return cs.forms && cs.forms->kind == kind ? cs.forms : nullptr;
}

/// From UTF-8. The first byte and six bits of the second lead to the form of a character of one or two bytes, or to the
/// forms of 64 longer ones, which the third byte as it is, 80 to BF, counts from. Overlong bytes, surrogates and what
/// takes four bytes lead to zeros. The bytes that belong to the character must be there, which is not asked here.
inline constexpr std::size_t kCodeLeads = std::size_t{256} * 64;

/// The form in the codeset of the character whose UTF-8 is at `p`, where three bytes can be read.
inline std::uint32_t codeForm(const std::uint32_t* codes, const unsigned char* p) {
  const std::size_t longer = 0 - std::size_t{p[0] >= 0xE0};  // all bits or none: "?:" would become a branch
  return codes[codes[p[0] * std::size_t{64} + (p[1] & 0x3F)] + (p[2] & longer)];
}

/// The same where it has kBytes, 2 or 3.
template <int kBytes>
std::uint32_t codeFormOf(const std::uint32_t* codes, const unsigned char* p) {
  return codes[codes[p[0] * std::size_t{64} + (p[1] & 0x3F)] + (kBytes == 3 ? p[2] : 0)];
}

/// Towards UTF-8: the forms of all pairs of bytes. A byte that is a character by itself has its form in all of its
/// pairs.
inline constexpr std::size_t kPairForms = std::size_t{256} * 256;
inline std::uint32_t pairForm(const std::uint32_t* units, const unsigned char* p) {
  return units[p[0] * std::size_t{256} + p[1]];
}

/// GB 18030: behind those of the pairs, the forms of the four-byte codes up to that of U+FFFF, in the order of their
/// numbers.
inline constexpr std::size_t kFourByteForms = 39420;

/// The form of a four-byte code at `p`; 0 for all other bytes. Their places in the code are worked out side by side, in
/// the bytes of one word: 0 to 125 for the first and the third, 0 to 9 for the others.
inline std::uint32_t fourByteForm(const std::uint32_t* units, const unsigned char* p) {
  std::uint32_t word = 0;
  std::memcpy(&word, p, sizeof word);
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
  const std::uint32_t places = word - 0x30813081;
  if (((places | (places + 0x76027602)) & 0x80808080) != 0) return 0;  // one is beyond its range
  const std::uint32_t pairs = (places & 0x00FF00FF) * 10 + (places >> 8 & 0x00FF00FF);
  const std::uint32_t number = (pairs & 0xFFFF) * 1260 + (pairs >> 16);
  return number < kFourByteForms ? units[kPairForms + number] : 0;
}

/// Mixed EBCDIC: the forms of the 256 bytes, then those of the pairs, which begin with a byte from 0x40 on.
inline constexpr std::size_t kMixedForms = 256 + 192 * 256;
inline std::uint32_t mixedForm(const std::uint32_t* units, const unsigned char* p) {
  return p[0] < 0x40 ? 0 : units[(p[0] - std::size_t{0x3F}) * 256 + p[1]];
}

}  // namespace quillon

#endif  // QUILLON_CODESET_FORMS_H_
