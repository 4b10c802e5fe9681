#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MAPSPEC_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MAPSPEC_H_

#include <cstdio>
#include <memory>

#include "foundation/list.h"
#include "foundation/pool.h"
#include "foundation/strobj.h"

class MsgMapEntry;
class VarMapEntry;

/// The ordered slot maps of one event class, at most one for a slot, under the name of the class. Holds a reference on
/// each entry. Is itself counted (foundation/refcnt.h); destroying one that is still referenced aborts.
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
  /// The entry of `slot`; null when there is none. `count` becomes the number of selected entries up to and including
  /// that entry, or of all selected entries.
  virtual MsgMapEntry* getmap(const char* slot, int& count);
  /// Writes the maps to standard output.
  virtual void dbgdump();
  /// Writes the class definition. `index` is the number that tells this class's events from others.
  virtual void emitCds(FILE* stream, int index);
  /// What the variable of `e` captured; a process-wide "???" when there is no such value.
  virtual const qlStrobj& bvalue(VarMapEntry* e);

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
  /// True when `slot` has an entry.
  bool hasSlot(const qlStrobj& slot) { return find(slot) != nullptr; }
  void dumpEntries();

 private:
  class Index;

  Index* indexed();
  MsgMapEntry* find(const qlStrobj& slot);

  qlStrobj name;
  qlList<MsgMapEntry*> maps;
  std::unique_ptr<Index> index_;  ///< Null while there are so few entries that walking the list is faster.
  int size_ = 0;                  ///< Entries in `maps`.
  int refcount = 0;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MAPSPEC_H_
