// The maps of a class and how they are written. Few entries are found by a walk, many by an index: both cost the same
// at kWalked, and a file whose blocks have any number of slots is read in linear time.

#include "src/adapters/logfile/common/MapSpec.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/characters.h"
#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/Report.h"

namespace {

/// Up to here walking the list beats a look-up in the index.
constexpr int kWalked = 16;

bool isNamed(const MsgMapEntry& e, std::string_view slot) {
  const qlStrobj& name = e.getName();
  return static_cast<std::size_t>(name.size()) == slot.size() &&
         std::memcmp(name.view().data(), slot.data(), slot.size()) == 0;
}

/// Text on its way to a stream, in a few large pieces.
class Output {
 public:
  explicit Output(FILE* stream) : stream_(stream) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() { flush(); }

  void line(std::initializer_list<std::string_view> pieces) {
    for (std::string_view piece : pieces) put(piece);
  }

  void flush() {
    std::fwrite(buffer_, 1, used_, stream_);
    used_ = 0;
  }

 private:
  void put(std::string_view piece) {
    if (piece.size() > sizeof buffer_ - used_) flush();
    if (piece.size() > sizeof buffer_) {
      std::fwrite(piece.data(), 1, piece.size(), stream_);
    } else {
      std::memcpy(buffer_ + used_, piece.data(), piece.size());
      used_ += piece.size();
    }
  }

  FILE* stream_;
  std::size_t used_ = 0;
  char buffer_[4096];
};

}  // namespace

/// Finds an entry by its slot without walking the list. Knows the entries' positions, so removing one ends its life.
class MapSpec::Index {
 public:
  explicit Index(const qlList<MsgMapEntry*>& maps) {
    for (MsgMapEntry* e : maps) append(e);
  }

  void append(MsgMapEntry* e) {
    entries_.push_back(e);
    selected_.clear();
    positions_.emplace(e->getName().view(), entries_.size() - 1);
  }

  /// Puts `e` in the place of the entry of the same slot and returns its position.
  int replace(MsgMapEntry* e) {
    auto node = positions_.extract(e->getName().view());
    node.key() = e->getName().view();  // the text of the old name ends with its entry
    const std::size_t position = node.mapped();
    positions_.insert(std::move(node));
    selected_.clear();
    entries_[position] = e;
    return static_cast<int>(position);
  }

  MsgMapEntry* find(std::string_view slot) const {
    const auto found = positions_.find(slot);
    return found == positions_.end() ? nullptr : entries_[found->second];
  }

  int selectedUpTo(std::string_view slot) const {
    const std::lock_guard<std::mutex> counting(counting_);
    if (selected_.empty()) countSelected();
    const auto found = positions_.find(slot);
    return found == positions_.end() ? selected_.back() : selected_[found->second];
  }

 private:
  void countSelected() const {
    int count = 0;
    for (const MsgMapEntry* e : entries_) selected_.push_back(count += e->selected());
  }

  std::unordered_map<std::string_view, std::size_t> positions_;  ///< Of a slot's entry.
  std::vector<MsgMapEntry*> entries_;                            ///< In list order.
  mutable std::vector<int> selected_;  ///< Selected entries up to and including each; empty when out of date.
  mutable std::mutex counting_;        ///< Held while `selected_` is brought up to date.
};

MapSpec::MapSpec(const char* text) : name(text ? qlStrobj::constant(text) : qlStrobj()) {}

MapSpec::~MapSpec() {
  clear();
  if (refcount != 0) std::abort();
}

void MapSpec::addSlot(MsgMapEntry* e) {
  MsgMapEntry* old = find(e->getName().view());
  if (!old) {
    appendSlot(e);
    return;
  }
  quillon::retain(e);  // first: e may be old
  if (index_) {
    maps[index_->replace(e)] = e;
  } else {
    maps(old, e);
  }
  quillon::release(old);
}

void MapSpec::copySlots(MapSpec* other) {
  if (other == this) return;
  clear();
  for (MsgMapEntry* e : other->maps) addSlot(MsgMapEntry::create(e->getOwner(), e));
}

void MapSpec::removeSlot(const char* slot) {
  int count = 0;
  MsgMapEntry* const e = getmap(slot, count);
  if (!e) return;
  maps.remove(e);
  --size_;
  makeIndex();
  quillon::release(e);
}

MsgMapEntry* MapSpec::getmap(const char* slot, int& count) {
  if (slot) {
    count = selectedUpTo(slot);
    return find(slot);
  }
  count = 0;
  for (const MsgMapEntry* e : maps) count += e->selected();
  return nullptr;
}

const MsgMapEntry* MapSpec::find(std::string_view slot) const {
  if (index_) return index_->find(slot);
  for (const MsgMapEntry* e : maps) {
    if (isNamed(*e, slot)) return e;
  }
  return nullptr;
}

int MapSpec::selectedUpTo(std::string_view slot) const {
  if (index_) return index_->selectedUpTo(slot);
  int count = 0;
  for (const MsgMapEntry* e : maps) {
    if (e->selected()) ++count;
    if (isNamed(*e, slot)) break;
  }
  return count;
}

void MapSpec::dbgdump() {
  std::printf("%s\n", name.view().data());
  dumpEntries();
}

void MapSpec::emitCds(FILE* stream, int index) {
  if (!writeCds(stream, index)) std::exit(EXIT_FAILURE);
}

bool MapSpec::writeCds(FILE* stream, int index) {
  Output out(stream);
  out.line({"CLASS ", name.view(), "\n  SELECT\n"});
  out.line({"    1: ATTR(=,\"_event_id\"), VALUE(=,\"", quillon::Decimal(index).view(), "\");\n"});
  int line = 2;
  for (MsgMapEntry* e : maps) {
    if (e->selected())
      out.line({"    ", quillon::Decimal(line++).view(), ": ATTR(=,\"", e->getName().view(), "\");\n"});
  }
  if (size_ > 0) out.line({"  MAP\n"});
  int selectedSoFar = 1;  // the first line selects the event's number
  for (MsgMapEntry* e : maps) {
    selectedSoFar += e->selected();
    if (!e->mapped()) continue;
    if (e->selected()) {
      out.line({"    ", e->getName().view(), " = $V", quillon::Decimal(selectedSoFar).view(), ";\n"});
    } else if (e->kind() == printMap) {
      const auto expansion = static_cast<const PrintMapEntry*>(e)->expand(*this);
      if (!expansion) {
        out.flush();  // what stands before it is still written, and before the report
        quillon::report(*expansion.fault);
        return false;
      }
      out.line({"    ", e->getName().view(), " = ", expansion.text.view(), ";\n"});
    } else {
      out.line({"    ", e->getName().view(), " = ", e->cdsMap(this).view(), ";\n"});
    }
  }
  out.line({"END\n"});
  return true;
}

const qlStrobj& MapSpec::bvalue(VarMapEntry* /*e*/) {
  static const qlStrobj none = qlStrobj::permanent("???");
  return none;
}

void MapSpec::clear() {
  index_.reset();
  size_ = 0;
  quillon::releaseAll(maps);
}

void MapSpec::appendSlot(MsgMapEntry* e) {
  quillon::retain(e);
  maps(e);
  ++size_;
  if (index_) {
    index_->append(e);
  } else if (size_ > kWalked) {
    makeIndex();
  }
}

void MapSpec::dropInherited() {
  qlList<MsgMapEntry*> all(maps);
  index_.reset();
  size_ = 0;
  maps.clear();
  for (MsgMapEntry* e : all) {
    if (e->getOwner() == this) appendSlot(e);
  }
  quillon::releaseAll(all);
}

void MapSpec::dumpEntries() {
  for (MsgMapEntry* e : maps) e->dbgdump();
}

/// Makes the index anew, if it is time for one.
void MapSpec::makeIndex() { index_ = size_ > kWalked ? std::make_unique<Index>(maps) : nullptr; }
