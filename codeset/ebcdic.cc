#include "codeset/ebcdic.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace quillon {
namespace {

constexpr std::uint8_t kControls[64] = {
    0x00, 0x01, 0x02, 0x03, 0x9C, 0x09, 0x86, 0x7F, 0x97, 0x8D, 0x8E, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F,  // 00
    0x10, 0x11, 0x12, 0x13, 0x9D, 0x85, 0x08, 0x87, 0x18, 0x19, 0x92, 0x8F, 0x1C, 0x1D, 0x1E, 0x1F,  // 10
    0x80, 0x81, 0x82, 0x83, 0x84, 0x0A, 0x17, 0x1B, 0x88, 0x89, 0x8A, 0x8B, 0x8C, 0x05, 0x06, 0x07,  // 20
    0x90, 0x91, 0x16, 0x93, 0x94, 0x95, 0x96, 0x04, 0x98, 0x99, 0x9A, 0x9B, 0x14, 0x15, 0x9E, 0x1A,  // 30
};

// Characters at consecutive codes.
struct Run {
  std::size_t code;
  std::string_view characters;
};
constexpr Run kRuns[] = {
    {0x40, " "},        {0x4B, ".<(+"},      {0x50, "&"},         {0x5C, "*);"},       {0x60, "-/"},
    {0x6B, ",%_>?"},    {0x7A, ":"},         {0x7D, "'=\""},      {0x81, "abcdefghi"}, {0x91, "jklmnopqr"},
    {0xA2, "stuvwxyz"}, {0xC1, "ABCDEFGHI"}, {0xD1, "JKLMNOPQR"}, {0xE2, "STUVWXYZ"},  {0xF0, "0123456789"},
};

constexpr InvariantSet makeInvariantSet() {
  InvariantSet set{};
  for (std::size_t code = 0; code < 64; ++code) set.to_ucs[code] = kControls[code];
  set.to_ucs[0xFF] = 0x9F;
  for (const Run& run : kRuns) {
    for (std::size_t i = 0; i < run.characters.size(); ++i) {
      set.to_ucs[run.code + i] = static_cast<std::uint8_t>(run.characters[i]);
    }
  }
  for (std::size_t code = 1; code < 256; ++code) {
    if (set.to_ucs[code]) set.from_ucs[set.to_ucs[code]] = static_cast<std::uint8_t>(code);
  }
  return set;
}

constinit InvariantSet invariant_set = makeInvariantSet();

}  // namespace

const InvariantSet& invariantSet() { return invariant_set; }

void useVariant930() {
  std::fill(invariant_set.to_ucs + 128, invariant_set.to_ucs + 176, std::uint8_t{0});
  std::fill(invariant_set.from_ucs + 96, invariant_set.from_ucs + 128, std::uint8_t{0});
}

}  // namespace quillon
