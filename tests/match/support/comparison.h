#ifndef QUILLON_TESTS_MATCH_SUPPORT_COMPARISON_H_
#define QUILLON_TESTS_MATCH_SUPPORT_COMPARISON_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/format_list.h"
#include "tests/match/support/guarded_text.h"

class FormatSpec;
class LogDriver;

namespace quillon {

/// A driver that has these formats in its list, in this order.
class FormatsInDriver {
 public:
  explicit FormatsInDriver(const FormatList& formats);
  ~FormatsInDriver();
  const LogDriver& operator*() const { return *driver_; }

 private:
  std::unique_ptr<LogDriver> driver_;
};

/// The plain bind and the engine side by side, on the formats of one driver.
class Comparison {
 public:
  explicit Comparison(const FormatList& formats);
  /// `driver` must outlive this object.
  explicit Comparison(const LogDriver& driver);

  /// What binds `message`, the definition: each format is asked in turn, as LogDriver::bind() does. "none", or the
  /// place of the format in the order of trying, its event id and its values: "2,#0: root|web1".
  std::string plain(std::string_view message, bool eventLog = false);
  /// What the engine says, put the same way.
  std::string engine(std::string_view message, bool eventLog = false);

  /// True when both say the same: neither makes a string of it, so that many can be compared.
  bool agree(std::string_view message, bool eventLog = false);

  /// True when the plain bind bound the message that agree() was asked about last.
  bool bound() const { return bound_; }

 private:
  struct Bound {
    FormatSpec* format = nullptr;
    std::size_t place = 0;
  };
  Bound bindPlainly(std::string_view message, bool eventLog);
  const Match* bindByEngine(std::string_view message, bool eventLog);

  std::optional<FormatsInDriver> own_;
  std::vector<FormatSpec*> formats_;
  std::shared_ptr<const FormatSet> set_;
  std::optional<Matcher> matcher_;
  std::uint64_t asked_ = 0;
  std::string text_;     ///< The message, NUL-terminated, for the plain bind,
  GuardedText guarded_;  ///< and for the engine.
  bool bound_ = false;
};

/// One message against one set of formats.
struct MatchCase {
  FormatList formats;
  std::string message;
  bool eventLog = false;
};

/// `differing`, on which the engine and the plain bind disagree, without the formats, the tokens and the bytes that
/// this does not need, and what both say of it.
std::string minimised(MatchCase differing);

/// Sets what widths and stars mean, and puts the defaults back. Formats must be made while it lives.
class Meaning {
 public:
  Meaning(int newString, int fallback);
  Meaning& operator=(Meaning&&) = delete;
  ~Meaning();
};

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_COMPARISON_H_
