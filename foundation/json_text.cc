#include "foundation/json_text.h"

#include <algorithm>
#include <cstddef>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "foundation/utf8.h"

namespace quillon {
namespace {

constexpr bool isPlain(char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; }

#if defined(__SSE2__)
/// The same of 16 bytes.
bool arePlain(const char* bytes) {
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  const auto is = [block](char c) { return _mm_cmpeq_epi8(block, _mm_set1_epi8(c)); };
  // Bytes of 0x80 and above are negative.
  const __m128i outside = _mm_or_si128(_mm_cmplt_epi8(block, _mm_set1_epi8(0x20)), is(0x7F));
  return _mm_movemask_epi8(_mm_or_si128(outside, _mm_or_si128(is('"'), is('\\')))) == 0;
}
#endif

void appendEscaped(std::string& json, unsigned code) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  constexpr std::string_view kShort = "\bb\tt\nn\ff\rr\"\"\\\\";
  for (std::size_t i = 0; i < kShort.size(); i += 2) {
    if (code == static_cast<unsigned>(kShort[i])) {
      (json += '\\') += kShort[i + 1];
      return;
    }
  }
  ((json += "\\u00") += kDigits[code >> 4]) += kDigits[code & 15];
}

void appendCharacter(std::string& json, std::string_view character) {
  const auto byte = [character](std::size_t i) { return static_cast<unsigned char>(character[i]); };
  if (character.size() == 1) {
    isPlain(character[0]) ? json.push_back(character[0]) : appendEscaped(json, byte(0));
  } else if (byte(0) == 0xC2 && byte(1) < 0xA0) {
    appendEscaped(json, byte(1));  // U+0080 to U+009F
  } else {
    json += character;
  }
}

}  // namespace

bool isPlainJson(std::string_view text) {
#if defined(__SSE2__)
  constexpr std::size_t kStride = 16;
  if (text.size() >= kStride) {
    const char* const last = text.data() + text.size() - kStride;
    for (const char* at = text.data(); at < last; at += kStride) {
      if (!arePlain(at)) return false;
    }
    return arePlain(last);
  }
#endif
  return std::all_of(text.begin(), text.end(), isPlain);
}

void appendJson(std::string& json, std::string_view text) {
  while (!text.empty()) {
    const auto plain = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
    json += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    const Utf8Sequence first = firstSequence(text);
    first.wellFormed ? appendCharacter(json, text.substr(0, first.length)) : void(json += "\uFFFD");
    text.remove_prefix(first.length);
  }
}

}  // namespace quillon
