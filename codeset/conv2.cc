// The members without a table: the OS codeset and UTF-8.

#include <algorithm>
#include <cstring>

#include "codeset/conv.h"
#include "codeset/utf8_ucs2.h"

using quillon::convert;

namespace {

// How many of the first `count` bytes of a text can be cut off without splitting a well-formed character.
std::ptrdiff_t wholeCharacters(const char* text, const char* end, std::ptrdiff_t count) {
  const quillon::Utf8Source source{nxl_cs()};
  const auto* cut = reinterpret_cast<const unsigned char*>(text) + count;
  for (int back = 1; back <= std::min<std::ptrdiff_t>(3, count); ++back) {
    const unsigned char* lead = cut - back;
    if ((*lead & 0xC0) == 0x80) continue;
    const quillon::Step step = source.next(lead, reinterpret_cast<const unsigned char*>(end));
    return step.length > back ? count - back : count;
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

int flush(nxl_cs* cs) {
  quillon::resolve(cs).state1 = 0;
  return 0;
}

}  // namespace

int os_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  if (!src || !*src) return flush(cs);
  return copyBytes(src, src_end, dst, std::min(src_end - *src, dst_end - *dst));
}

int os_from_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return os_to_utf8_r(cs, src, src_end, dst, dst_end);
}

int os_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::OsSource, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int os_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::OsTarget>(cs, src, src_end, dst, dst_end);
}

int utf8_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  if (!src || !*src) return flush(cs);
  const std::ptrdiff_t room = dst_end - *dst;
  if (src_end - *src <= room) return copyBytes(src, src_end, dst, src_end - *src);
  return copyBytes(src, src_end, dst, wholeCharacters(*src, src_end, room));
}

int utf8_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::Utf8Source, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int utf8_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::Utf8Target>(cs, src, src_end, dst, dst_end);
}
