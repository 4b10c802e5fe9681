#ifndef QUILLON_TOOLS_QUILLON_CODESET_CHARSET_H_
#define QUILLON_TOOLS_QUILLON_CODESET_CHARSET_H_

#include <iconv.h>

#include <memory>
#include <string>
#include <string_view>

namespace quillon {

/// A charset of the C library, asked one character at a time through iconv.
class Charset {
 public:
  explicit Charset(const std::string& name);

  /// Whether the C library knows the charset; nothing else may be asked when it does not.
  bool isOpen() const { return to_utf32_ && from_utf32_; }

  enum class Answer { kCharacter, kSeveral, kIncomplete, kNone };

  /// What `bytes` as a whole stand for. `*c` is set for kCharacter, which is exactly one character; kIncomplete asks
  /// for more bytes.
  Answer decode(std::string_view bytes, char32_t* c) const;

  /// The bytes of a character, with the shifts back into the initial state; empty when it has none.
  std::string encode(char32_t c) const;

 private:
  struct Close {
    using pointer = iconv_t;
    void operator()(iconv_t descriptor) const { iconv_close(descriptor); }
  };
  using Converter = std::unique_ptr<iconv_t, Close>;

  static Converter open(const char* to, const char* from);

  Converter to_utf32_;
  Converter from_utf32_;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_CODESET_CHARSET_H_
