#ifndef QUILLON_CODESET_UNICODE_H_
#define QUILLON_CODESET_UNICODE_H_

#include <unicase.h>

#include <cstddef>
#include <cstdint>

#include "codeset/uls.h"

/// The rules of the Unicode Standard for characters, of which libunistring has the tables. Characters are Unicode
/// numbers, of surrogates and larger numbers none.
namespace quillon {

/// Stands where a text has a piece that is no character.
inline constexpr std::uint32_t kReplacement = 0xFFFD;

enum class CaseForm { kUpper, kLower, kFold };

/// What one character becomes.
struct Mapped {
  static constexpr std::size_t kMost = 3;  ///< SpecialCasing.txt and CaseFolding.txt have no longer ones.
  std::uint32_t codes[kMost];
  std::size_t count;

  bool is(std::uint32_t c) const { return count == 1 && codes[0] == c; }
};

/// As much of what follows a character as its lower case depends on.
class LookAhead {
 public:
  /// Adds the next character; false when no more is needed.
  bool add(std::uint32_t c);

  casing_suffix_context_t context() const { return u32_casing_suffix_context(codes_, count_); }

 private:
  /// What follows more than the 30 marks that text has in a row (Unicode Standard Annex #15, D3) matters no more, but
  /// for the last.
  static constexpr std::size_t kMost = 32;
  std::uint32_t codes_[kMost];
  std::size_t count_ = 0;
};

/// Maps the characters of one text, from its first to its last, by the rules of the environment's language.
class CaseMapper {
 public:
  explicit CaseMapper(CaseForm form);

  /// Whether map() has to know what follows `c`. All that do end the look-ahead of the one before, so that a text is
  /// looked over twice at most.
  bool looksAhead(std::uint32_t c) const;

  Mapped map(std::uint32_t c, const LookAhead& ahead);

 private:
  CaseForm form_;
  const char* language_;  ///< Null when its rules are those of all.
  casing_prefix_context_t before_ = unicase_empty_prefix_context;
};

/// The counterpart in the other case, where it is one character; else the character itself.
std::uint32_t upperOf(std::uint32_t c);
std::uint32_t lowerOf(std::uint32_t c);

bool isOfClass(std::uint32_t c, NxlClass which);

/// Columns on a terminal; `wide` is whether a character of ambiguous width takes two.
int columns(std::uint32_t c, bool wide);

}  // namespace quillon

#endif  // QUILLON_CODESET_UNICODE_H_
