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

/// A field of a format, or several, and the text behind it, up to the next field: of "%t %s sshd[%s]: %s*" the steps
/// are a time and " ", one word and " sshd[", a field and "]: ", the rest.
struct Step {
  enum class Field : std::uint8_t {
    kNone,      ///< For a text at the start of the format.
    kWords,     ///< `words` fields, each to the end of its word, with white space between them.
    kUpTo,      ///< A field up to its bound.
    kLine,      ///< A field up to the end of its line or word.
    kTime,      ///< Three words.
    kTimeUpTo,  ///< Three words, the third up to its bound.
    kStar,      ///< "%s*" up to its bound.
    kPlus,      ///< "%s+" up to its bound.
    kRest,      ///< "%s*" up to the end.
    kRestPlus,  ///< "%s+" up to the end.
  };

  Field field;
  std::uint8_t words;
  std::uint8_t blanks;     ///< In the text, in which a blank stands for white space.
  std::uint8_t boundSize;  ///< The bound is as many bytes of the text
  std::uint16_t size;      ///< Of the text.
  std::uint8_t boundAt;    ///< behind so many. It may lie behind the text.
  bool endsBlank : 1;      ///< The text does.
  bool last : 1;           ///< Behind it no text may be left over.
  std::uint32_t text;      ///< Where it begins among those of the programs.
};

/// Values of a bound message, with room for those that are not one piece of it.
struct Values {
  std::array<std::string_view, FormatSpec::kMaxVariables> views;
  std::uint32_t count = 0;
  Scratch joined;
};

/// The formats as programs over words: a step of 12 bytes for each field and the text behind it. Running one is the
/// first pass of the literal algorithm, in which each field ends at the first place that it can. When that pass
/// succeeds, it is the result. When it fails, it often proves that no later pass can succeed: no field has another end.
/// Else the literal algorithm must decide. Some 30 ns a message.
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

  /// Has a program loaded into the cache that is likely to run soon.
  void expect(std::uint32_t program) const { __builtin_prefetch(&steps_[program]); }

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
  bool translateField(const Operation& field, bool isLast, Step& step);
  bool translateText(const Operation*& operation, const Operation* last, Step& step);
  bool placeBound(const Operation& field, Step& step);

  const Literal& literal_;
  FirstPass made_;
  TextPool texts_;
  std::string joined_;  ///< The text of the step at hand.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_FIRSTPASS_H_
