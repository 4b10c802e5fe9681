#ifndef QUILLON_CDS_CDSID_H_
#define QUILLON_CDS_CDSID_H_

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace quillon {

/// Names a set of class definitions: the numbers of classes begin at 0 in each format file, so who sends attributes
/// says which set they are for. Equal texts have equal names on every machine.
///
/// XXH3 with 128 bits (xxhash.com). A server that took one set for another would make wrong events and notice nothing;
/// with 64 bits that is a matter of some thousand million sets, with 128 it does not happen. It tells apart what nobody
/// made to look alike: whoever may give a server its definitions is trusted.
struct CdsId {
  std::uint64_t high = 0;
  std::uint64_t low = 0;

  auto operator<=>(const CdsId&) const = default;

  /// 32 hexadecimal digits, lower case; the canonical form, as xxhsum writes it.
  std::string hex() const;
  /// The bytes that these digits stand for.
  std::array<std::uint8_t, 16> bytes() const;
};

/// Of the bytes of a file of class definitions, as they stand.
CdsId cdsId(std::string_view text);

}  // namespace quillon

#endif  // QUILLON_CDS_CDSID_H_
