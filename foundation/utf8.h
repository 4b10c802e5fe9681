#ifndef QUILLON_FOUNDATION_UTF8_H_
#define QUILLON_FOUNDATION_UTF8_H_

#include <cstddef>
#include <string>
#include <string_view>

/// Functions for any thread, on what they are given alone.
namespace quillon {

/// What a text begins with.
struct Utf8Sequence {
  std::size_t length;  ///< Of the character, or of the maximal subpart of an ill-formed sequence; at least 1.
  bool wellFormed;     ///< A whole character.
};

/// The first sequence of `text`, which is not empty.
Utf8Sequence firstSequence(std::string_view text);

/// `text` when it is well-formed UTF-8; otherwise `room`, with `text` copied into it and each maximal subpart of an
/// ill-formed sequence replaced by one U+FFFD, as the Unicode Standard recommends (chapter 3.9, "U+FFFD Substitution of
/// Maximal Subparts").
[[nodiscard]] std::string_view repairUtf8(std::string_view text, std::string& room);

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_UTF8_H_
