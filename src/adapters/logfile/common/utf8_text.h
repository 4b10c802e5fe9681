#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_UTF8_TEXT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_UTF8_TEXT_H_

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "codeset/codeset.h"

/// Text between the platform's codeset and UTF-8.
///
/// Threads: any number of them convert; holdCodeset() comes before them.
namespace quillon {

/// The codeset that format files and messages are in. Chosen at the first call and kept for ever: that of the
/// platform's locale; null, which conversions take for the default codeset, when no table for it can be found.
///
/// With null the first message of a process is converted from the codeset that NXL_CODESET names and the second is not
/// converted: FormatSpec::toUtf8() makes UTF-8 the default once it has run. Programs hold the codeset instead.
nxl_cs* platformCodeset();

/// For programs, before anything is read: platformCodeset() is never null, so that all messages are converted alike. In
/// the C locale, which has no codeset of its own, and where no table for the locale's can be found, NXL_CODESET says
/// what it is.
void holdCodeset();

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

/// Messages in the platform's codeset as UTF-8. One for each thread.
class MessageDecoder {
 public:
  MessageDecoder() : isUtf8_(isUtf8(platformCodeset())) {}

  /// Messages are UTF-8 already, and decode() gives them back.
  bool changesNothing() const { return isUtf8_; }

  /// `message` itself, or the same up to its first NUL byte in UTF-8, valid until the next call. Throws std::bad_alloc.
  std::string_view decode(std::string_view message) { return isUtf8_ ? message : convert(message); }

 private:
  std::string_view convert(std::string_view message);

  const bool isUtf8_;
  std::string source_;
  std::optional<ConvertedText> converted_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_UTF8_TEXT_H_
