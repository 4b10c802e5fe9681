#ifndef QUILLON_AUTHORING_SHADOW_EXAMPLES_H_
#define QUILLON_AUTHORING_SHADOW_EXAMPLES_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Literal.h"

namespace quillon {

/// Makes messages out of formats: "sshd[%s]: %s*" gives "sshd[xy]: xy". Values are ordinary words, which no format of
/// the set names. What is made need not bind: ask the matcher.
class Examples {
 public:
  explicit Examples(const Literal& literal);

  /// A byte that no constant of the set has, or failing that none begins with that ends a field, where there is one.
  char ordinary() const { return ordinary_; }

  /// Messages of the format at `place`: fields of one word; where there are fields of any number of words also with
  /// none, two and three.
  std::vector<std::string> typical(std::uint32_t place) const;

  /// A message of the format at `place`, with `values` for its fields in their order.
  std::string message(std::uint32_t place, const std::vector<std::string>& values) const;

  /// A value for each field of the format at `place`: `word`, three of it for a time, and `starWords` of it for a field
  /// of any number of words, which may be none where the field may take nothing.
  std::vector<std::string> values(std::uint32_t place, std::string_view word, int starWords = 1) const;

  /// The shortest word of which values are made.
  std::string_view shortWord() const { return {&ordinary_, 1}; }

  /// `text` with its ordinary words replaced by "word"; all of it by a time stamp when it is a time of nothing else.
  std::string readable(std::string_view text, bool isTime) const;

 private:
  const Literal& literal_;
  char ordinary_ = 'x';
  char other_ = 'y';
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SHADOW_EXAMPLES_H_
