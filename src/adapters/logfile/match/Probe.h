#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_PROBE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_PROBE_H_

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "src/adapters/logfile/match/Bytes.h"
#include "src/adapters/logfile/match/Words.h"

namespace quillon {

/// One thing to ask about a message: what the sixth word is, how the last one begins, how many words there are. The
/// answer is a number of 32 bits, a "print". Different texts may have the same print; the same text always has.
struct Probe {
  enum class Part : std::uint8_t {
    kNone,
    kCount,  ///< The number of words.
    kWhole,  ///< The word `position`, counted from 0, or from the end when negative: -1 is the last.
    kHead,   ///< Its first `parameter` bytes; all of a shorter one.
    kTail,   ///< Its last `parameter` bytes; all of a shorter one.
    kUpTo,   ///< Its part up to and including the first byte `parameter`; all of it when there is none.
  };

  Part part = Part::kNone;
  std::int8_t position = 0;
  std::uint8_t parameter = 0;
  bool last = false;  ///< For the use of whoever keeps the probe.

  bool operator==(const Probe& other) const {
    return part == other.part && position == other.position && parameter == other.parameter;
  }
};

/// What `part` of a word of `size` bytes at `word` is: how far into the word it begins, and its size.
struct PartOfWord {
  std::uint32_t from;
  std::uint32_t size;
};

inline PartOfWord partOfWord(Probe probe, const char* word, std::uint32_t size) {
  switch (probe.part) {
    case Probe::Part::kHead:
      return {0, std::min<std::uint32_t>(probe.parameter, size)};
    case Probe::Part::kTail: {
      const std::uint32_t taken = std::min<std::uint32_t>(probe.parameter, size);
      return {size - taken, taken};
    }
    case Probe::Part::kUpTo: {
      const void* const found = size > 0 ? std::memchr(word, probe.parameter, size) : nullptr;
      return {0, found ? static_cast<std::uint32_t>(static_cast<const char*>(found) - word) + 1 : size};
    }
    default:
      return {0, size};
  }
}

/// Puts the answer to one more probe behind those before it.
inline std::uint32_t joinPrints(std::uint32_t before, std::uint32_t next) { return before * 0x9e3779b1U + next; }

/// The answer of a message. False when it has no such word.
inline bool answer(Probe probe, const Words& words, std::uint32_t& print) {
  if (probe.part == Probe::Part::kCount) {
    print = words.count();
    return true;
  }
  const std::uint32_t i = static_cast<std::uint32_t>(probe.position) + (probe.position < 0 ? words.count() : 0);
  if (i >= words.count()) return false;
  const Word word = words[i];
  const std::uint32_t size = word.end - word.start;
  const PartOfWord part =
      probe.part == Probe::Part::kWhole ? PartOfWord{0, size} : partOfWord(probe, words.text() + word.start, size);
  print = printOf(words.from(word.start + part.from), part.size);
  return true;
}

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_PROBE_H_
