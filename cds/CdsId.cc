#include "cds/CdsId.h"

// In here instead of the library's own code: the headers alone are needed, and no library at run time.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cinttypes>
#include <cstdio>

namespace quillon {

std::string CdsId::hex() const {
  char digits[33];
  std::snprintf(digits, sizeof digits, "%016" PRIx64 "%016" PRIx64, high, low);
  return digits;
}

std::array<std::uint8_t, 16> CdsId::bytes() const {
  std::array<std::uint8_t, 16> bytes{};
  for (std::size_t i = 0; i < 8; ++i) {
    bytes[i] = static_cast<std::uint8_t>(high >> (56 - 8 * i));
    bytes[8 + i] = static_cast<std::uint8_t>(low >> (56 - 8 * i));
  }
  return bytes;
}

CdsId cdsId(std::string_view text) {
  const XXH128_hash_t hash = XXH3_128bits(text.data(), text.size());
  return {hash.high64, hash.low64};
}

}  // namespace quillon
