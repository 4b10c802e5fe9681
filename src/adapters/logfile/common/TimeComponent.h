#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_TIMECOMPONENT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_TIMECOMPONENT_H_

#include "src/adapters/logfile/common/StringComponent.h"

/// The "%t" field: a time stamp of three words. Nothing checks that the words look like one. There is a single, shared
/// instance, whose steps are each thread's own.
class TimeComponent : public StringComponent {
 public:
  static void init();
  /// The shared instance. A token with anything but "%t" in it is reported.
  static TimeComponent* create(const char* token);

  /// Captures three words, joined by single blanks; `next` bounds the third.
  int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) override;
  quillon::ComponentKind kind() const override { return quillon::ComponentKind::kTime; }

 private:
  using StringComponent::StringComponent;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_TIMECOMPONENT_H_
