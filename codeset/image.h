#ifndef QUILLON_CODESET_IMAGE_H_
#define QUILLON_CODESET_IMAGE_H_

#include <cstddef>
#include <cstdint>

#include "codeset/codeset.h"

/// Reading the image of a table file; doc/codeset-tables.md is the layout in words. Numbers are little-endian.
namespace quillon {

inline constexpr std::size_t kRowsOffset = 0;   ///< 32 bits: where the rows of two-byte characters begin.
inline constexpr std::size_t kPagesOffset = 4;  ///< 32 bits: where the pages from UCS-2 begin.
inline constexpr std::size_t kMagicOffset = 8;  ///< "ucv".
inline constexpr std::size_t kNameOffset = 12;  ///< 36 bytes: the charset's name, NUL-padded.
inline constexpr std::size_t kNameBytes = 36;
inline constexpr std::size_t kKindOffset = 48;
inline constexpr std::size_t kFamilyOffset = 50;
inline constexpr std::size_t kParamBOffset = 56;  ///< Version of the layout, 1.
inline constexpr std::size_t kParamAOffset = 62;  ///< Bytes of the longest character.
inline constexpr std::size_t kHeaderBytesOffset = 64;
inline constexpr std::size_t kFourByteOffset = 64;    ///< 32 bits: where the four-byte characters begin.
inline constexpr std::size_t kFourByteCount = 68;     ///< 32 bits: how many there are.
inline constexpr std::size_t kSingleOffset = 80;      ///< 256 entries: a single byte to UCS-2.
inline constexpr std::size_t kPageIndexOffset = 592;  ///< 256 entries: the page of each high byte of UCS-2, 0 none.
inline constexpr std::size_t kMinTableBytes = 1760;   ///< A shorter file is a redirection.

inline constexpr std::uint16_t kUnmappable = 0xFFFF;

inline std::uint16_t load16(const unsigned char* p) { return static_cast<std::uint16_t>(p[0] | p[1] << 8); }

inline std::uint32_t load32(const unsigned char* p) {
  return load16(p) | static_cast<std::uint32_t>(load16(p + 2)) << 16;
}

struct Header {
  std::uint16_t kind, family, param_a, param_b;
};

/// The header words of a table of at least kMinTableBytes.
inline Header readHeader(const unsigned char* table) {
  return {load16(table + kKindOffset), load16(table + kFamilyOffset), load16(table + kParamAOffset),
          load16(table + kParamBOffset)};
}

/// A run of 16-bit entries in a table. An entry that the table does not hold reads as unmappable.
class Entries {
 public:
  /// At most `limit` entries from `offset` on.
  Entries(const nxl_cs& cs, std::size_t offset, std::size_t limit)
      : base_(cs.table + (offset < cs.table_size ? offset : 0)) {
    const std::size_t held = offset < cs.table_size ? (cs.table_size - offset) / 2 : 0;
    count_ = held < limit ? held : limit;
  }

  std::uint16_t operator[](std::size_t i) const { return i < count_ ? load16(base_ + 2 * i) : kUnmappable; }

 private:
  const unsigned char* base_;
  std::size_t count_;
};

}  // namespace quillon

#endif  // QUILLON_CODESET_IMAGE_H_
