#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_LITERAL_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_LITERAL_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/match/MessageText.h"
#include "src/adapters/logfile/match/TextPool.h"

class FormatSpec;

namespace quillon {

/// What ends a field.
enum class Bound : std::uint32_t { kNone, kNewline, kConstant };

/// One component of a format.
struct Operation {
  std::uint32_t text;           ///< Where the text of a constant, or of the constant that bounds a field, begins.
  std::uint32_t size : 26;      ///< Of that text.
  std::uint32_t component : 3;  ///< A ComponentKind.
  std::uint32_t boundKind : 2;  ///< A Bound.
  std::uint32_t own : 1;        ///< A field that shares its steps with no other: one that was given a width.

  ComponentKind kind() const { return static_cast<ComponentKind>(component); }
  Bound bound() const { return static_cast<Bound>(boundKind); }
  bool isField() const { return kind() >= ComponentKind::kString; }
};

/// What a field with a width has of its own.
struct OwnField {
  std::uint32_t operation;  ///< Which of all operations it is.
  std::uint32_t steps;      ///< Where its steps are; those of the star within a plus are behind them.
  int width;
};

/// The formats as flat lists of operations, one for each component: what the literal binder runs. "a %s" becomes
/// constant "a", blank, string without a bound. 8 bytes an operation; each text is kept once.
class Literal {
 public:
  /// Fields without a width share their steps with all of their kind, wherever they stand, so these have fixed places.
  static constexpr std::uint32_t kSharedSteps = 4;

  struct Format {
    std::uint32_t operations;  ///< The first one.
    std::uint32_t variables;
  };

  class Builder;

  std::size_t size() const { return formats_.size() - 1; }
  std::uint32_t variables(std::uint32_t place) const { return formats_[place].variables; }
  const Operation* begin(std::uint32_t place) const { return operations_.data() + formats_[place].operations; }
  const Operation* end(std::uint32_t place) const { return begin(place + 1); }
  std::string_view text(const Operation& operation) const { return {texts_.data() + operation.text, operation.size}; }
  const OwnField& own(const Operation& operation) const;

  /// False when the format at `place`, which has variables, cannot bind `message` because its constants do not occur
  /// there one behind the other, or the last one does not end it. About 10 ns a constant.
  bool constantsOccur(std::uint32_t place, const MessageText& message) const;

  std::uint32_t stepsPlaces() const { return stepsPlaces_; }
  std::uint32_t mostVariables() const { return mostVariables_; }

  int newStringMeaning() const { return newStringMeaning_; }
  int starFallback() const { return starFallback_; }

 private:
  std::vector<Format> formats_;  ///< And one behind the last.
  std::vector<Operation> operations_;
  std::vector<OwnField> owns_;  ///< By operation.
  std::string texts_;
  std::uint32_t stepsPlaces_ = kSharedSteps;
  std::uint32_t mostVariables_ = 0;
  int newStringMeaning_ = 0;
  int starFallback_ = 1;
};

/// Takes formats one by one.
class Literal::Builder {
 public:
  Builder();
  void add(FormatSpec& format);
  Literal finish();

 private:
  void addField(const FormatComponent& component, Operation operation);

  Literal made_;
  TextPool texts_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_LITERAL_H_
