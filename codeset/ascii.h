#ifndef QUILLON_CODESET_ASCII_H_
#define QUILLON_CODESET_ASCII_H_

#include "codeset/image.h"
#include "codeset/transcode.h"

/// Sources and targets of the codesets that contain ASCII.
namespace quillon {

class SingleByteSource {
 public:
  using Unit = unsigned char;
  static constexpr bool kAscii = true;

  explicit SingleByteSource(const nxl_cs& cs) : single_(cs, kSingleOffset, 256) {}

  Step next(const unsigned char* p, const unsigned char* /*end*/) const {
    const std::uint16_t c = single_[*p];
    return {c == kUnmappable ? kSubstitute : c, 1};
  }

 private:
  Entries single_;
};

}  // namespace quillon

#endif  // QUILLON_CODESET_ASCII_H_
