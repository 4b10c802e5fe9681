#ifndef QUILLON_AUTHORING_SHADOW_POSSIBLEPAIRS_H_
#define QUILLON_AUTHORING_SHADOW_POSSIBLEPAIRS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "src/adapters/logfile/match/Facts.h"

namespace quillon {

/// Finds the pairs of formats that may have messages in common, without looking at every pair: where a word of the
/// message is known, formats that want another one there have nothing in common. The formats are divided by the word
/// that divides them best, or by how it begins, up to the first byte that is neither letter nor digit, as in
/// "sshd[%s]:"; each part then by the next one. Those that say nothing of the word go with every part.
class PossiblePairs {
 public:
  using Visit = std::function<void(std::uint32_t, std::uint32_t)>;

  /// Calls `visit` with pairs of places, the smaller one first, at most `most` times. Returns how many pairs were not
  /// looked at.
  static std::uint64_t find(const Facts& facts, std::uint64_t most, const Visit& visit);

 private:
  using Group = std::vector<const FormatFacts*>;
  struct Question {
    int word = 0;  ///< From 1 at the front, from -1 at the back; 0: none.
    bool beginning = false;
  };
  struct Parts {
    std::vector<std::pair<std::size_t, Group>> named;  ///< By the hash of the answer, ascending.
    Group open;
  };

  PossiblePairs(const Facts& facts, std::uint64_t most, const Visit& visit)
      : facts_(facts), left_(most), visit_(visit) {}

  void within(const Group& group);
  void between(const Group& one, const Group& other);
  void look(const FormatFacts& one, const FormatFacts& other);
  bool differ(const FormatFacts& one, const FormatFacts& other) const;
  std::string_view answer(const FormatFacts& format, Question question) const;
  Parts divided(const Group& group, Question question) const;
  Question best(const Group& one, const Group& other) const;
  double shareLeft(const Group& one, const Group& other, Question question) const;

  const Facts& facts_;
  std::uint64_t left_;       ///< Pairs to visit,
  std::uint64_t looks_ = 0;  ///< and to look at.
  std::uint64_t besides_ = 0;
  const Visit& visit_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SHADOW_POSSIBLEPAIRS_H_
