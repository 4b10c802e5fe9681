#include "src/adapters/logfile/common/shared_text.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quillon {
namespace {

/// Of the first and the last bytes and the length, which tell most texts of a format file apart. Taking the high bits
/// of a product is Knuth's multiplicative hashing (The Art of Computer Programming, 6.4).
std::size_t placeOf(std::string_view text, std::size_t places) {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  const auto ends = [&](auto piece) {
    if (text.size() < sizeof piece) return false;
    std::memcpy(&piece, text.data(), sizeof piece);
    first = piece;
    std::memcpy(&piece, text.data() + text.size() - sizeof piece, sizeof piece);
    last = piece;
    return true;
  };
  if (!ends(std::uint64_t()) && !ends(std::uint32_t()) && !ends(std::uint16_t())) ends(std::uint8_t());
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
  const std::uint64_t product = ((first ^ text.size()) * kFactor ^ last) * kFactor;
  return static_cast<std::size_t>(product >> 32) % places;
}

}  // namespace

qlStrobj sharedText(std::string_view text) {
  if (!SharedTexts::current_) return qlStrobj::constant(text);
  auto& remembered = SharedTexts::current_->remembered_;
  qlStrobj& known = remembered[placeOf(text, remembered.size())];
  if (known.isNull() || known.view() != text) known = qlStrobj::constant(text);
  return known;
}

}  // namespace quillon
