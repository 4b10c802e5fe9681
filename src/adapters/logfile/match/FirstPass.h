#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FIRSTPASS_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FIRSTPASS_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/match/Literal.h"
#include "src/adapters/logfile/match/Value.h"
#include "src/adapters/logfile/match/Words.h"

namespace quillon {

/// One or several components of a format as they match in the first pass.
struct Step {
  enum class Kind : std::uint8_t {
    kWords,         ///< `count` fields, each to the end of its word, with white space between them.
    kText,          ///< `text`, with `count` blanks in it.
    kFieldText,     ///< A field up to its bound `text`, and that.
    kFieldNewline,  ///< A field up to the end of its line or word.
    kTime,          ///< Three words.
    kTimeText,      ///< Three words, the third up to its bound `text`, and that.
    kStar,          ///< "%s*" up to its bound `text`, which stays.
    kPlus,          ///< The same for "%s+".
    kRest,          ///< "%s*" up to the end.
    kRestPlus,      ///< The same for "%s+".
    kBlank,         ///< White space.
    kEnd,           ///< No text may be left over.
  };

  Kind kind;
  std::uint8_t count;
  std::uint16_t size : 15;      ///< Of its text.
  std::uint16_t thenBlank : 1;  ///< White space must follow, and is passed over.
  std::uint32_t text;           ///< Where its text begins among those of the programs.
};

/// Values of a bound message, with room for those that are not one piece of it.
struct Values {
  std::array<std::string_view, FormatSpec::kMaxVariables> views;
  std::uint32_t count = 0;
  Scratch joined;
};

/// The formats as programs over words: "%t %s sshd[%s]: session opened for %s" becomes
///
///     time, words 1, text "sshd[", field-text "]:", text "session opened for", words 1, end
///
/// of 8 bytes each. Running one is the first pass of the literal algorithm, in which each field ends at the first place
/// that it can. When that pass succeeds, it is the result. When it fails, it often proves that no later pass can
/// succeed: no field has another end. Else the literal algorithm must decide. Some 30 ns a message.
///
/// Formats that have no program go to the literal algorithm at once: those without variables, with more than 64, with a
/// width, with an empty constant, and those in which an unbounded star or one that ends at "%n" is not the last.
class FirstPass {
 public:
  enum class Result { kBound, kRefused, kUndecided };

  class Builder;

  static constexpr std::uint32_t kNoProgram = UINT32_MAX;

  /// Where the program of the format at `place` begins, or kNoProgram.
  std::uint32_t program(std::uint32_t place) const { return programs_[place]; }

  /// `values` are filled when the result is kBound, and may be overwritten in any case.
  Result run(std::uint32_t program, const Words& words, Values& values) const;

 private:
  class Run;

  std::vector<std::uint32_t> programs_;
  std::vector<Step> steps_;
  std::string texts_;
};

/// Makes the programs from the literal operations, format by format.
class FirstPass::Builder {
 public:
  explicit Builder(const Literal& literal) : literal_(literal) {}
  void add(std::uint32_t place);
  FirstPass finish();

 private:
  bool translate(const Operation* operation, const Operation* last);
  bool translateField(const Operation*& operation, const Operation* last);
  bool translateTexts(const Operation*& operation, const Operation* last);
  bool append(Step::Kind kind, std::size_t count = 0, std::string_view text = {});
  bool thenBlank(const Operation*& operation, const Operation* last);

  const Literal& literal_;
  FirstPass made_;
  TextPool texts_;
  std::string joined_;     ///< Constants that follow each other.
  std::size_t first_ = 0;  ///< Where the program at hand begins.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FIRSTPASS_H_
