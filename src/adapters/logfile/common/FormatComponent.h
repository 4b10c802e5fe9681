#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATCOMPONENT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATCOMPONENT_H_

#include "foundation/list.h"
#include "foundation/strobj.h"

class ConstComponent;
class SysLogMsg;

namespace quillon {

/// What a component is, for those who read a model instead of asking its components to match.
enum class ComponentKind { kConstant, kBlank, kNewline, kString, kTime, kStar, kPlus };

}  // namespace quillon

/// One piece of a format string: constant text, white space, or a field. Its own text is the token that it was made
/// from. Components are counted (foundation/refcnt.h): each format that holds one keeps a reference, and fields
/// without a width are shared by all formats. Destroying a component that is still referenced aborts.
///
/// Threads: a component of one format belongs to the thread that binds with it. A shared one is used by any number.
class FormatComponent : public qlStrobj {
 public:
  /// Makes the shared instances, which live as long as the process. Must run before the first create(); further calls
  /// have no effect.
  static void init();

  /// The component for `token`: a field for "%s", "%t" and "%n" with their widths and modifiers, white space for " ",
  /// a constant for all else. May be a shared instance. A token with too much behind its field letter is reported and
  /// gives the plain field.
  static FormatComponent* create(const char* token);

  FormatComponent(const FormatComponent&) = delete;
  FormatComponent& operator=(const FormatComponent&) = delete;
  ~FormatComponent() override;

  /// Tries to match at the cursor of `msg`, moves it over what matched, and appends what a field captured to `value`.
  /// `next` is the constant that bounds the field, ConstComponent::none() when there is none; never null.
  virtual int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) = 0;

  /// True for a field that captures a `$N` value; such a component is a StringComponent.
  virtual int variable() { return 0; }

  /// The constant that bounds this component in `list`, ConstComponent::none() when there is none. The cursor of
  /// `list` must stand on this component, which is its element `i`, and may be moved.
  virtual ConstComponent* lookahead(qlList<FormatComponent*>& list, int i);

  /// True for a component that can end the field before it; such a component is a ConstComponent.
  virtual int isconst() { return 0; }

  virtual quillon::ComponentKind kind() const = 0;

  /// Converts the text from the platform's codeset to UTF-8. Ends the process with status 1 when memory runs out.
  void UTF8Component();

  /// Reports `msg` about `text`, a part of the format file, which counts as unreadable from now on.
  static void error(const char* msg, const char* text);

  /// The text that stands for this component in a format file.
  const qlStrobj& fmtRep() const { return *this; }

  /// Writes the text to standard output.
  void dbgdump() const;

  int& refcnt() { return refcount; }
  /// True for an instance that all formats share, in whatever thread.
  bool isShared() const { return shared_; }

 protected:
  explicit FormatComponent(const char* text);
  /// Makes `component` one that all formats share, and holds it for ever.
  static void share(FormatComponent* component);

 private:
  int refcount = 0;
  bool shared_ = false;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATCOMPONENT_H_
