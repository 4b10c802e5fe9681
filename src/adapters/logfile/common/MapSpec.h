#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MAPSPEC_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MAPSPEC_H_

#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

#include "foundation/list.h"
#include "foundation/pool.h"
#include "foundation/strobj.h"

class MsgMapEntry;
class VarMapEntry;

/// The ordered slot maps of one event class, at most one for a slot, under the name of the class. Holds a reference on
/// each entry. Is itself counted (foundation/refcnt.h); destroying one that is still referenced aborts.
///
/// Threads: one at a time changes a map; constant members may be called by any number of them meanwhile nobody does.
class MapSpec : public quillon::Pooled {
 public:
  explicit MapSpec(const char* text);
  MapSpec(const MapSpec&) = delete;
  MapSpec& operator=(const MapSpec&) = delete;
  virtual ~MapSpec();

  /// Adds `e`, in the place of the entry of the same slot if there is one, else at the end.
  virtual void addSlot(MsgMapEntry* e);
  /// Replaces all entries by copies of those of `other`, which keep their owners.
  virtual void copySlots(MapSpec* other);
  virtual void removeSlot(const char* slot);
  /// The number of variables that entries can name.
  virtual int numvars() { return 0; }
  int numvars() const { return const_cast<MapSpec*>(this)->numvars(); }  // the established one was never constant
  /// Two answers at once: find() and selectedUpTo() that entry. A null `slot` is found nowhere.
  virtual MsgMapEntry* getmap(const char* slot, int& count);
  /// Writes the maps to standard output.
  virtual void dbgdump();
  /// Writes the class definition. `index` is the number that tells this class's events from others. Ends the process
  /// with status 1 when a PRINTF cannot be expanded; what stands before it is written.
  virtual void emitCds(FILE* stream, int index);
  /// What the variable of `e` captured; a process-wide "???" when there is no such value.
  virtual const qlStrobj& bvalue(VarMapEntry* e);

  /// The same, but a PRINTF that cannot be expanded is reported (Report.h) and ends the definition where it stands:
  /// false then.
  [[nodiscard]] bool writeCds(FILE* stream, int index);

  /// The entry of `slot`; null when there is none. Does not walk a long list.
  const MsgMapEntry* find(std::string_view slot) const;
  MsgMapEntry* find(std::string_view slot) { return const_cast<MsgMapEntry*>(std::as_const(*this).find(slot)); }
  /// How many entries are selected up to and including that of `slot`, or in all when there is none. In a class
  /// definition a selected entry has the line of this number plus 1.
  int selectedUpTo(std::string_view slot) const;

  /// Releases all entries.
  void clear();

  const qlStrobj& getName() const { return name; }
  const qlList<MsgMapEntry*>& getMaps() const { return maps; }
  int& refcnt() { return refcount; }

 protected:
  /// Appends `e`, whose slot has no entry yet, and takes a reference on it.
  void appendSlot(MsgMapEntry* e);
  /// Releases all entries but those whose owner is this map; these keep their order.
  void dropInherited();
  void dumpEntries();

 private:
  class Index;

  void makeIndex();

  qlStrobj name;
  qlList<MsgMapEntry*> maps;
  std::unique_ptr<Index> index_;  ///< Null exactly while there are so few entries that walking the list is faster.
  int size_ = 0;                  ///< Entries in `maps`.
  int refcount = 0;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MAPSPEC_H_
