// Where a field ends that a constant bounds. The field "%s" of "%s:x", held against the word "a:b:c", is asked to end
// at occurrence 1, then 2, then 3 of ":": behind 1 byte, behind 3, and, for there is no third one, behind none, which
// is a failure. An occurrence at the very start is passed over, as long as another one follows.
//
// Cost: a short word is searched from its start each time. In a long one the search goes on from the occurrence that
// was found last, so that all attempts together read it once. Nothing here knows of other fields or of the whole
// message.

#include "src/adapters/logfile/common/ConstComponent.h"

#include <algorithm>
#include <cstring>

#include "src/adapters/logfile/common/SysLogMsg.h"

namespace {

constexpr std::size_t kNone = std::string_view::npos;

/// From this length on it pays to remember what was found.
constexpr std::size_t kLongWord = 256;

/// Where `text` occurs in `word` from `from` on. Unlike find(), memmem() does not stumble over a repeated first byte.
std::size_t occurrence(std::string_view word, std::string_view text, std::size_t from) {
  if (word.size() < kLongWord) return word.find(text, from);
  if (from > word.size()) return kNone;
  const void* const found = memmem(word.data() + from, word.size() - from, text.data(), text.size());
  return found ? static_cast<std::size_t>(static_cast<const char*>(found) - word.data()) : kNone;
}

/// The same; 0, the start of the word, when there is none any more.
std::size_t behindStart(std::string_view word, std::string_view text, std::size_t from) {
  const std::size_t at = occurrence(word, text, from);
  return at == kNone ? 0 : at;
}

}  // namespace

void ConstComponent::init() {
  if (shared_none) return;
  shared_none = new ConstComponent("");
  share(shared_none);
}

ConstComponent* ConstComponent::create(const char* token) { return new ConstComponent(token); }

int ConstComponent::matches(SysLogMsg& msg, const ConstComponent* /*next*/, qlStrobj& /*value*/) {
  const std::string_view word = msg.word();
  if (word.empty() || !word.starts_with(view())) return 0;
  msg += size();
  return 1;
}

std::size_t ConstComponent::cut(std::string_view word, int n, quillon::FoundText& latest) const {
  const std::string_view text = view();
  n = n < 0 ? -1 : std::max(n, 1);
  const bool remembers = word.size() >= kLongWord;
  const bool goesOn = remembers && latest.word.data() == word.data() && latest.word.size() == word.size() &&
                      latest.constant == text && (latest.n == n || (latest.n > 0 && latest.n < n));
  std::size_t at = goesOn ? latest.at : occurrence(word, text, 0);
  if (!goesOn && at == 0 && n > 0 && word != text) at = behindStart(word, text, 1);
  for (int found = goesOn ? latest.n : 1; at != 0 && at != kNone && found < n; ++found) {
    at = behindStart(word, text, at + 1);
  }
  if (remembers) latest = {std::string(text), word, n, at};
  return at == kNone ? word.size() : at;
}
