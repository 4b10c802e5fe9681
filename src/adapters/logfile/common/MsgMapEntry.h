#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MSGMAPENTRY_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MSGMAPENTRY_H_

#include <optional>
#include <string_view>
#include <vector>

#include "foundation/list.h"
#include "foundation/pool.h"
#include "foundation/strobj.h"
#include "src/adapters/logfile/common/Report.h"

class MapSpec;
class PrintMapEntry;

namespace quillon {

/// Why a PRINTF cannot be expanded.
struct PrintFault {
  ReportCode code;             ///< Of kPrintArgumentCount, kPrintUnknownSlot and kPrintCircle.
  const PrintMapEntry* entry;  ///< The PRINTF that is at fault: the one asked for, or one that it refers to.
  int part;                    ///< Of the entry: 0 for its format text, when that has not as many "%s" as arguments
                               ///< follow; else the argument, counted from 1.
  qlStrobj text;               ///< Of that part.
};

/// Reports `fault`. Without a sink that is text on standard error, whether anybody watches or not.
void report(const PrintFault& fault);

/// All faults of the PRINTFs that the class definition of `spec` expands, each once: none exactly when that can be
/// written. Reports nothing, and takes time in proportion to the entries and their arguments, however often they refer
/// to each other.
std::vector<PrintFault> printFaults(const MapSpec& spec);

/// `text` without its first and last characters: what stands between quotes.
constexpr std::string_view withoutEnds(std::string_view text) {
  return text.size() < 2 ? std::string_view() : text.substr(1, text.size() - 2);
}

/// What became of a PRINTF.
struct [[nodiscard]] Expansion {
  qlStrobj text;  ///< The expression of the class definition; cut short by a fault.
  std::optional<PrintFault> fault;
  explicit operator bool() const { return !fault; }
};

}  // namespace quillon

/// The kinds of map entries. What an event source or a field fills in is below 10, what the format file itself says
/// from 11 on; the numbers between are free for further sources.
inline constexpr long varMap = 1;
inline constexpr long notifMap = 2;
inline constexpr long defaultMap = 3;
inline constexpr long labelMap = 4;
inline constexpr long filenameMap = 5;
inline constexpr long constMap = 11;
inline constexpr long printMap = 12;

/// Says where the value of one slot of an event comes from. Entries are counted (foundation/refcnt.h) and shared
/// between a format and the formats that follow it; destroying one that is still referenced aborts.
///
/// Threads: as for the map it is in.
class MsgMapEntry : public quillon::Pooled {
 public:
  /// A new entry of kind `type`, null for any other code. A `text` that begins with "-" gives an unmapped entry named
  /// by the rest.
  [[nodiscard]] static MsgMapEntry* create(const MapSpec* owner, const char* text, long type);
  /// A copy of `e` with another owner and no references.
  [[nodiscard]] static MsgMapEntry* create(const MapSpec* owner, MsgMapEntry* e);

  MsgMapEntry& operator=(const MsgMapEntry&) = delete;

  /// The N of `$N`; 0 for an entry that names no variable.
  virtual int position() const { return 0; }
  /// The value as an expression of the class definition that is being written for `spec`.
  virtual qlStrobj cdsMap(MapSpec* spec);
  /// The line of a format file that makes this entry, without its line end.
  virtual qlStrobj fmtMap(MapSpec* spec);
  /// The slot's value in the message that `spec` has bound.
  virtual qlStrobj svalue(MapSpec* spec);
  /// Takes the value text of a format-file line, or the next part of it, for an entry of `spec`. Returns this entry.
  virtual MsgMapEntry* addRule(const char* text, MapSpec* spec);
  /// Writes the entry to standard output.
  virtual void dbgdump();
  /// True when the slot's value is an attribute that a class definition selects.
  virtual bool selected() const { return false; }
  /// True unless the name was written with a leading "-": such a slot is selected, but assigned nothing.
  virtual bool mapped() const { return !unmapped; }
  virtual ~MsgMapEntry();

  const qlStrobj& getName() const { return name; }
  long kind() const { return type; }
  /// The map that the entry was made for; followers of a format share its entries without owning them.
  const MapSpec* getOwner() const { return owner; }
  void setOwner(const MapSpec* map) { owner = map; }
  int& refcnt() { return refcount; }

  /// What cdsMap() gives, unless a PRINTF cannot be expanded.
  quillon::Expansion expression(const MapSpec& spec) const;

 protected:
  MsgMapEntry(const MapSpec* map, const char* text, long code);
  MsgMapEntry(const MapSpec* map, const MsgMapEntry& e);

  /// "$V" and the number of this entry's line among those that the class definition of `spec` selects.
  qlStrobj selectedValue(const MapSpec& spec) const;
  /// What every line of a format file begins with: "-" when unmapped, the name, a blank.
  qlStrobj lineStart() const;
  /// Writes a line of the debugging dump that ends with `value`.
  void dumpLine(const char* value) const;

 private:
  qlStrobj name;
  int type;
  int unmapped;
  const MapSpec* owner;
  int refcount = 0;
};

/// `$N`: what the N-th field of the format captured.
class VarMapEntry : public MsgMapEntry {
 public:
  VarMapEntry(const MapSpec* map, const char* slot) : MsgMapEntry(map, slot, varMap) {}
  VarMapEntry(const MapSpec* map, const VarMapEntry& e) : MsgMapEntry(map, e), number(e.number) {}

  int position() const override { return number; }
  qlStrobj cdsMap(MapSpec* spec) override { return selectedValue(*spec); }
  qlStrobj fmtMap(MapSpec* spec) override;
  qlStrobj svalue(MapSpec* spec) override;
  /// `text` is "$N". A number that names no field of `spec` is reported and kept.
  MsgMapEntry* addRule(const char* text, MapSpec* spec) override;
  void dbgdump() override;
  bool selected() const override { return true; }

 private:
  int number = 0;
};

/// A constant text, kept between double quotes.
class ConstMapEntry : public MsgMapEntry {
 public:
  ConstMapEntry(const MapSpec* map, const char* slot);
  ConstMapEntry(const MapSpec* map, const ConstMapEntry& e) : MsgMapEntry(map, e), value(e.value) {}

  qlStrobj cdsMap(MapSpec* spec) override;
  qlStrobj fmtMap(MapSpec* spec) override;
  /// The constant without its quotes.
  qlStrobj svalue(MapSpec* spec) override;
  /// Adds the quotes to a `text` that does not begin with one.
  MsgMapEntry* addRule(const char* text, MapSpec* spec) override;
  void dbgdump() override;

  /// With its quotes.
  const qlStrobj& getValue() const { return value; }

 private:
  qlStrobj value;
};

/// PRINTF: a quoted text in which each "%s" stands for the value of another slot.
class PrintMapEntry : public MsgMapEntry {
 public:
  PrintMapEntry(const MapSpec* map, const char* slot) : MsgMapEntry(map, slot, printMap) {}
  PrintMapEntry(const MapSpec* map, const PrintMapEntry& e);
  ~PrintMapEntry() override;

  /// Ends the process with status 1 when the "%s" do not fit the arguments, an argument names no slot, or the entry
  /// refers to itself, be it through others.
  qlStrobj cdsMap(MapSpec* spec) override;
  qlStrobj fmtMap(MapSpec* spec) override;
  /// "%s" of an argument that is missing, unknown or itself a PRINTF stays as it is.
  qlStrobj svalue(MapSpec* spec) override;
  /// The first call takes the format text with its quotes, each further one the name of an argument slot.
  MsgMapEntry* addRule(const char* text, MapSpec* spec) override;
  void dbgdump() override;

  /// The expression that cdsMap() gives, or why there is none. Ends nothing and reports nothing. Takes time and memory
  /// in proportion to its result, which a few entries that refer to each other more than once can make huge.
  quillon::Expansion expand(const MapSpec& spec) const;

  /// The format text with its quotes; empty before the first addRule().
  const qlStrobj& getFormat() const;
  /// The format text with its quotes, then the names of the argument slots.
  const qlList<qlStrobj*>& parts() const { return args; }

 private:
  qlList<qlStrobj*> args;  ///< Owned.
};

/// A text for another kind of consumer. The format-file language has no form for it.
class NotifMapEntry : public MsgMapEntry {
 public:
  NotifMapEntry(const MapSpec* map, const char* slot) : MsgMapEntry(map, slot, notifMap), text("") {}
  NotifMapEntry(const MapSpec* map, const NotifMapEntry& e) : MsgMapEntry(map, e), text(e.text) {}

  qlStrobj cdsMap(MapSpec* spec) override { return selectedValue(*spec); }
  /// Drops the first and the last character of a quoted `rule`.
  MsgMapEntry* addRule(const char* rule, MapSpec* spec) override;
  void dbgdump() override;
  bool selected() const override { return true; }

  const qlStrobj& getText() const { return text; }

 private:
  qlStrobj text;
};

/// A slot whose value the event source fills in; it differs from its kin only by the words for it.
class SourceMapEntry : public MsgMapEntry {
 public:
  qlStrobj cdsMap(MapSpec* spec) override { return selectedValue(*spec); }
  qlStrobj fmtMap(MapSpec* spec) override;
  qlStrobj svalue(MapSpec* spec) override;
  void dbgdump() override;
  bool selected() const override { return true; }

 protected:
  SourceMapEntry(const MapSpec* map, const char* slot, long code) : MsgMapEntry(map, slot, code) {}
  SourceMapEntry(const MapSpec* map, const SourceMapEntry& e) : MsgMapEntry(map, e) {}

 private:
  virtual const char* keyword() const = 0;  ///< In a format file.
  virtual const char* word() const = 0;     ///< In an event.
};

class DefaultMapEntry : public SourceMapEntry {
 public:
  DefaultMapEntry(const MapSpec* map, const char* slot) : SourceMapEntry(map, slot, defaultMap) {}
  DefaultMapEntry(const MapSpec* map, const DefaultMapEntry& e) : SourceMapEntry(map, e) {}

 private:
  const char* keyword() const override { return "DEFAULT"; }
  const char* word() const override { return "default"; }
};

class LabelMapEntry : public SourceMapEntry {
 public:
  LabelMapEntry(const MapSpec* map, const char* slot) : SourceMapEntry(map, slot, labelMap) {}
  LabelMapEntry(const MapSpec* map, const LabelMapEntry& e) : SourceMapEntry(map, e) {}

 private:
  const char* keyword() const override { return "LABEL"; }
  const char* word() const override { return "label"; }
};

class FileNameMapEntry : public SourceMapEntry {
 public:
  FileNameMapEntry(const MapSpec* map, const char* slot) : SourceMapEntry(map, slot, filenameMap) {}
  FileNameMapEntry(const MapSpec* map, const FileNameMapEntry& e) : SourceMapEntry(map, e) {}

 private:
  const char* keyword() const override { return "FILENAME"; }
  const char* word() const override { return "filename"; }
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MSGMAPENTRY_H_
