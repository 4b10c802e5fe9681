#ifndef QUILLON_CODESET_UTF8_UCS2_H_
#define QUILLON_CODESET_UTF8_UCS2_H_

#include "codeset/forms.h"
#include "codeset/transcode.h"

/// The ends of a conversion that need no table: UTF-8, UCS-2 and bytes that pass through.
namespace quillon {

/// UTF-8. A malformed piece, in the sense of the Unicode Standard's "maximal subpart" (section 3.9), is one "?".
class Utf8Source {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = true;

  explicit Utf8Source(const nxl_cs& /*cs*/) {}

  Step next(const unsigned char* p, const unsigned char* end) const {
    const unsigned lead = p[0];
    if (lead < 0x80) return {lead, 1};
    const int length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (length == 0) return {kSubstitute, 1};
    char32_t c = lead & (0x7Fu >> length);
    for (int i = 1; i < length; ++i) {
      if (p + i == end) return kIncomplete;
      if ((p[i] & 0xC0) != 0x80 || (i == 1 && !isSecond(lead, p[1]))) return {kSubstitute, i};
      c = c << 6 | (p[i] & 0x3F);
    }
    return {c, length};
  }

  static constexpr bool kUnits = false;
  static constexpr int kShortest = 2;
  template <class Target>
  const std::uint32_t* forms(const Target& target) const requires requires {
    target.codes();
  }
  { return target.codes(); }
  static Marks marks(const unsigned char* block) { return markUtf8(block); }
  static std::uint32_t form(const std::uint32_t* forms, const unsigned char* p) { return codeForm(forms, p); }
  template <int kBytes>
  static std::uint32_t formOf(const std::uint32_t* forms, const unsigned char* p) {
    return codeFormOf<kBytes>(forms, p);
  }

 private:
  /// Overlong forms, surrogates and what lies beyond U+10FFFF show in the second byte.
  static bool isSecond(unsigned lead, unsigned second) {
    switch (lead) {
      case 0xE0:
        return second >= 0xA0;
      case 0xED:
        return second < 0xA0;
      case 0xF0:
        return second >= 0x90;
      case 0xF4:
        return second < 0x90;
      default:
        return true;
    }
  }
};

class Utf8Target : public PlainTarget<unsigned char> {
 public:
  explicit Utf8Target(const nxl_cs& /*cs*/) {}

  int put(char32_t c, unsigned char* p, const unsigned char* end) const {
    const int length = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    if (end - p < length) return 0;
    switch (length) {
      case 1:
        p[0] = static_cast<unsigned char>(c);
        break;
      case 2:
        p[0] = static_cast<unsigned char>(0xC0 | c >> 6);
        p[1] = trail(c);
        break;
      case 3:
        p[0] = static_cast<unsigned char>(0xE0 | c >> 12);
        p[1] = trail(c >> 6);
        p[2] = trail(c);
        break;
      default:
        p[0] = static_cast<unsigned char>(0xF0 | c >> 18);
        p[1] = trail(c >> 12);
        p[2] = trail(c >> 6);
        p[3] = trail(c);
    }
    return length;
  }

  static int formBytes(std::uint32_t form) { return static_cast<int>(form >> 24); }

 private:
  static unsigned char trail(char32_t c) { return static_cast<unsigned char>(0x80 | (c & 0x3F)); }
};

/// UCS-2: one unit a character; a surrogate is none.
class Ucs2Source {
 public:
  using Unit = char16_t;
  static constexpr bool kAscii = true;

  explicit Ucs2Source(const nxl_cs& /*cs*/) {}

  Step next(const char16_t* p, const char16_t* /*end*/) const {
    return {*p >= 0xD800 && *p < 0xE000 ? kSubstitute : *p, 1};
  }
};

class Ucs2Target : public PlainTarget<char16_t> {
 public:
  explicit Ucs2Target(const nxl_cs& /*cs*/) {}

  int put(char32_t c, char16_t* p, const char16_t* end) const {
    if (p == end) return 0;
    *p = static_cast<char16_t>(c < 0x10000 ? c : kSubstitute);
    return 1;
  }
};

/// The OS codeset: bytes that stand for themselves.
class OsSource {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = true;

  explicit OsSource(const nxl_cs& /*cs*/) {}

  Step next(const unsigned char* p, const unsigned char* /*end*/) const { return {*p, 1}; }
};

class OsTarget : public PlainTarget<unsigned char> {
 public:
  explicit OsTarget(const nxl_cs& /*cs*/) {}

  int put(char32_t c, unsigned char* p, const unsigned char* end) const {
    if (p == end) return 0;
    *p = static_cast<unsigned char>(c < 0x100 ? c : kSubstitute);
    return 1;
  }
};

}  // namespace quillon

#endif  // QUILLON_CODESET_UTF8_UCS2_H_
