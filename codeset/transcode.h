#ifndef QUILLON_CODESET_TRANSCODE_H_
#define QUILLON_CODESET_TRANSCODE_H_

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codeset/codeset.h"
#include "codeset/marks.h"

/// The one conversion loop of the converter family. A converter is a source, which takes one character off a text, and
/// a target, which adds one to a text; the loop keeps the contract of codeset/conv.h.
///
/// Both are made from the codeset. A source has
///   Unit                     unsigned char or char16_t;
///   kAscii                   whether a unit below 0x80 always is that ASCII character;
///   Step next(p, end)        the character at p, where p < end.
/// A target has
///   Unit, kAscii             likewise;
///   int put(c, p, end)       writes a character and returns its units; 0, and nothing written, when it does not fit;
///   void finish(p, end)      writes what a complete text still needs, and advances p.
///
/// That is all it takes: the careful path, one character at a time. Texts of bytes are converted in blocks of 64 where
/// the codeset has forms (codeset/forms.h). For that a source also has
///   forms(target)            where form() looks, null where the codeset has no forms;
///   Marks marks(block)       where characters begin in 64 bytes;
///   kUnits                   whether each byte is a character, whose form stands at its number;
/// and if not,
///   kShortest                bytes of the shortest character that is not ASCII;
///   form(forms, p)           the form of the character at p, 0 when next() has to be asked;
///   formOf<n>(forms, p)      the same where the marks say that it has n bytes, 2 or, in UTF-8, 3;
/// GB 18030, whose codes of four bytes the marks take for two pairs, also has
///   fourByteForm(forms, p)   the form of such a code, 0 for all other bytes;
/// and the target
///   int formBytes(form)      how many bytes of a form count.
/// A target without kAscii has
///   translation()            the byte of each ASCII character, of 256 entries.
/// A target of single bytes has
///   singles()                the byte of each character below U+0800.
/// A target with shifts has
///   shift(is_double, p)      writes the shift, if one is due, before a form of two bytes or of one; where to go on.
///
/// An example: "caf\u00e9 au lait" from UTF-8 to ISO 8859-1. The marks tell that only at byte 3 begins something else
/// than ASCII. Sixteen bytes are copied, of which three count; the form of C3 A9, which is E9, follows behind those;
/// and then sixteen from " au lait" on, of which eight count.
///
/// Cost: 20 to 40 instructions for each character beyond ASCII, and two for each byte. No branch depends on what single
/// characters are: where scripts change often the processor would guess it wrongly. This is no place for what looks at
/// more than one character, such as composition.
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

inline constexpr int kRun = 16;       ///< Bytes that are copied at a time, needed or not.
inline constexpr int kFormBytes = 4;  ///< That storeForm() writes, needed or not.

/// Writes the bytes of a form (codeset/forms.h): four, however many count.
inline void storeForm(std::uint32_t form, unsigned char* p) {
  if constexpr (std::endian::native == std::endian::big) form = __builtin_bswap32(form);
  std::memcpy(p, &form, sizeof form);
}

/// Up to kBlock bytes of a text, in a place where reading on behind them does no harm.
class Block {
 public:
  Block(const unsigned char* in, const unsigned char* in_end)
      : bytes_(in), size_(static_cast<int>(std::min<std::ptrdiff_t>(in_end - in, kBlock))) {
    if (in_end - in >= kBlock + kRun) return;
    std::memset(copy_, 0, sizeof copy_);
    std::memcpy(copy_, in, static_cast<std::size_t>(size_));
    bytes_ = copy_;
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  const unsigned char* bytes() const { return bytes_; }
  int size() const { return size_; }

 private:
  const unsigned char* bytes_;
  int size_;
  unsigned char copy_[kBlock + kRun];
};

/// Converts a text in blocks, until the careful path has to take a step or the room runs short.
template <class Source, class Target>
class BlockConverter {
 public:
  using Byte = unsigned char;

  BlockConverter(const Source& source, Target& target, const Byte* in_end, Byte* out_end)
      : source_(source), target_(target), forms_(source.forms(target)), in_end_(in_end), out_end_(out_end) {}

  void run(const Byte*& in, Byte*& out) {
    while (forms_ && in != in_end_ && out_end_ - out >= kSlack + kGrowth && convertBlock(in, out)) continue;
  }

 private:
  // Where the characters of a run begin.
  static constexpr BlockBits kEveryTwo = 0x5555555555555555;
  static constexpr BlockBits kEveryThree = 0x1249249249249249;
  static constexpr int kLongRun = 48;  // Bytes that are worth a block of their own where they are not all of it.

  static constexpr int kGrowth = 3;                 // Bytes that may come of one.
  static constexpr int kSlack = kRun + kFormBytes;  // That may be written behind what counts.

  // Where conversion stands. A value that the loops return: bytes that they write through a reference might be the
  // reference itself for all the compiler knows, which would then read it anew after each.
  struct Place {
    int in;  // Counted from the start of the block.
    Byte* out;
    bool asks;  // The careful path has to take the next step.
  };

  bool convertBlock(const Byte*& in, Byte*& out) {
    if constexpr (requires { Source::fourByteForm(forms_, in); }) {
      if (convertFourBytes(in, out)) return true;
    }
    const Block block(in, in_end_);
    const Marks marks = source_.marks(block.bytes());
    const std::ptrdiff_t fits = (out_end_ - out - kSlack) / kGrowth;
    int end = static_cast<int>(std::min<std::ptrdiff_t>(std::min(block.size(), marks.size), fits));
    BlockBits others = marks.others & lowBits(end);
    if (others != 0) {
      const int last = kBlock - 1 - std::countl_zero(others);
      if (last + lengthAt(marks, last) > end) {  // the next block, or the careful path, sees all of it
        end = last;
        others &= lowBits(last);
      }
    }
    const Place place = convertMarked(block.bytes(), marks, others, end, out);
    in += place.in;
    out = place.out;
    return !place.asks;
  }

  // For codes of four bytes with a blank or a digit between them here and there, as far as they reach. False when there
  // is none.
  bool convertFourBytes(const Byte*& in, Byte*& out) {
    constexpr int kFewAscii = 4;
    const std::uint32_t* const forms = forms_;
    const Byte* p = in;
    Byte* to = out;
    while (in_end_ - p > kFormBytes + kFewAscii && out_end_ - to >= kFormBytes + kFewAscii) {
      const std::uint32_t form = Source::fourByteForm(forms, p);
      if (form == 0) break;
      storeForm(form, to);
      to += Target::formBytes(form);
      p += 4;
      for (int i = 0; i < kFewAscii && *p < 0x80; ++i) *to++ = *p++;
    }
    const bool any = p != in;
    in = p;
    out = to;
    return any;
  }

  // Converts the first `end` bytes of a block, which are whole characters; `others` marks those that are not ASCII.
  Place convertMarked(const Byte* in, const Marks& marks, BlockBits others, int end, Byte* out) {
    const BlockBits all = marks.starts & lowBits(end);
    if constexpr (!Source::kUnits) {
      const BlockBits of_two = Source::kShortest == 2 ? ~marks.longer : marks.longer;
      const int twos = std::countr_zero((others ^ kEveryTwo) | (others & ~of_two));
      const int threes = std::countr_zero((others ^ kEveryThree) | (others & of_two));
      Place place = {0, out, false};
      if (twos >= std::min(end, kLongRun)) place = convertRun<2>(in, twos / 2, out);
      if (Source::kShortest == 2 && threes >= std::min(end, kLongRun)) place = convertRun<3>(in, threes / 3, out);
      if (place.in > 0) return place;
    }
    if constexpr (Source::kUnits) {
      // Where others stand side by side there are many of them, and nothing to look for.
      if (!Source::kAscii || (others & others >> 1) != 0) return convertUnits(in, end, out);
    } else {
      if constexpr (requires { target_.singles(); }) {
        const bool dense = (others & others >> Source::kShortest) != 0;
        if (dense && (marks.longer & all) == 0 && fitsTwoBytes(in)) return convertTwoBytes(in, all, end, out);
      }
      const BlockBits ascii = all ^ others;
      if ((ascii & ascii >> 1 & ascii >> 2) == 0) return convertAll(in, marks, end, out);
    }
    return convertOthers(in, marks, others, end, out);
  }

  // For characters of kBytes bytes, one behind the other, as many scripts write them: nothing has to be looked for.
  // Ends before the first without a form.
  template <int kBytes>
  Place convertRun(const Byte* in, int count, Byte* out) {
    const std::uint32_t* const forms = forms_;
    for (int i = 0; i < count; ++i) {
      const std::uint32_t form = Source::template formOf<kBytes>(forms, in + std::ptrdiff_t{kBytes} * i);
      if (form == 0) [[unlikely]]
        return {kBytes * i, out, false};
      out = putForm(form, out);
    }
    return {kBytes * count, out, false};
  }

  // For units of which each is a character.
  Place convertUnits(const Byte* in, int end, Byte* out) const {
    const std::uint32_t* const forms = forms_;
    for (int i = 0; i < end; ++i) {
      const std::uint32_t form = forms[in[i]];
      storeForm(form, out);
      out += Target::formBytes(form);
    }
    return {end, out, end == 0};
  }

  // For ASCII and characters of two bytes in UTF-8, where all have one byte in the target. What begins at each place,
  // be it a character or not, is worked out for all places together.
  Place convertTwoBytes(const Byte* in, BlockBits all, int end, Byte* out) {
    std::uint16_t characters[kBlock];
    for (int i = 0; i < kBlock; ++i) {
      const int pair = (in[i] & 0x1F) << 6 | (in[i + 1] & 0x3F);
      characters[i] = static_cast<std::uint16_t>(in[i] < 0xC0 ? in[i] : pair);
    }
    const Byte* const singles = target_.singles();
    for (; all != 0; all &= all - 1) *out++ = singles[characters[std::countr_zero(all)]];
    return {end, out, end == 0};
  }

  static bool fitsTwoBytes(const Byte* in) {
    Byte overlong = 0;
    for (int i = 0; i < kBlock; ++i) overlong = static_cast<Byte>(overlong | ((in[i] & 0xFE) == 0xC0));
    return overlong == 0;
  }

  // For blocks with little ASCII: all characters alike.
  Place convertAll(const Byte* in, const Marks& marks, int end, Byte* out) {
    const std::uint32_t* const forms = forms_;
    BlockBits all = marks.starts & lowBits(end);
    while (all != 0) {
      const int i = std::countr_zero(all);
      const std::uint32_t form = Source::form(forms, in + i);
      if (form != 0) [[likely]] {
        out = putForm(form, out);
        all &= all - 1;
      } else {
        const Place next = convertOne(in, marks, i, end, out);
        if (next.asks) return next;
        out = next.out;
        all &= ~lowBits(next.in);
      }
    }
    return {end, out, end == 0};
  }

  // For blocks with more of it: the others, and what lies between them.
  Place convertOthers(const Byte* in, const Marks& marks, BlockBits others, int end, Byte* out) {
    const std::uint32_t* const forms = forms_;
    int done = 0;
    while (others != 0) {
      const int i = std::countr_zero(others);
      out = putAscii(in + done, i - done, out);
      const std::uint32_t form = Source::form(forms, in + i);
      if (form != 0) [[likely]] {
        out = putForm(form, out);
        done = i + lengthAt(marks, i);
        others &= others - 1;
      } else {
        const Place next = convertOne(in, marks, i, end, out);
        if (next.asks) return next;
        out = next.out;
        done = next.in;
        others &= ~lowBits(done);
      }
    }
    return {end, putAscii(in + done, end - done, out), end == 0};
  }

  // A character without a form. Where it ends otherwise than the marks say, these hold no longer. Inlined, it would
  // take registers from the loops.
  [[gnu::noinline]] Place convertOne(const Byte* in, const Marks& marks, int i, int end, Byte* out) {
    const Step step = source_.next(in + i, in + end);
    const int next = i + step.length;
    if (step.length == 0 || (next < end && (marks.starts >> next & 1) == 0)) return {i, out, true};
    return {next, out + target_.put(step.character, out, out_end_), false};
  }

  Byte* putForm(std::uint32_t form, Byte* out) {
    if constexpr (requires { target_.shift(true, out); }) out = target_.shift(form > 0xFF, out);
    storeForm(form, out);
    return out + Target::formBytes(form);
  }

  Byte* putAscii(const Byte* in, int count, Byte* out) {
    if constexpr (requires { target_.shift(false, out); }) {
      if (count > 0) out = target_.shift(false, out);
    }
    if constexpr (Target::kAscii) {
      std::memcpy(out, in, kRun);
      for (int i = kRun; i < count; i += kRun) std::memcpy(out + i, in + i, kRun);
    } else {
      const Byte* const translation = target_.translation();
      for (int i = 0; i < count; i += kRun / 2) {
        for (int j = i; j < i + kRun / 2; ++j) out[j] = translation[in[j]];
      }
    }
    return out + count;
  }

  static int lengthAt(const Marks& marks, int i) { return Source::kShortest + static_cast<int>(marks.longer >> i & 1); }

  const Source& source_;
  Target& target_;
  const std::uint32_t* const forms_;
  const Byte* const in_end_;
  Byte* const out_end_;
};

/// Converts what the quick paths can, where there is one.
template <class Source, class Target, class In, class Out>
void convertAhead(Source& source, Target& target, const In*& in, const In* in_end, Out*& out, Out* out_end) {
  if constexpr (requires { source.forms(target); }) {
    BlockConverter(source, target, in_end, out_end).run(in, out);
  } else if constexpr (requires { source.convertAhead(target, in, in_end, out, out_end); }) {
    source.convertAhead(target, in, in_end, out, out_end);
  }
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
  while (in != in_end) {
    convertAhead(source, target, in, in_end, out, out_end);
    if (in == in_end) break;
    if (out == out_end) {
      code = 1;
      break;
    }
    if constexpr (Source::kAscii && Target::kAscii) {
      if (*in < 0x80) {
        do *out++ = static_cast<Out>(*in++);
        while (in != in_end && out != out_end && *in < 0x80);
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

/// A target whose texts need nothing at their end.
template <class UnitType>
struct PlainTarget {
  using Unit = UnitType;
  static constexpr bool kAscii = true;
  template <class DstChar>
  void finish(DstChar*& /*p*/, DstChar* /*end*/) const {}
};

}  // namespace quillon

#endif  // QUILLON_CODESET_TRANSCODE_H_
