#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_NEWLINECOMPONENT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_NEWLINECOMPONENT_H_

#include "src/adapters/logfile/common/ConstComponent.h"

/// The "%n" field: a line break within a message. It bounds the field before it as a constant does, so it is one. There
/// is a single, shared instance, which any thread may use.
class NewlineComponent : public ConstComponent {
 public:
  static void init();
  /// The shared instance, whatever else `token` holds.
  static NewlineComponent* create(const char* token);
  static NewlineComponent* shared() { return shared_newline; }

  /// Matches one newline at the cursor.
  int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) override;
  quillon::ComponentKind kind() const override { return quillon::ComponentKind::kNewline; }

  /// `word` up to its first newline.
  qlStrobj select(const qlStrobj& word, int n) const;

 private:
  using ConstComponent::ConstComponent;

  static inline NewlineComponent* shared_newline = nullptr;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_NEWLINECOMPONENT_H_
