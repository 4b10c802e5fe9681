#include "codeset/conv.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "codeset/init.h"
#include "codeset/transcode.h"

using quillon::resolve;

namespace {

NxlToUtf8* toUtf8Converter(std::uint16_t kind) {
  switch (kind) {
    case kSingleByteKind:
      return ascii_sbcs_to_utf8_r;
    case kUtf8Kind:
      return utf8_to_utf8_r;
    default:
      return os_to_utf8_r;  // INTERNAL37 too: its text is internal and was converted before
  }
}

// Bytes of the well-formed UTF-8 character at p, 0 when there is none.
std::ptrdiff_t characterLength(const unsigned char* p, const unsigned char* end) {
  const unsigned char lead = *p;
  const std::ptrdiff_t length = lead < 0x80   ? 1
                                : lead < 0xC2 ? 0
                                : lead < 0xE0 ? 2
                                : lead < 0xF0 ? 3
                                : lead < 0xF5 ? 4
                                              : 0;
  if (length == 0 || end - p < length) return 0;
  for (std::ptrdiff_t i = 1; i < length; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
  }
  // Overlong forms, surrogates and what lies beyond U+10FFFF show in the second byte.
  const bool ill = (lead == 0xE0 && p[1] < 0xA0) || (lead == 0xED && p[1] > 0x9F) || (lead == 0xF0 && p[1] < 0x90) ||
                   (lead == 0xF4 && p[1] > 0x8F);
  return ill ? 0 : length;
}

// How many of the first `count` bytes of a text can be cut off without splitting a well-formed character.
std::ptrdiff_t wholeCharacters(const char* text, const char* end, std::ptrdiff_t count) {
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  const auto* p_end = reinterpret_cast<const unsigned char*>(end);
  for (std::ptrdiff_t back = 1; back <= std::min<std::ptrdiff_t>(3, count); ++back) {
    const unsigned char* lead = p + (count - back);
    if ((*lead & 0xC0) == 0x80) continue;
    return characterLength(lead, p_end) > back ? count - back : count;
  }
  return count;
}

// Copies `count` bytes and tells whether the source is used up.
int copyBytes(const char** src, const char* src_end, char** dst, std::ptrdiff_t count) {
  if (count > 0) std::memcpy(*dst, *src, static_cast<std::size_t>(count));
  *src += count;
  *dst += count;
  return *src == src_end ? 0 : 1;
}

}  // namespace

int os_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  if (!src || !*src) {
    resolve(cs).state1 = 0;
    return 0;
  }
  return copyBytes(src, src_end, dst, std::min(src_end - *src, dst_end - *dst));
}

int utf8_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  if (!src || !*src) {
    resolve(cs).state1 = 0;
    return 0;
  }
  const std::ptrdiff_t room = dst_end - *dst;
  if (src_end - *src <= room) return copyBytes(src, src_end, dst, src_end - *src);
  return copyBytes(src, src_end, dst, wholeCharacters(*src, src_end, room));
}

int nxl_to_utf8_r(nxl_cs* cs, const char** src, int* src_left, char** dst, int* dst_left) {
  nxl_cs& codeset = resolve(cs);
  NxlToUtf8* convert = toUtf8Converter(codeset.kind);
  if (!src || !*src) return convert(&codeset, nullptr, nullptr, dst, dst && *dst ? *dst + *dst_left : nullptr);
  const char* const src_end = *src + *src_left;
  char* const dst_end = *dst + *dst_left;
  const int code = convert(&codeset, src, src_end, dst, dst_end);
  *src_left = static_cast<int>(src_end - *src);
  *dst_left = static_cast<int>(dst_end - *dst);
  return code;
}

int nxl_to_utf8(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len) {
  if (dst_len <= 0) return 0;
  nxl_cs copy = resolve(cs);
  const bool terminate = src_len < 0;
  if (terminate) src_len = static_cast<int>(std::min<std::size_t>(src ? std::strlen(src) : 0, INT_MAX));
  int room = terminate ? dst_len - 1 : dst_len;
  char* end = dst;
  if (src) nxl_to_utf8_r(&copy, &src, &src_len, &end, &room);
  if (terminate) *end++ = '\0';
  return static_cast<int>(end - dst);
}
