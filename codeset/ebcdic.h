#ifndef QUILLON_CODESET_EBCDIC_H_
#define QUILLON_CODESET_EBCDIC_H_

#include <cstdint>

namespace quillon {

/// The characters that have the same code in every EBCDIC code page: controls, digits, Latin letters and the
/// punctuation of the ISO/IEC 646 invariant set. 0 stands for "not invariant", except at NUL itself.
struct InvariantSet {
  std::uint8_t to_ucs[256];    ///< EBCDIC to UCS-2, which is below 0x100 for all of them.
  std::uint8_t from_ucs[256];  ///< UCS-2 below 0x100 to EBCDIC.
};

const InvariantSet& invariantSet();

/// Takes the lower-case letters out, for the rest of the process: code page 930 has katakana in their place.
void useVariant930();

}  // namespace quillon

#endif  // QUILLON_CODESET_EBCDIC_H_
