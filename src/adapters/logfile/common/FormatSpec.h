#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATSPEC_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATSPEC_H_

#include <array>
#include <cstdio>
#include <memory>

#include "foundation/list.h"
#include "foundation/strobj.h"
#include "src/adapters/logfile/common/MapSpec.h"

namespace quillon {
class Binding;
}

class ConstComponent;
class FormatComponent;
class LogDriver;
class SysLogMsg;

/// One FORMAT block: a format string, split into components, and the slot maps of the events that messages of this
/// form become. Holds a reference on each component and on the format that it follows.
///
/// A format string has at most 64 variables. Further ones are reported, which makes the format file unreadable, and
/// counted, but have no value.
///
/// Threads: one at a time binds or changes a format; what is constant may be asked for by any number while nobody does.
class FormatSpec : public MapSpec {
 public:
  static constexpr int kMaxVariables = 64;

  explicit FormatSpec(const char* text);
  ~FormatSpec() override;

  /// Replaces the format string.
  void setFmtStr(const char* fmt);
  qlStrobj getFmtStr() const;

  /// Appends the component that `text`, one token of a format string, stands for. addLookahead() must follow the last.
  void addFormat(const char* text);
  /// Finds the constant that bounds each field.
  void addLookahead();
  /// Releases all components.
  void ldelete();

  /// Follows `parent`, which may be null, instead of any earlier one, and inherits its maps behind this format's own: a
  /// map of the same slot is kept, a map of a variable that this format does not have is left out with a warning. The
  /// components must be in place. Returns this format.
  FormatSpec* addFollows(FormatSpec* parent);
  FormatSpec* getFollows() const { return follows; }

  /// Reports variables that no map names and those that several name. Returns this format.
  FormatSpec* verifySlot();

  /// Converts the texts of the constants to UTF-8. Once for a format, before it binds.
  void UTF8fmt();

  int numvars() override { return numVars; }
  int numvars() const { return numVars; }
  const qlList<FormatComponent*>& getComponents() const { return components; }
  /// What bounds each of the first 64 fields, in their order; ConstComponent::none() for a field that nothing bounds.
  const qlList<ConstComponent*>& getBounds() const { return lookahead; }
  /// The lines that a message of this format has.
  int numlines() const { return numLines; }

  /// Binds `msg` in one pass: true when the components match it from its start to its end. The fields' steps are used
  /// as they are. Values are as after bind_UTF8().
  int bind(SysLogMsg& msg);

  /// Converts `msg` from the platform's codeset to UTF-8 and binds that. `fromEventLog` makes newlines white space.
  int bind_UTF8(SysLogMsg& msg, int fromEventLog);

  /// Binds `msg`, already in UTF-8: true when the components match it from its start to its end. When a component
  /// fails, fields are tried again with a later end, up to 100 failures. After a success `$N` has its value; after a
  /// failure all values are empty.
  int bindConverted(SysLogMsg& msg);

  /// The message `text`, null for an empty one, converted from the platform's codeset to UTF-8, ready to be bound.
  static SysLogMsg toUtf8(const char* text, int fromEventLog);

  const qlStrobj& bvalue(VarMapEntry* e) override;
  /// `$N` of the last message that was bound, in UTF-8; N from 1 to numvars(). Empty before, and beyond the limit.
  const qlStrobj& value(int n) const;

  /// The bound message as an event: "EVENT ", the class, " `slot=value'" for each map, " END".
  qlStrobj aevent();

  /// Writes the bound values to standard output, in the platform's codeset.
  void dbgmatch();

  void dbgdump() override;
  /// Writes the block that makes this format. Inherited maps are left out if `driver` has a format of the parent's
  /// name, which the block then follows.
  virtual void genFmt(FILE* stream, LogDriver* driver, int index);

 private:
  friend class quillon::Binding;

  int keepValues(bool bound);

  std::unique_ptr<std::array<qlStrobj, kMaxVariables>> values;  ///< Made when the format binds for the first time.
  int numLines = 1;
  int numVars = 0;
  qlList<FormatComponent*> components;
  qlList<ConstComponent*>
      lookahead;  ///< What bounds each field, for nothing else is bounded; empty before addLookahead().
  FormatSpec* follows = nullptr;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATSPEC_H_
