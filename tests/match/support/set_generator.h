#ifndef QUILLON_TESTS_MATCH_SUPPORT_SET_GENERATOR_H_
#define QUILLON_TESTS_MATCH_SUPPORT_SET_GENERATOR_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tests/match/support/format_list.h"
#include "tests/match/support/random.h"

namespace quillon {

/// A random set of formats and messages for it, all from one seed. Sets differ in kind: fields and letters in any
/// order, so few that everything matches something; words of one beginning, longer than a machine word; shared headers;
/// siblings that differ in one word; formats without variables; formats of stars; a few formats or hundreds.
class SetGenerator {
 public:
  explicit SetGenerator(std::uint64_t seed);

  const FormatList& formats() const { return formats_; }

  /// A message made from the formats: one that fits, or two spliced, with words shuffled or left out, with other white
  /// space, with bytes changed (NUL among them), or of the set's letters alone; now and then a very long one.
  std::string message();

 private:
  void makeWords();
  void makeHeaders();
  Tokens makeFormat();
  Tokens sibling(Tokens tokens);
  void addWord(Tokens& tokens);
  const char* field();

  std::string instance(const Tokens& tokens);
  std::string value(const Tokens& tokens, std::size_t at);
  std::string blanks();
  std::string letters(std::size_t most);
  void change(std::string& text);

  Random random_;
  std::string alphabet_;
  std::vector<std::string> words_;
  std::vector<Tokens> headers_;
  bool dense_ = false;  ///< Fields and a few letters in any order, not words: what goes wrong deep in the algorithm.
  std::size_t fieldPercent_ = 0;  ///< How many of the words are fields, and
  std::size_t starPercent_ = 0;   ///< how many of these take several words.
  std::size_t paddedPercent_ = 0;
  FormatList formats_;
};

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_SET_GENERATOR_H_
