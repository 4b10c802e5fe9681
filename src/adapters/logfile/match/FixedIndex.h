#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FIXEDINDEX_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FIXEDINDEX_H_

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/match/Literal.h"
#include "src/adapters/logfile/match/Words.h"

namespace quillon {

/// Finds the formats without variables that may bind a message. Such a format binds on what it leaves over, not on what
/// it says: "link is down" binds "link is down", "is down", "linkdown" and the empty message. So a missing constant
/// rules nothing out. But each word of the message must begin with one of its constants, for something has to take it.
///
/// Of all words of the message the one is taken that the fewest formats have a beginning for. Most messages are of no
/// such format and are done with after their first word.
class FixedIndex {
 public:
  /// Adds the format at `place`, which has no variables; by ascending places.
  void add(const Literal& literal, std::uint32_t place);
  /// No more are added from here on.
  void finish();

  bool empty() const { return places_.empty(); }

  /// Puts the places of the formats in question into `places`, ascending.
  void find(const Words& words, std::vector<std::uint32_t>& places) const;

 private:
  /// The formats that have a constant. Constants with the same print count as one.
  struct Known {
    std::uint32_t print;
    std::uint32_t begin;  ///< In users_.
    std::uint32_t end;    ///< Not above `begin` in a free place.
  };

  struct Use {
    std::uint32_t print;
    std::uint32_t place;
  };

  static constexpr std::size_t kLongest = 63;

  void addText(std::string_view text, std::uint32_t place);
  const Known* known(std::uint32_t print) const;
  template <class Visit>
  void visitBeginnings(const Words& words, Word word, const Visit& visit) const;

  std::vector<std::uint32_t> places_;
  std::vector<Use> uses_;     ///< Until finish().
  std::vector<Known> known_;  ///< A hash table (open addressing, linear probing).
  std::vector<std::uint32_t> users_;
  /// By its first byte: how long constants are; longer ones count as kLongest.
  std::array<std::uint64_t, 256> sizes_{};
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FIXEDINDEX_H_
