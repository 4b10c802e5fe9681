#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_WHITESPCOMPONENT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_WHITESPCOMPONENT_H_

#include "src/adapters/logfile/common/FormatComponent.h"

/// White space between other components; its text is one blank. There is a single, shared instance, which any thread
/// may use.
class WhitespComponent : public FormatComponent {
 public:
  static void init();
  static WhitespComponent* create(const char* token);

  /// Matches a run of white space of any length, but not an empty one.
  int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) override;
  quillon::ComponentKind kind() const override { return quillon::ComponentKind::kBlank; }

 private:
  using FormatComponent::FormatComponent;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_WHITESPCOMPONENT_H_
