#ifndef QUILLON_TESTS_LOGFILE_SLOW_MATCHER_H_
#define QUILLON_TESTS_LOGFILE_SLOW_MATCHER_H_

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillon {

/// The matching rules once more, as plainly as they can be put: every text is a copy, nothing is remembered between
/// looks at the message. Shares no code with the library, so that the two can be held against each other.
class SlowMatcher {
 public:
  using Values = std::vector<std::string>;

  /// `tokens` are the pieces of a format string: "%s", "%12s+", "%t", "%n", " ", or a constant.
  explicit SlowMatcher(const std::vector<std::string>& tokens);

  /// The captured values; nothing when the message does not match. At most 100 failures are got over.
  std::optional<Values> bind(const std::string& message, bool eventLog);
  /// The same in one pass, with the fields' steps as they are.
  std::optional<Values> bindOnce(const std::string& message, bool eventLog);

 private:
  enum class Kind { kConstant, kBlank, kNewline, kPlain, kTime, kStar, kPlus };
  struct Part {
    Kind kind = Kind::kConstant;
    std::string text;
    int width = 0;
    int steps = 0;
    std::shared_ptr<Part> star;  ///< Of a plus field.
    const Part* next = nullptr;  ///< The constant that bounds a field; null when there is none.
    bool variable() const { return kind >= Kind::kPlain; }
  };
  struct Visit {
    int part = -1;  ///< -1 before the variable is first reached.
    std::size_t cursor = 0;
    int steps = 0;
  };

  std::shared_ptr<Part> makePart(const std::string& token);
  const Part* bound(std::size_t i) const;
  void start(const std::string& message, bool eventLog);
  bool again(int& i, int& v);

  bool isSpace(char c) const;
  std::size_t whiteSpace() const;
  std::string word() const;
  bool atEnd() const { return cursor_ + whiteSpace() == message_.size(); }
  std::string firstCharacter();

  bool matches(Part& part, std::string& value);
  bool plain(Part& part, const Part* next, std::string& value);
  bool time(Part& part, std::string& value);
  bool star(Part& part, const Part* next, std::string& value);
  bool plus(Part& part, std::string& value);

  std::vector<std::shared_ptr<Part>> parts_;
  std::map<std::string, std::shared_ptr<Part>> shared_;  ///< Fields without a width exist once.
  std::string message_;
  bool eventLog_ = false;
  std::size_t cursor_ = 0;
  Values values_;
  std::vector<Visit> visits_;  ///< By variable.
  int failures_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_TESTS_LOGFILE_SLOW_MATCHER_H_
