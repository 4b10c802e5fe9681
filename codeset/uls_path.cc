#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "codeset/tables.h"
#include "codeset/uls.h"

using quillon::environmentOrEmpty;

namespace {

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
  std::string_view text(quillon::localeName("LC_MESSAGES"));
  if (text.find('/') != std::string_view::npos) text = "C";  // no part of a path but one directory
  return {text, text.substr(0, text.find_first_of("_.@")), between(text.substr(0, text.find_first_of(".@")), '_', ""),
          between(text, '.', "@")};
}

// The locale by each of its names, the most exact first.
std::vector<Locale> byEachName(const Locale& locale) {
  std::vector<Locale> result;
  for (const char* end : {"", "@", ".@", "_.@"}) {
    const std::string_view name = locale.name.substr(0, locale.name.find_first_of(end));
    if (!result.empty() && result.back().name == name) continue;
    result.push_back(locale);
    result.back().name = name;
  }
  return result;
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
  for (const char* below : {"/msg/%L/%N.cat", "/msg/C/%N.cat"}) {
    if (*dir) templates += ':' + quoted(dir) + below;
  }
  return templates;
}

// The path of the first catalogue that can be read, "" for none.
std::string findCatalogue(std::string_view name) {
  const std::vector<Locale> locales = byEachName(messageLocale());
  const std::string templates = messageTemplates();
  std::string_view rest(templates);
  while (!rest.empty()) {
    const std::string_view pattern = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(rest.size(), pattern.size() + 1));
    for (const Locale& locale : locales) {
      std::string path = expand(pattern, name, locale);
      if (path.size() < static_cast<std::size_t>(kPathBytes) && access(path.c_str(), R_OK) == 0) return path;
    }
  }
  return {};
}

}  // namespace

int nxl_msg_path(const char* name, char* buf, int len) {
  if (len <= 0) return 1;
  *buf = '\0';
  try {
    const std::string path = findCatalogue(name);
    if (path.empty() || path.size() >= static_cast<std::size_t>(len)) return 1;
    std::memcpy(buf, path.c_str(), path.size() + 1);
    return 0;
  } catch (const std::bad_alloc&) {
    return 2;
  }
}
