#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_UTF8_TEXT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_UTF8_TEXT_H_

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "codeset/codeset.h"

namespace quillon {

/// The codeset of the platform's locale; null, which conversions take for the default codeset, when no table for it
/// can be found. Chosen at the first call and kept for ever.
nxl_cs* platformCodeset();

/// True when text of the codeset `cs`, the default one when null, is UTF-8 already or passes for it: converting it
/// changes nothing.
bool isUtf8(const nxl_cs* cs);

/// A text on its way from one codeset to another: converted when made, freed with this object. Short texts need no
/// heap memory.
class ConvertedText {
 public:
  /// The shape of nxl_to_utf8() and nxl_from_utf8().
  using Conversion = int(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len);

  /// Converts `source`, which is NUL-terminated, from or to the codeset `cs`, the default one when null.
  ConvertedText(Conversion& convert, nxl_cs* cs, std::string_view source);
  ConvertedText(const ConvertedText&) = delete;
  ConvertedText& operator=(const ConvertedText&) = delete;

  /// The result, NUL-terminated; null when there was no memory for it. It is `source` itself where nothing changes.
  const char* text() const { return text_; }

 private:
  struct Free {
    void operator()(char* block) const { std::free(block); }
  };
  std::unique_ptr<char, Free> large_;
  const char* text_;
  char small_[1000];
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_UTF8_TEXT_H_
