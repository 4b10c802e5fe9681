#include "codeset/init.h"

#include <langinfo.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "codeset/tables.h"

using quillon::environmentOrEmpty;
using quillon::Registry;

namespace {

constexpr int kNameBytes = 128;        // longest normalised name, with its terminator
constexpr int kAliasPieceBytes = 128;  // an alias line is read in pieces of this size, terminator included
constexpr std::size_t kCanonicalLength = 6;

// Names are ASCII whatever the locale: in a Turkish one toupper('i') is no 'I', and isalnum() accepts accented bytes.
bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

void copyName(std::string_view name, char* buf, int len) {
  const std::size_t n = std::min(name.size(), static_cast<std::size_t>(len - 1));
  std::memcpy(buf, name.data(), n);
  buf[n] = '\0';
}

std::string upperCase(std::string_view name) {
  std::string result(name);
  std::transform(result.begin(), result.end(), result.begin(), upper);
  return result;
}

// The first word of `text`; `text` moves on to what follows it.
std::string_view takeWord(std::string_view& text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  const auto end = std::find_if(text.begin(), text.end(), isBlank);
  const std::string_view word = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(word.size());
  return word;
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File openAliases() {
  const char* dir = quillon::tablePlace();
  char path[kPathBytes];
  File file;
  if (*dir && quillon::formatPath(path, "%s/codeset/aliases", dir)) file.reset(quillon::openRegularFile(path));
  if (!file && *dir && quillon::formatPath(path, "%s/aliases", dir)) file.reset(quillon::openRegularFile(path));
  if (!file && quillon::searchesCurrentDirectory()) file.reset(quillon::openRegularFile("aliases"));
  return file;
}

struct CanonicalName {
  std::string_view name, canonical;
};

constexpr CanonicalName kLocales[] = {
    {"C", "C"},   {"american", "C"},     {"ar_AA", "ar"},    {"Ar_AA", "ar"},
    {"cz", "cs"}, {"japanese", "ja_JP"}, {"Jp_JP", "ja_JP"},
};
constexpr CanonicalName kLanguages[] = {
    {"C", "C"},      {"en", "C"},        {"fr", "fr_FR"}, {"ja", "ja_JP"},
    {"pt", "pt_BR"}, {"pt_BR", "pt_BR"}, {"zh", "zh_CN"}, {"zh_TW", "zh_TW"},
};

template <std::size_t kSize>
int canonicalName(const CanonicalName (&known)[kSize], const char* name, char* buf, int len) {
  if (len <= 0) return 1;
  *buf = '\0';
  if (!name) return 1;
  for (const CanonicalName& pair : known) {
    if (pair.name == name) {
      copyName(pair.canonical, buf, len);
      return 0;
    }
  }
  std::string result(name, strnlen(name, kCanonicalLength));
  if (result.size() > 2 && result[2] == '-') result[2] = '_';
  for (std::size_t i = 0; i < result.size(); ++i) {
    if (!isLetter(result[i]) && !(i == 2 && result[i] == '_')) return 1;
  }
  copyName(result, buf, len);
  return 0;
}

}  // namespace

int get_cs_name(const char* /*name*/, char* buf, int len) {
  if (len <= 0) return 1;
  std::setlocale(LC_ALL, "");
  const char* codeset = nl_langinfo(CODESET);
  copyName(codeset && *codeset ? codeset : "ISO88591", buf, len);
  return 0;
}

int get_table_name(const char* name, char* buf, int len) {
  if (len <= 0) return 1;
  std::string result = upperCase(name ? name : "");
  if (result == "OS" || result == "DOS" || result == "WIN") {
    char codeset[kNameBytes];
    get_cs_name(result.c_str(), codeset, sizeof codeset);
    result = upperCase(codeset);
  }
  if (result.starts_with("ORB")) result.erase(0, 3);
  std::erase_if(result, [](char c) { return !isLetter(c) && !isDigit(c); });
  copyName(result, buf, len);
  get_alias(buf, len);
  return 0;
}

int get_alias(char* name, int len) {
  const File file = openAliases();
  if (!file) return 1;
  char piece[kAliasPieceBytes];
  while (std::fgets(piece, sizeof piece, file.get())) {
    std::string_view line(piece);
    if (line.starts_with('#') || takeWord(line) != name) continue;
    const std::string_view alias = takeWord(line);
    // A word at the very end may have been cut: by the piece, or by an editor that left the last line unfinished.
    if (line.empty()) continue;
    if (len > 0) copyName(alias, name, len);
    return 0;
  }
  return 0;
}

int nxl_init() {
  Registry::instance().initialise();
  return 0;
}

int nxl_uninit() {
  Registry::instance().uninitialise();
  return 0;
}

int nxl_set_def_cs(nxl_cs* cs) {
  Registry& registry = Registry::initialised();
  registry.setDefault(cs ? cs : registry.osCodeset());
  return 0;
}

nxl_cs* nxl_get_def_cs() { return Registry::initialised().defaultCodeset(); }

nxl_cs* nxl_get_utf8_cs() { return Registry::instance().utf8Codeset(); }

int nxl_os_cs_name(char* buf, int len) {
  get_table_name("OS", buf, len);
  return 0;
}

int nxl_os_lang_name(char* buf, int len) {
  if (len <= 0) return 0;
  const char* lang = environmentOrEmpty("LANG");
  copyName(*lang ? lang : "C", buf, len);
  return 0;
}

int nxl_canonical_loc(const char* name, char* buf, int len) { return canonicalName(kLocales, name, buf, len); }

int nxl_canonical_lang(const char* name, char* buf, int len) { return canonicalName(kLanguages, name, buf, len); }

namespace quillon {

Registry& Registry::instance() {
  static Registry registry;
  return registry;
}

Registry& Registry::initialised() {
  instance().initialise();
  return instance();
}

void Registry::initialise() {
  if (initialised_) return;
  initialised_ = true;

  const char* chosen = environmentOrEmpty("NXL_CODESET");
  char name[kNameBytes];
  get_table_name(*chosen ? chosen : "OS", name, sizeof name);
  initial_cs_ = cs_new(name);
  if (!initial_cs_) initial_cs_ = cs_new("DEFAULT");
  if (initial_cs_) def_cs_ = initial_cs_;

  nxl_os_cs_name(name, sizeof name);
  nxl_cs* locale = cs_new(name);
  if (!locale) locale = cs_new("OSDEFAULT");
  if (locale) os_loc_cs_ = locale;
}

void Registry::uninitialise() {
  if (!initialised_) return;
  initialised_ = false;
  // Each call takes its codeset out of every slot, so that none is freed twice.
  nxl_cs_free(def_cs_);
  nxl_cs_free(os_loc_cs_);
  nxl_cs_free(initial_cs_);
  def_cs_ = &os_cs_;
}

void Registry::forget(const nxl_cs* cs) {
  if (def_cs_ == cs) def_cs_ = &os_cs_;
  if (os_loc_cs_ == cs) os_loc_cs_ = &os_cs_;
  if (initial_cs_ == cs) initial_cs_ = nullptr;
}

}  // namespace quillon
