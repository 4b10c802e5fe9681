#ifndef QUILLON_CODESET_TEXT_H_
#define QUILLON_CODESET_TEXT_H_

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>

#include "codeset/codeset.h"

/// Readers and writers of text, character by character: one pair for text in a codeset and one for wide text, alike, so
/// that every helper of codeset/uls.h is written once for both (codeset/text_helpers.h).
///
/// A reader has
///   Unit, Character           char or wchar_t; what next() finds;
///   bool next(Character& c)   the next character; false at the end;
///   int offset()              where that is, in units from the start of the text.
/// A writer has
///   bool put(c)               adds a character as it was read; false, and nothing added, when it does not fit;
///   bool put(codes, count, known)  adds characters by number, all or none; `*known` is whether it has them all;
///   int finish()              completes the text; the units in the target.
namespace quillon {

/// The number of a character, or kStray and more for a piece of text that is none: the higher part keeps what it is, so
/// that two pieces are equal when their units are.
using Code = std::uint64_t;
inline constexpr Code kStray = Code{1} << 32;

/// Room enough for any text and a terminator.
inline constexpr int kNoLimit = INT_MAX - 1;

/// A text as callers give it.
template <class Unit>
struct Text {
  Text(const Unit* text, int len) : begin(text), terminated(len < 0) {
    static constexpr Unit kEmpty[1] = {};
    if (!text) begin = kEmpty;
    end = begin + (len >= 0 && text ? static_cast<std::size_t>(len) : std::char_traits<Unit>::length(begin));
  }

  int size() const { return static_cast<int>(end - begin); }

  const Unit* begin;
  const Unit* end;
  bool terminated;
};

/// Reads text in a codeset.
class MbReader {
 public:
  using Unit = char;

  struct Character {
    Code code = 0;
    const char* bytes = nullptr;  ///< Without shifts.
    int size = 0;
    bool shifted = false;  ///< Double-byte text in mixed EBCDIC.
    bool wide = false;     ///< Takes several bytes in a codeset where those characters are as wide as ideographs.
  };

  /// Reads from `at` on, a place between characters that is not beyond the end; in mixed EBCDIC it gets there from the
  /// start.
  MbReader(const nxl_cs& cs, Text<char> text, int at = 0);

  bool next(Character& c);

  /// Behind the characters read so far, and behind the shift-in that belongs to the last one.
  int offset() const { return static_cast<int>(at_ - begin_); }

  /// Whether what follows is double-byte text.
  bool shifted() const { return state_.state1 != 0; }

 private:
  void skipShifts(bool in_only);

  nxl_cs state_;  ///< With the shift state at `at_`; only read but for that.
  const char* begin_;
  const char* at_;
  const char* end_;
};

/// A place between characters, surely, at or before `at` - 1, where 0 < `at`.
int placeBefore(const nxl_cs& cs, const char* text, int at);

/// Writes text in a codeset into `room` bytes at `dst`, or counts what that would be where `dst` is null.
class MbWriter {
 public:
  using Character = MbReader::Character;

  MbWriter(const nxl_cs& cs, char* dst, int room) : cs_(cs), dst_(dst), room_(dst ? room : kNoLimit) {}

  /// Goes on behind what stands in the target.
  void resume(int used, bool shifted) {
    used_ = used;
    shifted_ = shifted;
  }

  bool put(const Character& c);

  bool put(const std::uint32_t* codes, std::size_t count, bool* known);

  int finish();

 private:
  const nxl_cs& cs_;
  char* dst_;
  int room_;
  int used_ = 0;
  bool shifted_ = false;
};

/// Reads wide text.
class WideReader {
 public:
  using Unit = wchar_t;

  struct Character {
    Code code = 0;
    wchar_t unit = 0;
    static constexpr bool wide = false;
  };

  explicit WideReader(Text<wchar_t> text) : text_(text), at_(text.begin) {}

  bool next(Character& c) {
    if (at_ == text_.end) return false;
    const auto number = static_cast<std::uint32_t>(*at_);  // NOLINT(bugprone-signed-char-misuse): it has 32 bits
    const bool stray = number > 0x10FFFF || (number >= 0xD800 && number <= 0xDFFF);
    c = {stray ? kStray + number : number, *at_++};
    return true;
  }

  int offset() const { return static_cast<int>(at_ - text_.begin); }

 private:
  Text<wchar_t> text_;
  const wchar_t* at_;
};

/// Writes wide text.
class WideWriter {
 public:
  using Character = WideReader::Character;

  WideWriter(wchar_t* dst, int room) : dst_(dst), room_(dst ? room : kNoLimit) {}

  void resume(int used) { used_ = used; }

  bool put(const Character& c) {
    if (used_ == room_) return false;
    if (dst_) dst_[used_] = c.unit;
    ++used_;
    return true;
  }

  bool put(const std::uint32_t* codes, std::size_t count, bool* known) {
    *known = true;
    if (static_cast<std::size_t>(room_ - used_) < count) return false;
    for (std::size_t i = 0; i < count; ++i) put({codes[i], static_cast<wchar_t>(codes[i])});
    return true;
  }

  int finish() const { return used_; }

 private:
  wchar_t* dst_;
  int room_;
  int used_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_CODESET_TEXT_H_
