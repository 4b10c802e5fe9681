#include "foundation/utf8.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quillon {
namespace {

constexpr std::string_view kReplacement = "\uFFFD";

/// What a lead byte of 0x80 or above asks for.
struct Lead {
  int following;       ///< Continuation bytes; 0 for a byte that begins no character.
  unsigned char low;   ///< The first of them is between these two, which keeps out surrogates, numbers above 0x10FFFF
  unsigned char high;  ///< and forms that are longer than need be; all others are between 0x80 and 0xBF.
};

/// Table 3-7 of the Unicode Standard.
Lead lead(unsigned char byte) {
  if (byte < 0xC2 || byte > 0xF4) return {0, 0, 0};
  if (byte < 0xE0) return {1, 0x80, 0xBF};
  if (byte == 0xE0) return {2, 0xA0, 0xBF};
  if (byte == 0xED) return {2, 0x80, 0x9F};
  if (byte < 0xF0) return {2, 0x80, 0xBF};
  if (byte == 0xF0) return {3, 0x90, 0xBF};
  if (byte == 0xF4) return {3, 0x80, 0x8F};
  return {3, 0x80, 0xBF};
}

/// The bytes at the start of `text` that are well-formed, whole characters.
std::size_t wellFormedLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size()) {
    std::uint64_t block;
    if (text.size() - length >= sizeof block) {
      std::memcpy(&block, text.data() + length, sizeof block);
      if ((block & 0x8080808080808080) == 0) {
        length += sizeof block;
        continue;
      }
    }
    const Utf8Sequence sequence = firstSequence(text.substr(length));
    if (!sequence.wellFormed) break;
    length += sequence.length;
  }
  return length;
}

}  // namespace

Utf8Sequence firstSequence(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return {1, true};
  const Lead expected = lead(byte(0));
  const auto complete = static_cast<std::size_t>(expected.following) + 1;
  std::size_t length = 1;
  while (length < complete && length < text.size()) {
    const unsigned char low = length == 1 ? expected.low : 0x80;
    const unsigned char high = length == 1 ? expected.high : 0xBF;
    if (byte(length) < low || byte(length) > high) break;
    ++length;
  }
  return {length, expected.following > 0 && length == complete};
}

std::string_view repairUtf8(std::string_view text, std::string& room) {
  std::size_t good = wellFormedLength(text);
  if (good == text.size()) return text;
  room.clear();
  while (!text.empty()) {
    room += text.substr(0, good);
    text.remove_prefix(good);
    if (text.empty()) break;
    room += kReplacement;
    text.remove_prefix(firstSequence(text).length);
    good = wellFormedLength(text);
  }
  return room;
}

}  // namespace quillon
