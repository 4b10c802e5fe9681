#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_MESSAGETEXT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_MESSAGETEXT_H_

#include <cstdint>
#include <string_view>

#include "foundation/characters.h"

namespace quillon {

/// White space that ends a word: a newline does not, not even in a message from an event log.
constexpr bool endsWord(char c) { return c == ' ' || c == '\t' || (c >= '\v' && c <= '\r'); }

/// A message and its edges. "  a b \n" has its start at "a" and, in a message from an event log, its content ends
/// behind "b"; in another the newline is content.
struct MessageText {
  const char* begin;
  const char* end;         ///< Of the text, which has no NUL byte.
  const char* contentEnd;  ///< Behind the last character that is not white space.
  const char* start;       ///< Behind leading white space; a newline is not, not even in a message from an event log.
  bool newlineIsSpace;

  MessageText(std::string_view text, bool fromEventLog)
      : begin(text.data()), end(begin + text.size()), contentEnd(end), start(begin), newlineIsSpace(fromEventLog) {
    while (contentEnd > begin && isSpace(contentEnd[-1])) --contentEnd;
    while (start < end && endsWord(*start)) ++start;
  }

  bool isSpace(char c) const { return isWhiteSpace(c) && (c != '\n' || newlineIsSpace); }
  std::uint32_t offset(const char* place) const { return static_cast<std::uint32_t>(place - begin); }
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_MESSAGETEXT_H_
