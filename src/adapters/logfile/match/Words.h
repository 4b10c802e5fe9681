#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_WORDS_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_WORDS_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/match/Bytes.h"
#include "src/adapters/logfile/match/MessageText.h"

namespace quillon {

/// Where a word lies, in bytes from the start of the message.
struct Word {
  std::uint32_t start;
  std::uint32_t end;
};

/// A message cut into words, in one pass over its bytes: "  ab c \tde" has the words "ab", "c", "de", and the last
/// white space that is not exactly one blank begins behind "c". A newline is part of a word, as everywhere; what it
/// means in a message from an event log, where it is also white space, cannot be said of words: see hasNewline().
///
/// Keeps its room from one message to the next, 8 bytes for each word of the longest one. 64 bytes take about 60
/// instructions and 10 more for each word in them.
class Words {
 public:
  Words() : words_(kFirstRoom) {}

  /// Finds the words of `text`, which ends at its first NUL byte, if it has one.
  void scan(std::string_view text);

  std::uint32_t count() const { return count_; }
  /// The word `i`; that of count() is empty and stands at the end of the text.
  const Word& operator[](std::size_t i) const { return words_[i]; }

  /// True when one of the first `count` words has the text of `word`.
  bool has(std::uint32_t count, const Word& word) const;

  const char* text() const { return text_; }
  std::uint32_t size() const { return size_; }                                      ///< Up to the NUL byte.
  std::uint32_t contentEnd() const { return count_ ? words_[count_ - 1].end : 0; }  ///< Behind the last word.
  const char* limit() const { return limit_; }                                      ///< See readableEnd().
  Bytes from(std::uint32_t offset) const { return {text_ + offset, limit_}; }

  /// True when there are more than a million words; then what is known is size() alone, and hasNewline().
  bool tooMany() const { return tooMany_; }

  /// True when all white space between `start` and `end` is known to be single blanks.
  bool regular(std::uint32_t start, std::uint32_t end) const {
    return start > lastIrregular_ || end <= firstIrregular_;
  }

  bool hasNewline() const { return hasNewline_; }

 private:
  static constexpr std::size_t kFirstRoom = 1024;
  static constexpr std::size_t kMost = 1U << 20;
  static constexpr std::size_t kMostInBlock = 34;  ///< Words that end in 64 bytes, and what stands behind the last.

  struct Block;

  Block classify(std::uint32_t at) const;
  Block classifyLast(std::uint32_t at) const;
  void add(Block block, std::uint32_t at);
  bool makeRoom();
  void giveUp(std::uint32_t at);
  bool clarify(Block& block, std::uint32_t at);
  void addRegular(std::uint64_t white, std::uint32_t at);
  void addAny(std::uint64_t white, std::uint32_t at, std::uint32_t end);
  void noteGap(std::uint32_t nextStart);

  std::vector<Word> words_;
  const char* text_ = nullptr;
  const char* limit_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t count_ = 0;
  std::uint32_t firstIrregular_ = 0;  ///< Where the first white space begins that is not one blank,
  std::uint32_t lastIrregular_ = 0;   ///< and where the last does; before all and behind all when there is none.
  bool hasNewline_ = false;
  bool tooMany_ = false;
  std::uint64_t inWhite_ = 1;  ///< 1 when the byte before the present block is white space.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_WORDS_H_
