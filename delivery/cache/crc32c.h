#ifndef QUILLON_DELIVERY_CACHE_CRC32C_H_
#define QUILLON_DELIVERY_CACHE_CRC32C_H_

#include <cstdint>
#include <string_view>

namespace quillon::delivery {

/// The CRC-32C (Castagnoli) of `bytes`, as RFC 3720, appendix B.4 has it; behind a text whose CRC is `before`, that of
/// both texts together. By the processor's instruction where it has one.
[[nodiscard]] std::uint32_t crc32c(std::string_view bytes, std::uint32_t before = 0);

/// The same without the instruction, some ten times slower.
[[nodiscard]] std::uint32_t crc32cByTable(std::string_view bytes, std::uint32_t before = 0);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CACHE_CRC32C_H_
