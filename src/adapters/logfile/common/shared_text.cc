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
  if (text.size() >= sizeof first) {
    std::memcpy(&first, text.data(), sizeof first);
    std::memcpy(&last, text.data() + text.size() - sizeof last, sizeof last);
  } else {
    for (const char c : text) first = first << 8 | static_cast<unsigned char>(c);
  }
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
