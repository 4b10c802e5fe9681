#ifndef QUILLON_CODESET_TRANSCODE_H_
#define QUILLON_CODESET_TRANSCODE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codeset/codeset.h"

/// The one conversion loop of the converter family, and its UTF-8, UCS-2 and pass-through ends. A converter is a
/// source, which takes one character off a text, and a target, which adds one to a text; the loop keeps the contract of
/// codeset/conv.h.
///
/// Both are made from the codeset. A source has
///   Unit                     unsigned char or char16_t;
///   kAscii                   whether a unit below 0x80 always is that ASCII character;
///   Step next(p, end)        the character at p, where p < end.
/// A target has
///   Unit, kAscii             likewise;
///   int put(c, p, end)       writes a character and returns its units; 0, and nothing written, when it does not fit;
///   void finish(p, end)      writes what a complete text still needs, and advances p.
namespace quillon {

inline constexpr char32_t kSubstitute = U'?';
inline constexpr char32_t kNoCharacter = 0xFFFFFFFF;  ///< Units were used up without making a character.

/// What a source found.
struct Step {
  char32_t character;
  int length;  ///< Units used, 0 when the source ends within the character.
};

inline constexpr Step kIncomplete = {kNoCharacter, 0};

/// The codeset that a caller means.
inline nxl_cs& resolve(nxl_cs* cs) { return cs ? *cs : *nxl_get_def_cs(); }

/// Copies units below 0x80 until one of the texts ends or another unit stands there.
template <class In, class Out>
void copyAsciiRun(const In*& in, const In* in_end, Out*& out, const Out* out_end) {
  constexpr std::ptrdiff_t kBlock = 32;
  while (in_end - in >= kBlock && out_end - out >= kBlock) {
    In all = 0;
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) all = static_cast<In>(all | in[i]);
    if (all >= 0x80) break;
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) out[i] = static_cast<Out>(in[i]);
    in += kBlock;
    out += kBlock;
  }
  while (in != in_end && out != out_end && *in < 0x80) *out++ = static_cast<Out>(*in++);
}

template <class Source, class Target, class SrcChar, class DstChar>
int convert(nxl_cs* cs, const SrcChar** src, const SrcChar* src_end, DstChar** dst, DstChar* dst_end) {
  using In = typename Source::Unit;
  using Out = typename Target::Unit;
  nxl_cs& codeset = resolve(cs);
  Target target(codeset);
  if (!src || !*src) {
    if (dst && *dst) target.finish(*dst, dst_end);
    codeset.state1 = 0;
    return 0;
  }
  Source source(codeset);
  const auto* in = reinterpret_cast<const In*>(*src);
  const auto* const in_end = reinterpret_cast<const In*>(src_end);
  auto* out = reinterpret_cast<Out*>(*dst);
  auto* const out_end = reinterpret_cast<Out*>(dst_end);
  int code = 0;
  while (true) {
    if constexpr (Source::kAscii && Target::kAscii) copyAsciiRun(in, in_end, out, out_end);
    if (in == in_end) break;
    code = 1;
    if (out == out_end) break;
    const Step step = source.next(in, in_end);
    if (step.length == 0) {
      code = 2;
      break;
    }
    if (step.character != kNoCharacter) {
      const int written = target.put(step.character, out, out_end);
      if (written == 0) break;
      out += written;
    }
    in += step.length;
    code = 0;
  }
  *src = reinterpret_cast<const SrcChar*>(in);
  *dst = reinterpret_cast<DstChar*>(out);
  return code;
}

/// A target whose texts need nothing at their end.
template <class UnitType>
struct PlainTarget {
  using Unit = UnitType;
  static constexpr bool kAscii = true;
  template <class DstChar>
  void finish(DstChar*& /*p*/, DstChar* /*end*/) const {}
};

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

#endif  // QUILLON_CODESET_TRANSCODE_H_
