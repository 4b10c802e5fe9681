#include "src/adapters/logfile/common/utf8_text.h"

#include <new>

#include <langinfo.h>

#include <climits>

namespace quillon {

namespace {

bool held = false;

/// The codeset that NXL_CODESET names, if the locale is C, which has none.
nxl_cs* inPlaceOfC() {
  const char* const name = std::getenv("NXL_CODESET");
  const bool isC = std::string_view(nl_langinfo(CODESET)) == "ANSI_X3.4-1968";
  return isC && name && *name ? nxl_cs_new(name) : nullptr;
}

nxl_cs* chooseCodeset() {
  char name[32];
  nxl_os_cs_name(name, sizeof name);
  nxl_cs* chosen = held ? inPlaceOfC() : nullptr;
  if (!chosen) chosen = nxl_cs_new(name);
  if (!chosen) nxl_init();  // which makes the default one, before several threads ask for it
  return chosen || !held ? chosen : nxl_get_def_cs();
}

}  // namespace

nxl_cs* platformCodeset() {
  static nxl_cs* const platform = chooseCodeset();
  return platform;
}

void holdCodeset() { held = true; }

bool isUtf8(const nxl_cs* cs) {
  if (!cs) cs = nxl_get_def_cs();
  return cs->kind == kUtf8Kind || cs->kind == kPassThroughKind;
}

ConvertedText::ConvertedText(Conversion& convert, nxl_cs* cs, std::string_view source) : text_(source.data()) {
  if (isUtf8(cs)) return;
  // No character of a codeset needs more than three bytes in UTF-8, nor more than three times its UTF-8 form elsewhere.
  const std::size_t room = 3 * source.size() + 1;
  char* target = small_;
  if (room > sizeof small_) {
    large_.reset(room > INT_MAX ? nullptr : static_cast<char*>(std::malloc(room)));
    target = large_.get();
  }
  text_ = target;
  if (target) convert(cs, source.data(), -1, target, static_cast<int>(room));
}

std::string_view MessageDecoder::convert(std::string_view message) {
  source_ = message;  // with a NUL byte behind it
  converted_.emplace(nxl_to_utf8, platformCodeset(), source_);
  if (!converted_->text()) throw std::bad_alloc();
  return converted_->text();
}

}  // namespace quillon
