#ifndef QUILLON_CODESET_IMAGE_H_
#define QUILLON_CODESET_IMAGE_H_

#include <cstddef>
#include <cstdint>

#include "codeset/codeset.h"

/// The layout of a table file and the only code that reads one. doc/codeset-tables.md is the layout in words. Numbers
/// are little-endian, offsets count from the start of the file. Nothing here changes a table, so that threads may share
/// one.
namespace quillon {

inline constexpr std::size_t kRowsOffset = 0;     ///< 32 bits: where the rows begin.
inline constexpr std::size_t kPagesOffset = 4;    ///< 32 bits: where the pages begin.
inline constexpr std::size_t kMagicOffset = 8;    ///< "ucv".
inline constexpr std::size_t kNameOffset = 12;    ///< The charset's name, padded with NULs.
inline constexpr std::size_t kNameBytes = 36;     ///< Room for it.
inline constexpr std::size_t kKindOffset = 48;    ///< An NxlKind.
inline constexpr std::size_t kFamilyOffset = 50;  ///< kEbcdicFamily, or 0.
inline constexpr std::size_t kParamBOffset = 56;  ///< Version of the layout, 1.
inline constexpr std::size_t kParamAOffset = 62;  ///< Bytes of the longest character.
inline constexpr std::size_t kHeaderBytesOffset = 64;
inline constexpr std::size_t kFourByteOffset = 64;    ///< 32 bits, GB 18030: where the four-byte characters begin.
inline constexpr std::size_t kFourByteCount = 68;     ///< 32 bits: how many entries stand there.
inline constexpr std::size_t kSingleOffset = 80;      ///< 256 entries: single byte to UCS-2.
inline constexpr std::size_t kPageIndexOffset = 592;  ///< 256 entries: the page for each high byte of UCS-2, 0 none.
inline constexpr std::size_t kMinTableBytes = 1760;   ///< A shorter file is a redirection.

inline constexpr std::uint16_t kEbcdicFamily = 0x1100;
inline constexpr std::size_t kRowEntries = 256;    ///< Of 16 bits; row 0 is indexed by the first byte.
inline constexpr std::size_t kPageEntries = 256;   ///< Of 16 or 32 bits; the first page has number 1.
inline constexpr std::uint16_t kLeadRow = 0x8000;  ///< Set in an entry: its row is indexed by one more lead byte.

inline constexpr std::uint16_t kUnmappable = 0xFFFF;          ///< In every 16-bit entry.
inline constexpr std::uint32_t kUnmappableCode = 0xFFFFFFFF;  ///< In a 32-bit one.

inline std::uint32_t load16(const unsigned char* p) { return p[0] | static_cast<std::uint32_t>(p[1]) << 8; }

inline std::uint32_t load32(const unsigned char* p) { return load16(p) | load16(p + 2) << 16; }

/// A run of 16-bit (kBytes 2) or 32-bit (4) entries in a table. What the table does not hold reads as unmappable.
template <std::size_t kBytes>
class Entries {
 public:
  Entries() = default;

  /// At most `limit` entries from `offset` on.
  Entries(const nxl_cs& cs, std::size_t offset, std::size_t limit) {
    if (offset >= cs.table_size) return;
    base_ = cs.table + offset;
    const std::size_t held = (cs.table_size - offset) / kBytes;
    count_ = held < limit ? held : limit;
  }

  std::uint32_t operator[](std::size_t i) const {
    if (i >= count_) return kBytes == 2 ? kUnmappable : kUnmappableCode;
    return kBytes == 2 ? load16(base_ + 2 * i) : load32(base_ + 4 * i);
  }

 private:
  const unsigned char* base_ = nullptr;
  std::size_t count_ = 0;
};

/// The 256 entries at a place that every table has. Without a table all are unmappable.
class Column {
 public:
  Column(const nxl_cs& cs, std::size_t offset);
  std::uint32_t operator[](unsigned char i) const { return load16(base_ + 2 * std::size_t{i}); }

 private:
  const unsigned char* base_;
};

/// The 32-bit word of the header at `offset`; 0 without a table.
inline std::uint32_t headerWord(const nxl_cs& cs, std::size_t offset) {
  return cs.table_size >= kMinTableBytes ? load32(cs.table + offset) : 0;
}

/// From bytes to UCS-2.
inline Column singleBytes(const nxl_cs& cs) { return {cs, kSingleOffset}; }
inline Entries<2> rows(const nxl_cs& cs) { return {cs, headerWord(cs, kRowsOffset), kRowEntries << 15}; }
inline Entries<2> fourBytes(const nxl_cs& cs) {
  return {cs, headerWord(cs, kFourByteOffset), headerWord(cs, kFourByteCount)};
}

/// From UCS-2 to the bytes of a character, read as one big-endian number.
template <std::size_t kBytes>
class Pages {
 public:
  explicit Pages(const nxl_cs& cs)
      : index_(cs, kPageIndexOffset), pages_(cs, headerWord(cs, kPagesOffset), kPageEntries << 16) {}

  /// What an entry without a code holds.
  static constexpr std::uint32_t kNone = kBytes == 2 ? kUnmappable : kUnmappableCode;

  std::uint32_t code(char32_t c) const {
    if (c > 0xFFFF) return kNone;
    const std::size_t page = index_[static_cast<unsigned char>(c >> 8)];
    return pages_[(page - 1) * kPageEntries + (c & 0xFF)];  // page 0, which is none, lies behind every entry
  }

 private:
  Column index_;
  Entries<kBytes> pages_;
};

}  // namespace quillon

#endif  // QUILLON_CODESET_IMAGE_H_
