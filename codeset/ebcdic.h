#ifndef QUILLON_CODESET_EBCDIC_H_
#define QUILLON_CODESET_EBCDIC_H_

#include <cstdint>

#include "codeset/forms.h"
#include "codeset/image.h"
#include "codeset/transcode.h"
#include "codeset/utf8_ucs2.h"

namespace quillon {

/// The characters that have the same code in every EBCDIC code page: controls, digits, Latin letters and the
/// punctuation of the ISO/IEC 646 invariant set. 0 stands for "not invariant", except at NUL itself.
struct InvariantSet {
  std::uint8_t to_ucs[256];    ///< EBCDIC to UCS-2, which is below 0x100 for all of them.
  std::uint8_t from_ucs[256];  ///< UCS-2 below 0x100 to EBCDIC.
};

const InvariantSet& invariantSet();

/// The EBCDIC code of an invariant character, kUnmappableCode for any other.
inline std::uint32_t invariantCode(char32_t c) {
  const std::uint32_t code = c < 0x100 ? invariantSet().from_ucs[c] : 0;
  return code || !c ? code : kUnmappableCode;
}

/// Takes the lower-case letters out, for the rest of the process and before other threads convert: code page 930 has
/// katakana in their place.
void useVariant930();

inline constexpr std::uint32_t kEbcdicSubstitute = 0x6F;  ///< "?"
inline constexpr unsigned char kShiftOut = 0x0E;          ///< Begins double-byte text.
inline constexpr unsigned char kShiftIn = 0x0F;           ///< Ends it.

/// Single-byte EBCDIC. "INTERNAL37" has no table and knows the invariant set only.
class EbcdicSource {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = false;

  explicit EbcdicSource(const nxl_cs& cs)
      : internal_(cs.kind == kInternal37Kind), single_(singleBytes(cs)), forms_(formsFor(cs, kEbcdicKind)) {}

  Step next(const unsigned char* p, const unsigned char* /*end*/) const {
    const std::uint32_t c = internal_ ? invariant(*p) : single_[*p];
    return {c == kUnmappable ? kSubstitute : c, 1};
  }

  static constexpr bool kUnits = true;
  static constexpr int kShortest = 1;
  const std::uint32_t* forms(const Utf8Target& /*target*/) const { return forms_ ? forms_->units : nullptr; }
  static Marks marks(const unsigned char* block) { return markBytes(block); }
  static std::uint32_t form(const std::uint32_t* forms, const unsigned char* p) { return forms[*p]; }

 private:
  static std::uint32_t invariant(unsigned char byte) {
    const std::uint32_t c = invariantSet().to_ucs[byte];
    return c || !byte ? c : kUnmappable;
  }

  bool internal_;
  Column single_;
  const Forms* forms_;
};

class EbcdicTarget : public PlainTarget<unsigned char> {
 public:
  static constexpr bool kAscii = false;

  explicit EbcdicTarget(const nxl_cs& cs)
      : internal_(cs.kind == kInternal37Kind), pages_(cs), forms_(formsFor(cs, kEbcdicKind)) {}

  int put(char32_t c, unsigned char* p, const unsigned char* end) const {
    if (p == end) return 0;
    const std::uint32_t code = internal_ ? invariantCode(c) : pages_.code(c);
    *p = static_cast<unsigned char>(code < 0x100 ? code : kEbcdicSubstitute);
    return 1;
  }

  const unsigned char* singles() const { return forms_->singles; }
  static int formBytes(std::uint32_t /*form*/) { return 1; }
  const std::uint32_t* codes() const { return forms_ ? forms_->codes : nullptr; }
  const unsigned char* translation() const { return forms_->singles; }

 private:
  bool internal_;
  Pages<2> pages_;
  const Forms* forms_;
};

/// Mixed EBCDIC: single-byte text, and double-byte text between shift-out and shift-in. The codeset keeps the state. A
/// shift into the state that is on already is passed over.
class MixedEbcdicSource {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = false;

  explicit MixedEbcdicSource(nxl_cs& cs)
      : state_(cs.state1), single_(singleBytes(cs)), rows_(rows(cs)), forms_(formsFor(cs, kMixedEbcdicKind)) {}

  Step next(const unsigned char* p, const unsigned char* end) {
    if (*p == kShiftOut || *p == kShiftIn) {
      state_ = *p == kShiftOut;
      return {kNoCharacter, 1};
    }
    const char32_t invariant = invariantSet().to_ucs[*p];
    if (state_ == 0) return {invariant ? invariant : mapped(single_[*p]), 1};
    if (*p < 0x40 || *p > 0xFE) return {invariant, 1};
    if (end - p < 2) return kIncomplete;
    const std::uint32_t row = rows_[*p];
    return {row < kLeadRow ? mapped(rows_[row * kRowEntries + p[1]]) : kSubstitute, 2};
  }

  /// Text between two shifts is bytes alone, or pairs alone.
  void convertAhead(const Utf8Target& /*target*/, const unsigned char*& in, const unsigned char* in_end,
                    unsigned char*& out, unsigned char* out_end) const {
    if (!forms_) return;
    const unsigned char* from = in;
    unsigned char* to = out;
    const bool is_double = state_ != 0;
    const int size = is_double ? 2 : 1;
    const std::ptrdiff_t count = std::min((in_end - in) / size, (out_end - out) / kFormBytes);
    for (std::ptrdiff_t i = 0; i < count; ++i, from += size) {
      const std::uint32_t form = is_double ? mixedForm(forms_->units, from) : forms_->units[*from];
      if (form == 0) break;
      storeForm(form, to);
      to += Utf8Target::formBytes(form);
    }
    in = from;
    out = to;
  }

 private:
  static char32_t mapped(std::uint32_t entry) { return entry == kUnmappable ? kSubstitute : entry; }

  std::uint8_t& state_;
  Column single_;
  Entries<2> rows_;
  const Forms* forms_;
};

class MixedEbcdicTarget {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = false;

  explicit MixedEbcdicTarget(nxl_cs& cs) : state_(cs.state1), pages_(cs), forms_(formsFor(cs, kMixedEbcdicKind)) {}

  int put(char32_t c, unsigned char* p, const unsigned char* end) {
    const std::uint32_t code = this->code(c);
    const bool is_double = code >= 0x100;
    const bool shift = is_double != (state_ != 0);
    const int length = shift + (is_double ? 2 : 1);
    if (end - p < length + is_double) return 0;  // behind double-byte text stays room for the shift-in
    if (shift) *p++ = is_double ? kShiftOut : kShiftIn;
    if (is_double) *p++ = static_cast<unsigned char>(code >> 8);
    *p = static_cast<unsigned char>(code);
    state_ = is_double;
    return length;
  }

  void finish(char*& p, const char* end) const {
    if (state_ && p != end) *p++ = kShiftIn;
  }

  /// One byte or two, without shifts.
  std::uint32_t code(char32_t c) const {
    std::uint32_t code = invariantCode(c);
    if (code == kUnmappableCode || isShift(code)) code = pages_.code(c);
    return code < kUnmappable && !isShift(code) ? code : kEbcdicSubstitute;
  }

  static int formBytes(std::uint32_t form) { return form > 0xFF ? 2 : 1; }
  const std::uint32_t* codes() const { return forms_ ? forms_->codes : nullptr; }
  const unsigned char* translation() const { return forms_->singles; }
  unsigned char* shift(bool is_double, unsigned char* p) {
    const bool due = is_double != (state_ != 0);
    *p = is_double ? kShiftOut : kShiftIn;
    state_ = is_double;
    return p + due;
  }

 private:
  static bool isShift(std::uint32_t code) { return code == kShiftOut || code == kShiftIn; }

  std::uint8_t& state_;
  Pages<2> pages_;
  const Forms* forms_;
};

}  // namespace quillon

#endif  // QUILLON_CODESET_EBCDIC_H_
