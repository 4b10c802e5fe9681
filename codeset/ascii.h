#ifndef QUILLON_CODESET_ASCII_H_
#define QUILLON_CODESET_ASCII_H_

#include "codeset/forms.h"
#include "codeset/image.h"
#include "codeset/transcode.h"
#include "codeset/utf8_ucs2.h"

/// Sources and targets of the codesets that contain ASCII: a byte below 0x80 at the start of a character is ASCII,
/// whatever the table says.
///
/// A sequence of bytes that has no character is one "?". It never takes a byte below 0x80 with it: after a stray lead
/// byte the quote, the backslash or the newline that follows is still read.
namespace quillon {

class SingleByteSource {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = true;

  explicit SingleByteSource(const nxl_cs& cs) : single_(singleBytes(cs)), forms_(formsFor(cs, kSingleByteKind)) {}

  Step next(const unsigned char* p, const unsigned char* /*end*/) const { return {single(single_, *p), 1}; }

  static char32_t single(const Column& column, unsigned char byte) {
    const std::uint32_t c = byte < 0x80 ? byte : column[byte];
    return c == kUnmappable ? kSubstitute : c;
  }

  static constexpr bool kUnits = true;
  static constexpr int kShortest = 1;
  const std::uint32_t* forms(const Utf8Target& /*target*/) const { return forms_ ? forms_->units : nullptr; }
  static Marks marks(const unsigned char* block) { return markBytes(block); }
  static std::uint32_t form(const std::uint32_t* forms, const unsigned char* p) { return forms[*p]; }

 private:
  Column single_;
  const Forms* forms_;
};

/// Characters of up to kLongest bytes, found row by row.
template <int kLongest>
class RowSource {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = true;

  explicit RowSource(const nxl_cs& cs, NxlKind kind = kLongest == 2 ? kDoubleByteKind : kMultiByteKind)
      : single_(singleBytes(cs)), rows_(rows(cs)), forms_(formsFor(cs, kind)) {}

  Step next(const unsigned char* p, const unsigned char* end) const {
    if (*p < 0x80) return {*p, 1};
    std::uint32_t entry = rows_[*p];
    if (entry == kUnmappable) return {SingleByteSource::single(single_, *p), 1};
    for (int i = 1; i < kLongest; ++i) {
      if (p + i == end) return kIncomplete;
      const bool more_lead = kLongest > 2 && (entry & kLeadRow) != 0;
      entry = rows_[(entry & ~std::uint32_t{kLeadRow}) * kRowEntries + p[i]];
      if (entry == kUnmappable) return {kSubstitute, p[i] < 0x80 ? i : i + 1};
      if (!more_lead) return {entry, i + 1};
    }
    return {kSubstitute, kLongest};
  }

  static constexpr bool kUnits = false;
  static constexpr int kShortest = 1;
  const std::uint32_t* forms(const Utf8Target& /*target*/) const { return forms_ ? forms_->units : nullptr; }
  Marks marks(const unsigned char* block) const { return markPairs(block, forms_->leads); }
  static std::uint32_t form(const std::uint32_t* forms, const unsigned char* p) { return pairForm(forms, p); }
  template <int /*kBytes*/>
  static std::uint32_t formOf(const std::uint32_t* forms, const unsigned char* p) {
    return pairForm(forms, p);
  }

 private:
  Column single_;
  Entries<2> rows_;
  const Forms* forms_;
};

using DoubleByteSource = RowSource<2>;
using MultiByteSource = RowSource<4>;

/// GB 18030: the two-byte characters in rows, the four-byte ones of the Basic Multilingual Plane in the order of their
/// codes, those of the other planes by arithmetic (GB 18030-2005).
class Gb18030Source : public DoubleByteSource {
 public:
  explicit Gb18030Source(const nxl_cs& cs) : DoubleByteSource(cs, kGb18030Kind), four_(fourBytes(cs)) {}

  Step next(const unsigned char* p, const unsigned char* end) const {
    if (!isLead(p[0])) return DoubleByteSource::next(p, end);
    if (end - p < 2) return kIncomplete;  // four bytes may follow, whether the table has a row for two or not
    if (!isDigit(p[1])) return DoubleByteSource::next(p, end);
    if (end - p < 3) return kIncomplete;
    if (!isLead(p[2])) return {kSubstitute, 1};
    if (end - p < 4) return kIncomplete;
    if (!isDigit(p[3])) return {kSubstitute, 1};
    return {fourByteCharacter(((p[0] - 0x81u) * 10 + (p[1] - 0x30u)) * 1260 + (p[2] - 0x81u) * 10 + (p[3] - 0x30u)), 4};
  }

  static std::uint32_t fourByteForm(const std::uint32_t* forms, const unsigned char* p) {
    return quillon::fourByteForm(forms, p);
  }

  static constexpr std::uint32_t kSupplementary = 189000;  ///< Number of U+10000 among the four-byte codes.

 private:
  static bool isLead(unsigned char byte) { return byte >= 0x81 && byte <= 0xFE; }
  static bool isDigit(unsigned char byte) { return byte >= 0x30 && byte <= 0x39; }

  char32_t fourByteCharacter(std::uint32_t number) const {
    if (number >= kSupplementary && number - kSupplementary < 0x100000) return number - kSupplementary + 0x10000;
    const std::uint32_t c = four_[number];
    return c == kUnmappable ? kSubstitute : c;
  }

  Entries<2> four_;
};

/// Writes the characters that the pages give, as 16-bit (kBytes 2) or 32-bit codes, of up to kLongest bytes.
template <std::size_t kBytes, int kLongest>
class PageTarget : public PlainTarget<unsigned char> {
 public:
  explicit PageTarget(const nxl_cs& cs, NxlKind kind = kLongest == 1   ? kSingleByteKind
                                                       : kLongest == 2 ? kDoubleByteKind
                                                                       : kMultiByteKind)
      : pages_(cs), forms_(formsFor(cs, kind)) {}

  int put(char32_t c, unsigned char* p, const unsigned char* end) const { return putCode(codeOf(c), p, end); }

  const unsigned char* singles() const requires(kLongest == 1) { return forms_->singles; }
  static int formBytes(std::uint32_t form) {
    if constexpr (kLongest <= 2) return kLongest == 1 || form <= 0xFF ? 1 : 2;
    return static_cast<int>(std::bit_width(form | 1) + 7) / 8;
  }
  const std::uint32_t* codes() const { return forms_ ? forms_->codes : nullptr; }

 protected:
  static int putCode(std::uint32_t code, unsigned char* p, const unsigned char* end) {
    const int length = lengthOf(code);
    if (end - p < length) return 0;
    for (int i = length - 1; i >= 0; --i, code >>= 8) p[i] = static_cast<unsigned char>(code);
    return length;
  }

  std::uint32_t codeOf(char32_t c) const {
    if (c < 0x80) return c;
    const std::uint32_t code = pages_.code(c);
    constexpr std::uint32_t kHighest = kLongest == 1 ? 0xFF : Pages<kBytes>::kNone - 1;
    return code <= kHighest ? code : kSubstitute;
  }

  static int lengthOf(std::uint32_t code) {
    if constexpr (kLongest == 1) return 1;
    return code < 0x100 ? 1 : code < 0x10000 || kLongest == 2 ? 2 : code < 0x1000000 ? 3 : 4;
  }

 private:
  Pages<kBytes> pages_;
  const Forms* forms_;
};

using SingleByteTarget = PageTarget<2, 1>;
using DoubleByteTarget = PageTarget<2, 2>;
using MultiByteTarget = PageTarget<4, 4>;

class Gb18030Target : public MultiByteTarget {
 public:
  explicit Gb18030Target(const nxl_cs& cs) : MultiByteTarget(cs, kGb18030Kind) {}

  int put(char32_t c, unsigned char* p, const unsigned char* end) const {
    return c < 0x10000 ? MultiByteTarget::put(c, p, end) : putCode(supplementaryCode(c), p, end);
  }

 private:
  static std::uint32_t supplementaryCode(char32_t c) {
    const std::uint32_t n = c - 0x10000 + Gb18030Source::kSupplementary;
    return (n / 12600 + 0x81) << 24 | (n / 1260 % 10 + 0x30) << 16 | (n / 10 % 126 + 0x81) << 8 | (n % 10 + 0x30);
  }
};

}  // namespace quillon

#endif  // QUILLON_CODESET_ASCII_H_
