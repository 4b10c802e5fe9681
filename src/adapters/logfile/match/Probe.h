#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_PROBE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_PROBE_H_

#include <algorithm>
#include <bit>
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
    kAny,    ///< Any word: of an Index::Node alone. A message gives as many answers as it has words.
  };

  Part part = Part::kNone;
  std::int8_t position = 0;
  std::uint8_t parameter = 0;
  bool last = false;  ///< For the use of whoever keeps the probe.

  bool operator==(const Probe& other) const {
    return part == other.part && position == other.position && parameter == other.parameter;
  }
};

/// The size of a word up to and including its first byte `stop`; its size when there is none.
inline std::uint32_t sizeUpTo(Bytes word, std::uint32_t size, std::uint8_t stop) {
#if QUILLON_MATCH_SSE2
  const std::uint32_t found = bytes::sameBytes(bytes::load(word), _mm_set1_epi8(static_cast<char>(stop)));
  const std::uint32_t inside = found & ((1U << std::min<std::uint32_t>(size, 16)) - 1);
  if (inside != 0) return static_cast<std::uint32_t>(std::countr_zero(inside)) + 1;
  if (size <= 16) return size;
#endif
  const void* const place = size > 0 ? std::memchr(word.at, stop, size) : nullptr;
  return place ? static_cast<std::uint32_t>(static_cast<const char*>(place) - word.at) + 1 : size;
}

/// The print of a part of a word.
inline std::uint32_t printOfPart(Probe probe, Bytes word, std::uint32_t size) {
  switch (probe.part) {
    case Probe::Part::kHead:
      return printOf(word, std::min<std::uint32_t>(probe.parameter, size));
    case Probe::Part::kTail: {
      const std::uint32_t taken = std::min<std::uint32_t>(probe.parameter, size);
      return printOf({word.at + size - taken, word.limit}, taken);
    }
    case Probe::Part::kUpTo:
      return printOf(word, sizeUpTo(word, size, probe.parameter));
    default:
      return printOf(word, size);
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
  print = printOfPart(probe, words.from(word.start), size);
  return true;
}

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_PROBE_H_
