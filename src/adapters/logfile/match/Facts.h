#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FACTS_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FACTS_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/match/Literal.h"
#include "src/adapters/logfile/match/Probe.h"

namespace quillon {

/// What a format says of one word of its messages: how it begins and ends. Of "sshd[%s]:" that is "sshd[" and "]:".
struct WordFact {
  std::uint32_t text;  ///< Where the beginning stands among the texts; the ending is right behind it.
  std::uint16_t head;  ///< Size of the beginning.
  std::uint16_t tail;  ///< Size of the ending.
  bool exact;          ///< The word is exactly its beginning.
};

/// What every message that a format binds must be like: the words from the front up to the first star or plus, those
/// from the back to the last one, and those between, which stand somewhere. "%t %s %s+: %s failed" says that there are
/// at least 7 words, nothing of the first five, and that the last is "failed".
///
/// It is true of every message that binds, because in a bind every component matched, one behind the other: each takes
/// a piece of the message that begins where the one before ended. So a constant stands in the message as it is, white
/// space in the format is at least one byte of it between two words, and a plain field stays within its word.
struct FormatFacts {
  std::uint32_t place;
  std::uint32_t front;   ///< The first of the facts from the front.
  std::uint32_t middle;  ///< The first of the facts between, which are those up to `back`.
  std::uint32_t back;    ///< The first of the facts from the back; the last word comes first.
  std::uint16_t frontCount;
  std::uint16_t backCount;
  std::uint16_t leastWords;
  bool exactCount;  ///< Without star or plus: there are exactly leastWords words.
};

/// The facts of many formats; for the time of building the index.
class Facts {
 public:
  explicit Facts(const Literal& literal) : literal_(literal) {}

  /// Adds those of the format at `place`, which has variables. False when it binds no message at all.
  bool add(std::uint32_t place);
  /// No more are added from here on.
  void finish() { texts_.append(kTextPadding, '\0'); }

  const std::vector<FormatFacts>& formats() const { return formats_; }

  /// The fact about the word `position`, from the end when negative; null when there is none.
  const WordFact* word(const FormatFacts& format, int position) const;

  /// The words that stand somewhere in each message; all of them are exact.
  std::span<const WordFact> wordsBetween(const FormatFacts& format) const {
    return {words_.data() + format.middle, words_.data() + format.back};
  }

  /// The same, and the words counted from the back: all that stands behind the first star.
  std::span<const WordFact> wordsBehindStar(const FormatFacts& format) const {
    if (format.exactCount) return {};
    return {words_.data() + format.middle, words_.data() + format.back + format.backCount};
  }

  /// The answer that all messages have which `format` binds. False when there is no such answer.
  bool answer(const FormatFacts& format, Probe probe, std::uint32_t& print) const;

  /// The print of all that is known of the word from its beginning on.
  std::uint32_t print(const WordFact& fact) const {
    return printOf({texts_.data() + fact.text, texts_.data() + texts_.size()}, fact.head);
  }

  /// Whether no message can have both as facts of one word.
  bool differ(const WordFact& one, const WordFact& other) const;

  /// What to ask of the word `position` to know whether `fact`, which has a head, is true of it.
  static Probe checkOf(const WordFact& fact, int position);

  std::string_view head(const WordFact& fact) const { return {texts_.data() + fact.text, fact.head}; }
  std::string_view tail(const WordFact& fact) const {
    return {texts_.data() + fact.text + (fact.exact ? 0 : fact.head), fact.tail};
  }

 private:
  void addText(std::string_view text);
  void addField();
  void addStar();
  void endWord();
  void addWord(bool open);

  const Literal& literal_;
  std::vector<FormatFacts> formats_;
  std::vector<WordFact> words_;
  std::string texts_;

  // Of the format and the word at hand.
  FormatFacts format_{};
  std::string head_;
  std::string tail_;
  bool begun_ = false;    ///< There is something of the word.
  bool solid_ = false;    ///< Something that takes at least one byte.
  bool field_ = false;    ///< A field, so that what follows belongs to the ending.
  bool starred_ = false;  ///< There was a star or plus in the format.
  bool glued_ = false;    ///< There was one in the word.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FACTS_H_
