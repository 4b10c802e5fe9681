#include "tools/quillon-codeset/charset.h"

#include <cerrno>

namespace quillon {
namespace {

const iconv_t kClosed = reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr): iconv_open() says so
constexpr std::size_t kFailed = static_cast<std::size_t>(-1);

// Converts a whole text from the initial state and back into it; `*error` is 0 or iconv's errno.
std::string run(iconv_t descriptor, std::string_view text, int* error) {
  char buffer[64];
  char* in = const_cast<char*>(text.data());  // iconv does not write there
  std::size_t in_left = text.size();
  char* out = buffer;
  std::size_t out_left = sizeof buffer;
  iconv(descriptor, nullptr, nullptr, nullptr, nullptr);
  *error = iconv(descriptor, &in, &in_left, &out, &out_left) == kFailed ? errno : 0;
  iconv(descriptor, nullptr, nullptr, &out, &out_left);
  return std::string(buffer, out);
}

}  // namespace

Charset::Charset(const std::string& name)
    : to_utf32_(open("UTF-32LE", name.c_str())), from_utf32_(open(name.c_str(), "UTF-32LE")) {}

Charset::Converter Charset::open(const char* to, const char* from) {
  const iconv_t descriptor = iconv_open(to, from);
  return Converter(descriptor == kClosed ? nullptr : descriptor);
}

Charset::Answer Charset::decode(std::string_view bytes, char32_t* c) const {
  int error = 0;
  const std::string text = run(to_utf32_.get(), bytes, &error);
  if (error == EINVAL) return Answer::kIncomplete;
  if (error != 0 || text.empty()) return Answer::kNone;
  if (text.size() > 4) return Answer::kSeveral;
  *c = 0;
  for (std::size_t i = 4; i-- > 0;) *c = *c << 8 | static_cast<unsigned char>(text[i]);
  return Answer::kCharacter;
}

std::string Charset::encode(char32_t c) const {
  std::string text;
  for (int i = 0; i < 4; ++i, c >>= 8) text += static_cast<char>(c & 0xFF);
  int error = 0;
  const std::string bytes = run(from_utf32_.get(), text, &error);
  return error == 0 ? bytes : std::string();
}

}  // namespace quillon
