#include "foundation/visible.h"

#include "foundation/utf8.h"

namespace quillon {
namespace {

bool isC1(unsigned char byte) { return byte >= 0x80 && byte <= 0x9F; }

bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return (first < 0x20 && first != '\t') || first == 0x7F;
  return first == 0xC2 && isC1(static_cast<unsigned char>(character[1]));
}

void showByte(std::string& shown, unsigned char byte) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  shown += "\\x";
  shown += kDigits[byte >> 4];
  shown += kDigits[byte & 15];
}

}  // namespace

std::string visible(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const Utf8Sequence sequence = firstSequence(text);
    const std::string_view bytes = text.substr(0, sequence.length);
    text.remove_prefix(sequence.length);
    if (sequence.wellFormed && !isControl(bytes)) {
      shown += bytes;
      continue;
    }
    for (char c : bytes) {
      const auto byte = static_cast<unsigned char>(c);
      sequence.wellFormed || isC1(byte) ? showByte(shown, byte) : shown.push_back(c);
    }
  }
  return shown;
}

}  // namespace quillon
