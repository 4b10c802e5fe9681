#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_STRINGCOMPONENT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_STRINGCOMPONENT_H_

#include <string_view>

#include "src/adapters/logfile/common/FormatComponent.h"

/// What the width of a field means: 0, it only shortens the captured value; 1, the field takes exactly that many
/// characters. Nothing in this library writes it.
extern int newStringMeaning;

/// When not 0, a star field that has used up its steps succeeds, and binding restarts fields that no constant follows.
/// Nothing in this library writes it.
extern int starFallback;

/// The "%s" field: one word, or the part of it before the constant that follows. Also the base of the other fields.
///
/// A field that a constant follows can end at any occurrence of it. Which one is told by `steps`: 0 before the first
/// attempt, one more with each attempt, -1 when there is no further alternative. Fields without a width are shared, so
/// their steps are too; binding sets them before each attempt.
///
/// Threads: the steps of a shared field are each thread's own. A field with a width belongs to its format.
class StringComponent : public FormatComponent {
 public:
  /// Makes the shared "%s", "%s*" and "%s+".
  static void init();

  /// The field for `token`, which is "%", a width or none, "s", and "*", "+" or nothing. With a width it is a new one,
  /// otherwise a shared one.
  static StringComponent* create(const char* token);

  int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) override;
  int variable() override { return 1; }
  quillon::ComponentKind kind() const override { return quillon::ComponentKind::kString; }
  /// The component behind this one, if that is a constant.
  ConstComponent* lookahead(qlList<FormatComponent*>& list, int i) override;

  /// In bytes; 0 when none is given.
  int getWidth() const { return width; }

  int get_steps() const { return sharedField_ < 0 ? steps_ : shared_steps[sharedField_]; }
  void set_steps(int n) { steps() = n; }

 protected:
  /// The fields that exist once in the process.
  enum SharedField { kNotShared = -1, kPlainField, kStarField, kPlusField, kTimeField, kSharedFields };

  explicit StringComponent(const char* text, SharedField shared = kNotShared);

  int& steps() { return sharedField_ < 0 ? steps_ : shared_steps[sharedField_]; }

  /// Matches as a plain field does and moves the cursor, but leaves it to the caller to keep what was captured (valid
  /// as long as the message). Nothing captured means that the match failed.
  std::string_view capture(SysLogMsg& msg, const ConstComponent* next);

 private:
  static thread_local constinit int shared_steps[kSharedFields];

  const SharedField sharedField_;
  int steps_ = 0;  ///< Of a field that is not shared.
  int width;
  const bool endsAtFirst_;  ///< Ends at the first occurrence of its bound, as fields with a modifier do.
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_STRINGCOMPONENT_H_
