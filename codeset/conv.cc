#include "codeset/conv.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>

#include "codeset/transcode.h"

using quillon::resolve;

namespace {

struct Family {
  std::uint16_t kind;
  NxlToUtf8* to_utf8;
  NxlFromUtf8* from_utf8;
  NxlToUcs2* to_ucs2;
  NxlFromUcs2* from_ucs2;
};

constexpr Family kFamilies[] = {
    {kSingleByteKind, ascii_sbcs_to_utf8_r, ascii_sbcs_from_utf8_r, ascii_sbcs_to_ucs2_r, ascii_sbcs_from_ucs2_r},
    {kDoubleByteKind, ascii_dbcs_to_utf8_r, ascii_dbcs_from_utf8_r, ascii_dbcs_to_ucs2_r, ascii_dbcs_from_ucs2_r},
    {kMultiByteKind, ascii_mbcs_to_utf8_r, ascii_mbcs_from_utf8_r, ascii_mbcs_to_ucs2_r, ascii_mbcs_from_ucs2_r},
    {kMixedEbcdicKind, ebcdic_dbcs_to_utf8_r, ebcdic_dbcs_from_utf8_r, ebcdic_dbcs_to_ucs2_r, ebcdic_dbcs_from_ucs2_r},
    {kUtf8Kind, utf8_to_utf8_r, utf8_to_utf8_r, utf8_to_ucs2_r, utf8_from_ucs2_r},
    {kEbcdicKind, ebcdic_sbcs_to_utf8_r, ebcdic_sbcs_from_utf8_r, ebcdic_sbcs_to_ucs2_r, ebcdic_sbcs_from_ucs2_r},
    // Text in the internal set has been converted where it came in, so that towards UTF-8 it passes through.
    {kInternal37Kind, os_to_utf8_r, ebcdic_sbcs_from_utf8_r, ebcdic_sbcs_to_ucs2_r, ebcdic_sbcs_from_ucs2_r},
    {kGb18030Kind, ascii_gb18030_to_utf8_r, ascii_gb18030_from_utf8_r, ascii_gb18030_to_ucs2_r,
     ascii_gb18030_from_ucs2_r},
};
constexpr Family kPassThrough = {kPassThroughKind, os_to_utf8_r, os_from_utf8_r, os_to_ucs2_r, os_from_ucs2_r};

const Family& familyOf(const nxl_cs& cs) {
  for (const Family& family : kFamilies) {
    if (family.kind == cs.kind) return family;
  }
  return kPassThrough;
}

template <class Src, class Dst>
using Converter = int(nxl_cs*, const Src**, const Src*, Dst**, Dst*);

// The converter contract, with counts in place of ends; a count below 0 is 0.
template <class Src, class Dst>
int convertPiece(nxl_cs& cs, Converter<Src, Dst>* Family::*direction, const Src** src, int* src_left, Dst** dst,
                 int* dst_left) {
  Converter<Src, Dst>* const converter = familyOf(cs).*direction;
  const Src* const src_end = src && *src ? *src + std::max(*src_left, 0) : nullptr;
  Dst* const dst_end = dst && *dst ? *dst + std::max(*dst_left, 0) : nullptr;
  const int code = converter(&cs, src, src_end, dst, dst_end);
  if (src_end) *src_left = static_cast<int>(src_end - *src);
  if (dst_end) *dst_left = static_cast<int>(dst_end - *dst);
  return code;
}

template <class Src, class Dst>
int convertWhole(nxl_cs* cs, Converter<Src, Dst>* Family::*direction, const Src* src, int src_len, Dst* dst,
                 int dst_len) {
  if (dst_len <= 0) return 0;
  nxl_cs copy = resolve(cs);
  const bool terminate = src_len < 0;
  if (terminate) {
    const std::size_t length = src ? std::char_traits<Src>::length(src) : 0;
    src_len = static_cast<int>(std::min<std::size_t>(length, INT_MAX));
  }
  int room = terminate ? dst_len - 1 : dst_len;
  Dst* end = dst;
  if (src) convertPiece(copy, direction, &src, &src_len, &end, &room);
  src = nullptr;
  convertPiece(copy, direction, &src, &src_len, &end, &room);
  if (terminate) *end++ = 0;
  return static_cast<int>(end - dst);
}

// Converts into a new buffer of `growth` bytes for each byte of the source and one more.
char* convertAlloc(nxl_cs* cs, NxlToUtf8* Family::*direction, const char* src, int src_len, int growth, int* out_len) {
  *out_len = 0;
  if (src_len < 0 || src_len > (INT_MAX - 1) / growth) return nullptr;
  const int size = growth * src_len + 1;
  auto* buffer = static_cast<char*>(std::malloc(static_cast<std::size_t>(size)));
  if (buffer) *out_len = convertWhole(cs, direction, src, src_len, buffer, size);
  return buffer;
}

}  // namespace

int nxl_to_utf8(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len) {
  return convertWhole(cs, &Family::to_utf8, src, src_len, dst, dst_len);
}

int nxl_from_utf8(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len) {
  return convertWhole(cs, &Family::from_utf8, src, src_len, dst, dst_len);
}

int nxl_to_ucs2(nxl_cs* cs, const char* src, int src_len, char16_t* dst, int dst_len) {
  return convertWhole(cs, &Family::to_ucs2, src, src_len, dst, dst_len);
}

int nxl_from_ucs2(nxl_cs* cs, const char16_t* src, int src_len, char* dst, int dst_len) {
  return convertWhole(cs, &Family::from_ucs2, src, src_len, dst, dst_len);
}

int nxl_to_utf8_r(nxl_cs* cs, const char** src, int* src_left, char** dst, int* dst_left) {
  return convertPiece(resolve(cs), &Family::to_utf8, src, src_left, dst, dst_left);
}

int nxl_from_utf8_r(nxl_cs* cs, const char** src, int* src_left, char** dst, int* dst_left) {
  return convertPiece(resolve(cs), &Family::from_utf8, src, src_left, dst, dst_left);
}

int nxl_to_ucs2_r(nxl_cs* cs, const char** src, int* src_left, char16_t** dst, int* dst_left) {
  return convertPiece(resolve(cs), &Family::to_ucs2, src, src_left, dst, dst_left);
}

int nxl_from_ucs2_r(nxl_cs* cs, const char16_t** src, int* src_left, char** dst, int* dst_left) {
  return convertPiece(resolve(cs), &Family::from_ucs2, src, src_left, dst, dst_left);
}

char* nxl_tou_alloc(nxl_cs* cs, const char* src, int src_len, int* out_len) {
  return convertAlloc(cs, &Family::to_utf8, src, src_len, 3, out_len);
}

char* nxl_fromu_alloc(nxl_cs* cs, const char* src, int src_len, int* out_len) {
  return convertAlloc(cs, &Family::from_utf8, src, src_len, 2, out_len);
}

void nxl_free(void* p) { std::free(p); }
