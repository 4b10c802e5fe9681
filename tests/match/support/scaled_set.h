#ifndef QUILLON_TESTS_MATCH_SUPPORT_SCALED_SET_H_
#define QUILLON_TESTS_MATCH_SUPPORT_SCALED_SET_H_

#include <cstddef>
#include <string>

#include "tests/match/support/format_list.h"
#include "tests/match/support/random.h"

namespace quillon {

/// As many formats as are asked for, that look like those of real logs: a header, then a sentence of words and fields.
/// A third of the sentences differ from another one in a word or two. The same numbers always give the same set.
class ScaledSet {
 public:
  static constexpr std::size_t kMostHeaders = 19;

  /// `headers`: how many layouts of the header there are, 1 to 19, spread over the formats.
  ScaledSet(std::size_t formats, std::size_t headers);

  const FormatList& formats() const { return formats_; }

  /// A line made from one of the formats.
  std::string line(Random& random) const;
  /// A line with a header of the set and words of its sentences, one of which no format has.
  std::string unknownLine(Random& random) const;

 private:
  static std::string filled(const Tokens& tokens, Random& random);

  FormatList formats_;
};

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_SCALED_SET_H_
