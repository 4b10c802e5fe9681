#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_CONSTCOMPONENT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_CONSTCOMPONENT_H_

#include <string>
#include <string_view>

#include "src/adapters/logfile/common/FormatComponent.h"

namespace quillon {

/// Where a constant was found last: its n-th occurrence in `word`, or what stands for one that there is not.
struct FoundText {
  std::string constant;
  std::string_view word;  ///< Null: nowhere yet.
  int n = 0;
  std::size_t at = 0;
};

}  // namespace quillon

/// Text that a message must hold as it stands. Never shared between formats.
///
/// Threads: constant once its format has been read.
class ConstComponent : public FormatComponent {
 public:
  static void init();
  static ConstComponent* create(const char* token);

  /// The shared empty constant that stands for "no constant follows". Another constant with an empty text is a
  /// constant like any other.
  static ConstComponent* none() { return shared_none; }

  /// Matches when the word at the cursor is not empty and begins with this text.
  int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) override;
  int isconst() override { return 1; }
  quillon::ComponentKind kind() const override { return quillon::ComponentKind::kConstant; }

  /// The part of `word` before an occurrence of this constant, or the whole of it when there is none. `n` of 1 or more
  /// counts the occurrences behind the start of `word`; beyond the last one the result is empty. 0 means the same as
  /// 1, and a negative `n` the very first occurrence, even at the start.
  qlStrobj select(const qlStrobj& word, int n) const { return qlStrobj(word.view().substr(0, cut(word.view(), n))); }

  /// The same as a length.
  std::size_t cut(std::string_view word, int n) const {
    quillon::FoundText none;
    return cut(word, n, none);
  }

  /// The same, going on from `latest` where that helps, and keeping it up to date. A field that is tried again asks for
  /// one occurrence more: no byte of a long word is looked at twice for it.
  std::size_t cut(std::string_view word, int n, quillon::FoundText& latest) const;

 protected:
  explicit ConstComponent(const char* text) : FormatComponent(text) {}

 private:
  static inline ConstComponent* shared_none = nullptr;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_CONSTCOMPONENT_H_
