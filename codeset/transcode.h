#ifndef QUILLON_CODESET_TRANSCODE_H_
#define QUILLON_CODESET_TRANSCODE_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codeset/codeset.h"

/// The one conversion loop of the converter family, and its UTF-8 and UCS-2 ends. A converter is a source, which takes
/// one character off a text, and a target, which adds one to a text; the loop keeps the contract of codeset/conv.h.
///
/// A source has
///   Unit                     unsigned char or char16_t;
///   kAscii                   whether a unit below 0x80 always is that ASCII character;
///   Step next(p, end)        the character at p, where p < end.
/// A target has
///   Unit, kAscii             likewise;
///   int put(c, p, end)       writes a character and returns its units; 0, and nothing written, when it does not fit;
///   void finish(&p, end)     writes what a complete text still needs.
namespace quillon {

inline constexpr char32_t kSubstitute = U'?';
inline constexpr char32_t kNoCharacter = 0xFFFFFFFF;  ///< Units were used up without making a character.

/// What a source found.
struct Step {
  char32_t character;
  int length;  ///< Units used, 0 when the source ends within the character.
};

/// The codeset that a caller means.
inline nxl_cs& resolve(nxl_cs* cs) { return cs ? *cs : *nxl_get_def_cs(); }

/// Copies units below 0x80 until one of the texts ends or another unit stands there.
template <class In, class Out>
void copyAsciiRun(const In*& in, const In* in_end, Out*& out, Out* out_end) {
  if constexpr (sizeof(In) == 1 && sizeof(Out) == 1) {
    while (in_end - in >= 32 && out_end - out >= 32) {
      std::uint64_t w[4];
      std::memcpy(w, in, sizeof w);
      if ((w[0] | w[1] | w[2] | w[3]) & 0x8080808080808080) break;
      std::memcpy(out, w, sizeof w);
      in += 32;
      out += 32;
    }
  }
  while (in != in_end && out != out_end && *in < 0x80) *out++ = static_cast<Out>(*in++);
}

template <class Source, class Target, class SrcChar, class DstChar>
int transcode(nxl_cs& cs, Source source, Target target, const SrcChar** src, const SrcChar* src_end, DstChar** dst,
              DstChar* dst_end) {
  using In = typename Source::Unit;
  using Out = typename Target::Unit;
  auto* out = dst ? reinterpret_cast<Out*>(*dst) : nullptr;
  auto* const out_end = reinterpret_cast<Out*>(dst_end);
  if (!src || !*src) {
    if (out) {
      target.finish(out, out_end);
      *dst = reinterpret_cast<DstChar*>(out);
    }
    cs.state1 = 0;
    return 0;
  }
  const auto* in = reinterpret_cast<const In*>(*src);
  const auto* const in_end = reinterpret_cast<const In*>(src_end);
  int code = 0;
  while (true) {
    if constexpr (Source::kAscii && Target::kAscii) copyAsciiRun(in, in_end, out, out_end);
    if (in == in_end) break;
    if (out == out_end) {
      code = 1;
      break;
    }
    const Step step = source.next(in, in_end);
    if (step.length == 0) {
      code = 2;
      break;
    }
    if (step.character != kNoCharacter) {
      const int written = target.put(step.character, out, out_end);
      if (written == 0) {
        code = 1;
        break;
      }
      out += written;
    }
    in += step.length;
  }
  *src = reinterpret_cast<const SrcChar*>(in);
  *dst = reinterpret_cast<DstChar*>(out);
  return code;
}

/// What most targets need at the end of a text: nothing.
template <class UnitType>
struct PlainTarget {
  using Unit = UnitType;
  void finish(Unit*& /*p*/, Unit* /*end*/) {}
};

class Utf8Target : public PlainTarget<unsigned char> {
 public:
  static constexpr bool kAscii = true;

  int put(char32_t c, unsigned char* p, const unsigned char* end) const {
    const std::ptrdiff_t room = end - p;
    if (c < 0x80) {
      if (room < 1) return 0;
      p[0] = static_cast<unsigned char>(c);
      return 1;
    }
    if (c < 0x800) {
      if (room < 2) return 0;
      p[0] = static_cast<unsigned char>(0xC0 | c >> 6);
      p[1] = trail(c);
      return 2;
    }
    if (c < 0x10000) {
      if (room < 3) return 0;
      p[0] = static_cast<unsigned char>(0xE0 | c >> 12);
      p[1] = trail(c >> 6);
      p[2] = trail(c);
      return 3;
    }
    if (room < 4) return 0;
    p[0] = static_cast<unsigned char>(0xF0 | c >> 18);
    p[1] = trail(c >> 12);
    p[2] = trail(c >> 6);
    p[3] = trail(c);
    return 4;
  }

 private:
  static unsigned char trail(char32_t c) { return static_cast<unsigned char>(0x80 | (c & 0x3F)); }
};

}  // namespace quillon

#endif  // QUILLON_CODESET_TRANSCODE_H_
