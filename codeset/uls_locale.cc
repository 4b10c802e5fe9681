#include <algorithm>
#include <climits>
#include <clocale>
#include <cstring>
#include <cwctype>

#include "codeset/uls.h"

namespace {

// A character of multibyte text. Stray bytes lie above all characters, so that they compare as different from them.
struct Character {
  wint_t code;
  int bytes;  // 0 at the end
  bool stray;
};

// The services set the process locale. A program that has chosen one itself keeps it.
void setUpLocale() {
  if (std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") == 0) nxl_init();
}

Character decode(const char* p, const char* end) {
  if (p == end) return {0, 0, false};
  const auto size = static_cast<std::size_t>(end - p);
  std::mbstate_t state = {};
  wchar_t wide = 0;
  const std::size_t used = std::mbrtowc(&wide, p, size, &state);
  if (used == 0) return {0, 1, false};
  if (used > size) return {0x110000u + static_cast<unsigned char>(*p), 1, true};
  return {static_cast<wint_t>(wide), static_cast<int>(used), false};
}

wint_t folded(const Character& c) { return c.stray ? c.code : std::towlower(c.code); }

int sign(wint_t a, wint_t b) { return a < b ? -1 : a > b; }

int mapCase(const char* src, char* dst, int dst_len, wint_t (*map)(wint_t)) {
  if (dst_len <= 0) return 0;
  setUpLocale();
  const char* const end = src + std::strlen(src);
  int written = 0;
  while (src != end) {
    const Character c = decode(src, end);
    char mapped[MB_LEN_MAX];
    std::mbstate_t state = {};
    std::size_t size = c.stray ? 0 : std::wcrtomb(mapped, static_cast<wchar_t>(map(c.code)), &state);
    if (size == 0 || size > sizeof mapped) {  // without a counterpart a character stays as it is
      size = static_cast<std::size_t>(c.bytes);
      std::memcpy(mapped, src, size);
    }
    if (size > static_cast<std::size_t>(dst_len - 1 - written)) break;
    std::memcpy(dst + written, mapped, size);
    written += static_cast<int>(size);
    src += c.bytes;
  }
  dst[written] = '\0';
  return written + 1;
}

}  // namespace

int nxl_mb_len(const char* p, const char* end) {
  setUpLocale();
  return decode(p, end).bytes;
}

int nxl_mb_count(const char* p, const char* end) {
  setUpLocale();
  int count = 0;
  for (; p != end; p += decode(p, end).bytes) ++count;
  return count;
}

const char* nxl_mb_next(const char* p, const char* end) { return p + nxl_mb_len(p, end); }

const char* nxl_mb_prev(const char* start, const char* p) {
  setUpLocale();
  const char* previous = start;
  while (start < p) {
    previous = start;
    start += decode(start, p).bytes;
  }
  return previous;
}

int nxl_str_upper(const char* src, char* dst, int dst_len) { return mapCase(src, dst, dst_len, std::towupper); }

int nxl_str_lower(const char* src, char* dst, int dst_len) { return mapCase(src, dst, dst_len, std::towlower); }

int nxl_str_casecmp(const char* a, const char* b) { return nxl_str_ncasecmp(a, b, INT_MAX); }

int nxl_str_ncasecmp(const char* a, const char* b, int n) {
  setUpLocale();
  const char* const a_end = a + std::strlen(a);
  const char* const b_end = b + std::strlen(b);
  for (; n > 0; --n) {
    const Character x = decode(a, a_end);
    const Character y = decode(b, b_end);
    const int order = sign(folded(x), folded(y));
    if (order != 0 || x.bytes == 0) return order;
    a += x.bytes;
    b += y.bytes;
  }
  return 0;
}

int nxl_wcs_copy(const wchar_t* src, wchar_t* dst, int dst_len) {
  if (dst_len <= 0) return 0;
  const std::size_t n = std::min(std::wcslen(src), static_cast<std::size_t>(dst_len - 1));
  std::wmemcpy(dst, src, n);
  dst[n] = L'\0';
  return static_cast<int>(n) + 1;
}

int nxl_wcs_cmp(const wchar_t* a, const wchar_t* b) { return std::wcscmp(a, b); }

int nxl_wcs_casecmp(const wchar_t* a, const wchar_t* b) {
  setUpLocale();
  for (;; ++a, ++b) {
    const int order = sign(std::towlower(static_cast<wint_t>(*a)), std::towlower(static_cast<wint_t>(*b)));
    if (order != 0 || *a == L'\0') return order;
  }
}
