#ifndef QUILLON_CODESET_TRANSCODE_H_
#define QUILLON_CODESET_TRANSCODE_H_

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <bit>
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
///   kFixed                   whether every unit is a character by itself;
///   Step next(p, end)        the character at p, where p < end;
///   forms()                  optional: the utf8Form() of every unit, or null;
///   QuickForm quickForm(p)   optional: the utf8Form() of the character at p;
///   Quick quick(p)           optional: the character at p, for a target with formOf().
/// A target has
///   Unit, kAscii             likewise;
///   int put(c, p, end)       writes a character and returns its units; 0, and nothing written, when it does not fit;
///   int putLoose(c, p)       optional: the same where four units are free, and it may scribble over all of them;
///   int putForm(form, p)     optional: writes the bytes of a form, likewise;
///   formOf(c)                optional: the form of a character's bytes, 0 when put() has to be asked;
///   asciiForms()             where not kAscii, optional: the forms, of one byte, of the ASCII characters, or null.
///   void finish(p, end)      writes what a complete text still needs, and advances p.
namespace quillon {

inline constexpr char32_t kSubstitute = U'?';
inline constexpr char32_t kNoCharacter = 0xFFFFFFFF;  ///< Units were used up without making a character.

/// What a source found.
struct Step {
  char32_t character;
  int length;  ///< Units used, 0 when the source ends within the character.
};

/// A form is up to three bytes of a character in one word, the first in the lowest place, and in the highest byte how
/// many they are.
struct QuickForm {
  std::uint32_t form;  ///< 0 when next() has to be asked.
  int length;          ///< Units used.
};

/// A character found without all the care of next().
struct Quick {
  char32_t character;
  int length;  ///< Units used.
  bool valid;  ///< If not, next() has to be asked.
};

/// Far from the ends of both texts nothing has to be checked, and more may be written than is meant: 64 units of source
/// make 16 of target at least, which cover it, unless they are nothing but shifts. The tail of a text is converted with
/// care.
inline constexpr std::ptrdiff_t kMargin = 64;
inline constexpr std::ptrdiff_t kRun = 16;       ///< Units of ASCII that are copied at a time, needed or not.
inline constexpr int kDense = 8;                 ///< Characters at a stretch where few are ASCII.
inline constexpr std::ptrdiff_t kMostUnits = 4;  ///< That a step uses, and that a character takes.
static_assert(kRun + (1 + kDense) * kMostUnits <= kMargin);

inline constexpr Step kIncomplete = {kNoCharacter, 0};

/// The codeset that a caller means.
inline nxl_cs& resolve(nxl_cs* cs) { return cs ? *cs : *nxl_get_def_cs(); }

/// A copy of kUnits units, read before written, which lets the compiler use its widest moves.
template <std::size_t kUnits, class In, class Out>
void copyUnits(const In* in, Out* out) {
  In from[kUnits];
  Out to[kUnits];
  std::memcpy(from, in, sizeof from);
  for (std::size_t i = 0; i < kUnits; ++i) to[i] = static_cast<Out>(from[i]);
  std::memcpy(out, to, sizeof to);
}

/// Bit i is set when unit i of the kRun units at `in` is not ASCII.
inline unsigned notAscii(const unsigned char* in) {
#ifdef __SSE2__
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in))));
#else
  unsigned bits = 0;
  for (std::ptrdiff_t i = 0; i < kRun; ++i) bits |= static_cast<unsigned>(in[i] >> 7) << i;
  return bits;
#endif
}

inline unsigned notAscii(const char16_t* in) {
  unsigned bits = 0;
#ifdef __SSE2__
  const auto* p = reinterpret_cast<const __m128i*>(in);
  const __m128i low = _mm_set1_epi16(0x7F);
  const __m128i first = _mm_cmpeq_epi16(_mm_subs_epu16(_mm_loadu_si128(p), low), _mm_setzero_si128());
  const __m128i second = _mm_cmpeq_epi16(_mm_subs_epu16(_mm_loadu_si128(p + 1), low), _mm_setzero_si128());
  bits = 0xFFFF ^ static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(first, second)));
#else
  for (std::ptrdiff_t i = 0; i < kRun; ++i) bits |= static_cast<unsigned>(in[i] > 0x7F) << i;
#endif
  return bits;
}

/// Copies units below 0x80, as long as there are many.
template <class In, class Out>
[[gnu::always_inline]] inline void copyLongRun(const In*& in, const In* in_end, Out*& out, const Out* out_end) {
  constexpr std::ptrdiff_t kLong = 4 * kRun;
  while (in_end - in >= kLong && out_end - out >= kLong) {
    if (notAscii(in) | notAscii(in + kRun) | notAscii(in + 2 * kRun) | notAscii(in + 3 * kRun)) break;
    copyUnits<kLong>(in, out);
    in += kLong;
    out += kLong;
  }
}

/// Copies units below 0x80 until one of the texts ends or another unit stands there.
template <class In, class Out>
void copyAsciiRun(const In*& in, const In* in_end, Out*& out, const Out* out_end) {
  copyLongRun(in, in_end, out, out_end);
  while (in_end - in >= kRun && out_end - out >= kRun && notAscii(in) == 0) {
    copyUnits<kRun>(in, out);
    in += kRun;
    out += kRun;
  }
  while (in != in_end && out != out_end && *in < 0x80) *out++ = static_cast<Out>(*in++);
}

template <class Target, class Out>
int putFarFromEnd(Target& target, char32_t c, Out* out) {
  if constexpr (requires { target.putLoose(c, out); }) return target.putLoose(c, out);
  return target.put(c, out, out + kMostUnits);
}

/// Converts the character of the one unit at `in`.
template <class Source, class Target, class In, class Out>
void convertUnit(const Source& source, Target& target, const In* in, Out*& out) {
  if constexpr (requires { target.putForm(source.forms()[0], out); }) {
    if (source.forms()) {
      out += target.putForm(source.forms()[*in], out);
      return;
    }
  }
  out += putFarFromEnd(target, source.next(in, in + 1).character, out);
}

/// Converts units that each are a character by themselves.
template <class Source, class Target, class In, class Out>
void convertUnits(const Source& source, Target& target, const In*& src, const In* in_end, Out*& dst, Out* out_end) {
  const In* in = src;
  Out* out = dst;
  while (in_end - in >= kRun && out_end - out >= kMargin) {
    if constexpr (Source::kAscii && Target::kAscii) {
      const unsigned others = notAscii(in);
      if (others == 0) {
        copyUnits<kRun>(in, out);
        in += kRun;
        out += kRun;
        copyLongRun(in, in_end, out, out_end);
        continue;
      }
      if ((others & others >> 1) == 0) {  // ASCII with single others in between
        copyUnits<kRun>(in, out);
        in += std::countr_zero(others);
        out += std::countr_zero(others);
        convertUnit(source, target, in++, out);
        continue;
      }
    }
    for (int i = 0; i < kDense; ++i) convertUnit(source, target, in + i, out);
    in += kDense;
  }
  src = in;
  dst = out;
}

/// Converts one character of one or several units.
template <class Source, class Target, class In, class Out>
[[gnu::always_inline]] inline void convertStep(Source& source, Target& target, const In*& in, Out*& out) {
  if constexpr (requires { target.putForm(source.quickForm(in).form, out); }) {
    const QuickForm quick = source.quickForm(in);
    if (quick.form) [[likely]] {
      out += target.putForm(quick.form, out);
      in += quick.length;
      return;
    }
  } else if constexpr (requires { target.formOf(source.quick(in).character); }) {
    const Quick quick = source.quick(in);
    if (quick.valid) [[likely]] {
      if (const std::uint32_t form = target.formOf(quick.character)) [[likely]] {
        out += target.putForm(form, out);
        in += quick.length;
        return;
      }
    }
  }
  const Step step = source.next(in, in + kMostUnits);
  if (step.character != kNoCharacter) out += putFarFromEnd(target, step.character, out);
  in += step.length;
}

/// Converts characters of several units. Where ASCII is frequent, runs of it are copied; elsewhere a blank is a
/// character like any other, since the processor would often guess wrongly what comes next.
template <class Source, class Target, class In, class Out>
void convertSteps(Source& source, Target& target, const In*& src, const In* in_end, Out*& dst, Out* out_end) {
  constexpr bool kCopies = Source::kAscii && Target::kAscii;
  constexpr bool kMaps = Source::kAscii && requires { target.asciiForms(); };
  bool runs = kCopies;
  if constexpr (kMaps) runs = target.asciiForms() != nullptr;
  const In* in = src;
  Out* out = dst;
  while (in_end - in >= kMargin && out_end - out >= kMargin) {
    if (runs) {
      const int run = std::countr_zero(notAscii(in) | 1u << kRun);
      if constexpr (kMaps) {
        for (std::ptrdiff_t i = 0; i < kRun; ++i) out[i] = static_cast<Out>(target.asciiForms()[in[i] & 0x7F]);
      } else {
        copyUnits<kRun>(in, out);
      }
      in += run;
      out += run;
      if (run == kRun) {
        if constexpr (kCopies) copyLongRun(in, in_end, out, out_end);
        continue;
      }
    }
    convertStep(source, target, in, out);
    for (int i = 0; i < kDense && !(runs && *in < 0x80); ++i) convertStep(source, target, in, out);
  }
  src = in;
  dst = out;
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
  if constexpr (Source::kFixed) {
    convertUnits(source, target, in, in_end, out, out_end);
  } else {
    convertSteps(source, target, in, in_end, out, out_end);
  }
  int code = 0;
  while (in != in_end) {
    code = 1;
    if (out == out_end) break;
    if constexpr (Source::kAscii && Target::kAscii) {
      if (*in < 0x80) {
        copyAsciiRun(in, in_end, out, out_end);
        code = 0;
        continue;
      }
    }
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

/// Writes the four bytes of `value`, the lowest first.
inline void storeLittleEndian(std::uint32_t value, unsigned char* p) {
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap32(value);
  std::memcpy(p, &value, sizeof value);
}

/// The four bytes at `p` as a number, the first the highest.
inline std::uint32_t loadBigEndian(const unsigned char* p) {
  std::uint32_t value;
  std::memcpy(&value, p, sizeof value);
  return std::endian::native == std::endian::little ? __builtin_bswap32(value) : value;
}

/// The bytes of a form, and up to four in all.
inline int storeForm(std::uint32_t form, unsigned char* p) {
  storeLittleEndian(form, p);
  return static_cast<int>(form >> 24);
}

/// The form of the UTF-8 of a character below U+10000.
constexpr std::uint32_t utf8Form(char32_t c) {
  const std::uint32_t last = 0x80 | (c & 0x3F);
  if (c < 0x80) return 1u << 24 | c;
  if (c < 0x800) return 2u << 24 | last << 8 | 0xC0 | c >> 6;
  return 3u << 24 | last << 16 | (0x80 | (c >> 6 & 0x3F)) << 8 | 0xE0 | c >> 12;
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
  static constexpr bool kFixed = false;

  explicit Utf8Source(const nxl_cs& /*cs*/) {}

  Step next(const unsigned char* p, const unsigned char* end) const {
    const unsigned lead = p[0];
    if (lead < 0x80) return {lead, 1};
    if (end - p >= kMostUnits) {
      const Quick found = quick(p);
      if (found.valid && (found.character < 0xD800 || found.character > 0xDFFF)) return {found.character, found.length};
    }
    return nextWithCare(p, end);
  }

  /// The character of up to three bytes at `p`, where four can be read; a surrogate may come of it.
  Quick quick(const unsigned char* p) const {
    const std::uint32_t bytes = loadBigEndian(p);
    if ((bytes & 0xE0C00000) == 0xC0800000) {
      const char32_t c = (bytes >> 18 & 0x7C0) | (bytes >> 16 & 0x3F);
      return {c, 2, c >= 0x80};
    }
    if ((bytes & 0xF0C0C000) == 0xE0808000) {
      const char32_t c = (bytes >> 12 & 0xF000) | (bytes >> 10 & 0xFC0) | (bytes >> 8 & 0x3F);
      return {c, 3, c >= 0x800};
    }
    return {bytes >> 24, 1, bytes < 0x80000000};
  }

 private:
  static Step nextWithCare(const unsigned char* p, const unsigned char* end) {
    const unsigned lead = p[0];
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

  int putLoose(char32_t c, unsigned char* p) const {
    if (c >= 0x10000) return put(c, p, p + 4);
    if (c < 0x80) {
      *p = static_cast<unsigned char>(c);
      return 1;
    }
    return putForm(utf8Form(c), p);
  }

  int putForm(std::uint32_t form, unsigned char* p) const { return storeForm(form, p); }

 private:
  static unsigned char trail(char32_t c) { return static_cast<unsigned char>(0x80 | (c & 0x3F)); }
};

/// UCS-2: one unit a character; a surrogate is none.
class Ucs2Source {
 public:
  using Unit = char16_t;
  static constexpr bool kAscii = true;
  static constexpr bool kFixed = true;

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
  static constexpr bool kFixed = true;

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
