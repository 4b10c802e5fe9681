#include "codeset/uls.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <string>
#include <string_view>

#include "codeset/tables.h"

using quillon::environmentOrEmpty;

namespace {

// A character of multibyte text. Stray bytes lie above all characters, so that they compare as different from them.
struct Character {
  wint_t code;
  int bytes;  // 0 at the end
  bool stray;
};

Character decode(const char* p, std::size_t size) {
  if (size == 0) return {0, 0, false};
  std::mbstate_t state = {};
  wchar_t wide = 0;
  const std::size_t used = std::mbrtowc(&wide, p, size, &state);
  if (used == 0) return {0, 1, false};
  if (used > size) return {0x110000u + static_cast<unsigned char>(*p), 1, true};
  return {static_cast<wint_t>(wide), static_cast<int>(used), false};
}

Character decode(const char* p, const char* end) { return decode(p, static_cast<std::size_t>(end - p)); }

wint_t folded(const Character& c) { return c.stray ? c.code : std::towlower(c.code); }

int sign(wint_t a, wint_t b) { return a < b ? -1 : a > b; }

int mapCase(const char* src, char* dst, int dst_len, wint_t (*map)(wint_t)) {
  if (dst_len <= 0) return 0;
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

// The parts of a locale's name, language_territory.codeset@modifier.
struct Locale {
  std::string_view name, language, territory, codeset;
};

std::string_view between(std::string_view text, char from, std::string_view to) {
  const std::size_t begin = text.find(from);
  if (begin == std::string_view::npos) return {};
  text.remove_prefix(begin + 1);
  return text.substr(0, text.find_first_of(to));
}

Locale messageLocale() {
  const char* name = "C";
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = environmentOrEmpty(variable);
    if (*value) {
      name = value;
      break;
    }
  }
  std::string_view text(name);
  if (text.find('/') != std::string_view::npos) text = "C";  // no part of a path but one directory
  return {text, text.substr(0, text.find_first_of("_.@")), between(text.substr(0, text.find_first_of(".@")), '_', ""),
          between(text, '.', "@")};
}

std::string expand(std::string_view pattern, std::string_view name, const Locale& locale) {
  std::string path;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%' || i + 1 == pattern.size()) {
      path += pattern[i];
      continue;
    }
    switch (pattern[++i]) {
      case 'N':
        path += name;
        break;
      case 'L':
        path += locale.name;
        break;
      case 'l':
        path += locale.language;
        break;
      case 't':
        path += locale.territory;
        break;
      case 'c':
        path += locale.codeset;
        break;
      case '%':
        path += '%';
        break;
      default:
        break;
    }
  }
  return path;
}

// The percent signs of a directory stand for themselves in a template.
std::string quoted(std::string_view directory) {
  std::string result;
  for (const char c : directory) result.append(c == '%' ? 2 : 1, c);
  return result;
}

std::string messageTemplates() {
  std::string templates = environmentOrEmpty("NLSPATH");
  const char* dir = environmentOrEmpty("NXLDIR");
  for (const char* below : {"/msg/%L/%N.cat", "/msg/%l/%N.cat", "/msg/C/%N.cat"}) {
    if (*dir) templates += ':' + quoted(dir) + below;
  }
  return templates;
}

}  // namespace

int nxl_mb_len(const char* p, const char* end) { return decode(p, end).bytes; }

int nxl_mb_count(const char* p, const char* end) {
  int count = 0;
  for (; p != end; p = nxl_mb_next(p, end)) ++count;
  return count;
}

const char* nxl_mb_next(const char* p, const char* end) { return p + nxl_mb_len(p, end); }

const char* nxl_mb_prev(const char* start, const char* p) {
  const char* previous = start;
  while (start < p) {
    previous = start;
    start = nxl_mb_next(start, p);
  }
  return previous;
}

int nxl_str_upper(const char* src, char* dst, int dst_len) { return mapCase(src, dst, dst_len, std::towupper); }

int nxl_str_lower(const char* src, char* dst, int dst_len) { return mapCase(src, dst, dst_len, std::towlower); }

int nxl_str_casecmp(const char* a, const char* b) { return nxl_str_ncasecmp(a, b, INT_MAX); }

int nxl_str_ncasecmp(const char* a, const char* b, int n) {
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
  for (;; ++a, ++b) {
    const int order = sign(std::towlower(static_cast<wint_t>(*a)), std::towlower(static_cast<wint_t>(*b)));
    if (order != 0 || *a == L'\0') return order;
  }
}

int nxl_msg_path(const char* name, char* buf, int len) {
  if (len <= 0) return 1;
  *buf = '\0';
  const std::string templates = messageTemplates();
  std::string_view rest(templates);
  const Locale locale = messageLocale();
  while (!rest.empty()) {
    const std::string_view pattern = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(rest.size(), pattern.size() + 1));
    const std::string path = expand(pattern, name, locale);
    if (path.empty() || path.size() >= static_cast<std::size_t>(kPathBytes) || access(path.c_str(), R_OK) != 0)
      continue;
    if (path.size() >= static_cast<std::size_t>(len)) return 1;
    std::memcpy(buf, path.c_str(), path.size() + 1);
    return 0;
  }
  return 1;
}
