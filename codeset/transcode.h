#ifndef QUILLON_CODESET_TRANSCODE_H_
#define QUILLON_CODESET_TRANSCODE_H_

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
///   pairForm(p)              optional: the utf8Form() of the two units at p, 0 when next() has to be asked.
/// A target has
///   Unit, kAscii             likewise;
///   int put(c, p, end)       writes a character and returns its units; 0, and nothing written, when it does not fit;
///   int putForm(form, p)     optional: writes a word of utf8Form(), as loosely as putLoose();
///   int putLoose(c, p)       optional: the same where kTargetMargin units are free, and it may scribble over the
///                            kScribble units behind the character;
///   void finish(p, end)      writes what a complete text still needs, and advances p.
namespace quillon {

inline constexpr char32_t kSubstitute = U'?';
inline constexpr char32_t kNoCharacter = 0xFFFFFFFF;  ///< Units were used up without making a character.

/// What a source found.
struct Step {
  char32_t character;
  int length;  ///< Units used, 0 when the source ends within the character.
};

/// Far from the ends of both texts nothing has to be checked, and a target may write more than it means to: what
/// follows in the source covers it, unless that is nothing but shifts. The tail of a text is converted with care.
inline constexpr std::ptrdiff_t kSourceMargin = 16;
inline constexpr std::ptrdiff_t kTargetMargin = 32;
inline constexpr std::ptrdiff_t kScribble = 3;
inline constexpr std::ptrdiff_t kMostUnits = 4;  ///< That a step uses, and that a character takes.

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

/// How many of the kUnits units at `in` are ASCII before the first that is not. kUnits is a multiple of eight bytes.
template <std::size_t kUnits, class In>
std::size_t countAscii(const In* in) {
  constexpr std::uint64_t kHighBits = sizeof(In) == 1 ? 0x8080808080808080 : 0xFF80FF80FF80FF80;
  constexpr std::size_t kWords = kUnits * sizeof(In) / 8;
  std::uint64_t words[kWords];
  std::memcpy(words, in, sizeof words);
  std::uint64_t high = 0;
  for (const std::uint64_t word : words) high |= word;
  if ((high & kHighBits) == 0) return kUnits;
  for (std::size_t i = 0; i < kWords; ++i) {
    high = words[i] & kHighBits;
    if (high == 0) continue;
    const int zeros = std::endian::native == std::endian::little ? std::countr_zero(high) : std::countl_zero(high);
    return (i * 8 + static_cast<std::size_t>(zeros) / 8) / sizeof(In);
  }
  return 0;
}

/// Copies units below 0x80 until one of the texts ends or another unit stands there.
template <class In, class Out>
void copyAsciiRun(const In*& in, const In* in_end, Out*& out, const Out* out_end) {
  constexpr std::ptrdiff_t kShort = 8;
  constexpr std::ptrdiff_t kLong = 32;
  while (in_end - in >= kShort && out_end - out >= kShort) {
    const std::size_t n = countAscii<kShort>(in);
    if (n == kShort) {
      copyUnits<kShort>(in, out);
    } else if (n >= 4) {  // two copies that overlap
      copyUnits<4>(in, out);
      copyUnits<4>(in + n - 4, out + n - 4);
    } else {
      for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<Out>(in[i]);
    }
    in += n;
    out += n;
    if (n < kShort) return;
    while (in_end - in >= kLong && out_end - out >= kLong && countAscii<kLong>(in) == kLong) {
      copyUnits<kLong>(in, out);
      in += kLong;
      out += kLong;
    }
  }
  while (in != in_end && out != out_end && *in < 0x80) *out++ = static_cast<Out>(*in++);
}

template <class Target, class Out>
int putFarFromEnd(Target& target, char32_t c, Out* out) {
  if constexpr (requires { target.putLoose(c, out); }) return target.putLoose(c, out);
  return target.put(c, out, out + kTargetMargin);
}

/// Converts blocks of units that each are a character by themselves.
template <class Source, class Target, class In, class Out>
void convertBlocks(const Source& source, Target& target, const In*& in, const In* in_end, Out*& out, Out* out_end) {
  constexpr std::ptrdiff_t kBlock = 8;
  while (in_end - in >= kSourceMargin && out_end - out >= kTargetMargin) {
    if constexpr (Source::kAscii && Target::kAscii) {
      if (countAscii<kBlock>(in) == kBlock) {
        copyAsciiRun(in, in_end, out, out_end);
        continue;
      }
    }
    if constexpr (requires { target.putForm(source.forms()[0], out); }) {
      if (source.forms()) {
        for (std::ptrdiff_t i = 0; i < kBlock; ++i) out += target.putForm(source.forms()[in[i]], out);
        in += kBlock;
        continue;
      }
    }
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
      out += putFarFromEnd(target, source.next(in + i, in + i + 1).character, out);
    }
    in += kBlock;
  }
}

/// Converts characters of several units, as many at a stretch as must fit.
template <class Source, class Target, class In, class Out>
void convertSteps(Source& source, Target& target, const In*& src, const In* in_end, Out*& dst, Out* out_end) {
  const In* in = src;
  Out* out = dst;
  while (in_end - in >= kSourceMargin && out_end - out >= kTargetMargin) {
    const std::ptrdiff_t in_steps = (in_end - in - kSourceMargin) / kMostUnits;
    const std::ptrdiff_t out_steps = (out_end - out - kTargetMargin) / kMostUnits;
    for (std::ptrdiff_t steps = in_steps < out_steps ? in_steps : out_steps; steps >= 0; --steps) {
      if constexpr (Source::kAscii && Target::kAscii) {
        if (*in < 0x80) {
          if (in[1] < 0x80) break;
          *out++ = static_cast<Out>(*in++);
          continue;
        }
      }
      if constexpr (requires { target.putForm(source.pairForm(in), out); }) {
        if (const std::uint32_t form = source.pairForm(in)) {
          out += target.putForm(form, out);
          in += 2;
          continue;
        }
      }
      const Step step = source.next(in, in + kSourceMargin);
      if (step.character != kNoCharacter) out += putFarFromEnd(target, step.character, out);
      in += step.length;
    }
    if constexpr (Source::kAscii && Target::kAscii) copyAsciiRun(in, in_end, out, out_end);
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
    convertBlocks(source, target, in, in_end, out, out_end);
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

/// The UTF-8 of a character below U+10000 in one word: up to three bytes, the first in the lowest place, and in the
/// highest byte how many they are.
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
    if (end - p >= 3) {  // the bulk of all text: three bytes, then two
      const std::uint32_t bytes = lead << 16 | static_cast<std::uint32_t>(p[1]) << 8 | p[2];
      const char32_t three = (bytes >> 4 & 0xF000) | (bytes >> 2 & 0xFC0) | (bytes & 0x3F);
      if ((bytes & 0xF0C0C0) == 0xE08080 && three >= 0x800 && three - 0xD800 >= 0x800) return {three, 3};
      const char32_t two = (bytes >> 10 & 0x7C0) | (bytes >> 8 & 0x3F);
      if ((bytes & 0xE0C000) == 0xC08000 && two >= 0x80) return {two, 2};
    }
    return nextWithCare(p, end);
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

  int putForm(std::uint32_t form, unsigned char* p) const {
    storeLittleEndian(form, p);
    return static_cast<int>(form >> 24);
  }

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
