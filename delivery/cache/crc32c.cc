#include "delivery/cache/crc32c.h"

#include <array>
#include <cstddef>
#include <cstring>

namespace quillon::delivery {
namespace {

constexpr std::uint32_t kPolynomial = 0x82F63B78;  // bits in the order of the wire, the lowest first

constexpr std::array<std::uint32_t, 256> makeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t rest = byte;
    for (int bit = 0; bit < 8; ++bit) rest = (rest >> 1) ^ ((rest & 1) != 0 ? kPolynomial : 0);
    table[byte] = rest;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kTable = makeTable();

#ifdef __x86_64__
[[gnu::target("sse4.2")]] std::uint32_t crc32cByInstruction(std::string_view bytes, std::uint32_t before) {
  std::uint64_t rest = ~before;
  const char* at = bytes.data();
  std::size_t left = bytes.size();
  for (; left >= sizeof(std::uint64_t); at += sizeof(std::uint64_t), left -= sizeof(std::uint64_t)) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    rest = __builtin_ia32_crc32di(rest, word);
  }
  auto last = static_cast<std::uint32_t>(rest);
  if (left >= sizeof(std::uint32_t)) {
    std::uint32_t word;
    std::memcpy(&word, at, sizeof word);
    last = __builtin_ia32_crc32si(last, word);
    at += sizeof word;
    left -= sizeof word;
  }
  for (; left > 0; ++at, --left) last = __builtin_ia32_crc32qi(last, static_cast<unsigned char>(*at));
  return ~last;
}

const bool kHasInstruction = [] {
  __builtin_cpu_init();
  return __builtin_cpu_supports("sse4.2") != 0;
}();
#endif

}  // namespace

std::uint32_t crc32cByTable(std::string_view bytes, std::uint32_t before) {
  std::uint32_t rest = ~before;
  for (const char c : bytes) rest = (rest >> 8) ^ kTable[(rest ^ static_cast<unsigned char>(c)) & 0xFF];
  return ~rest;
}

std::uint32_t crc32c(std::string_view bytes, std::uint32_t before) {
#ifdef __x86_64__
  if (kHasInstruction) return crc32cByInstruction(bytes, before);
#endif
  return crc32cByTable(bytes, before);
}

}  // namespace quillon::delivery
