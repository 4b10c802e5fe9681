#ifndef QUILLON_FOUNDATION_UTF8_H_
#define QUILLON_FOUNDATION_UTF8_H_

#include <string>
#include <string_view>

namespace quillon {

/// `text` when it is well-formed UTF-8; otherwise `room`, with `text` copied into it and each maximal subpart of an
/// ill-formed sequence replaced by one U+FFFD, as the Unicode Standard recommends (chapter 3.9, "U+FFFD Substitution of
/// Maximal Subparts").
std::string_view repairUtf8(std::string_view text, std::string& room);

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_UTF8_H_
