#include "src/adapters/logfile/common/MapSpec.h"

#include <charconv>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"

namespace {

/// Up to here walking the list beats a look-up in the index.
constexpr int kWalked = 16;

/// The text of a number, for as long as this object lives.
class Number {
 public:
  explicit Number(int n) : end_(std::to_chars(text_, text_ + sizeof text_, n).ptr) {}
  std::string_view view() const { return {text_, static_cast<std::size_t>(end_ - text_)}; }

 private:
  char text_[12];
  const char* end_;
};

/// Text on its way to a stream. Keeps it until it goes, so that a class definition is one write.
class Output {
 public:
  explicit Output(FILE* stream) : stream_(stream) { text_.reserve(1000); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() { flush(); }

  void line(std::initializer_list<std::string_view> pieces) {
    for (std::string_view piece : pieces) text_ += piece;
  }

  void flush() {
    std::fwrite(text_.data(), 1, text_.size(), stream_);
    text_.clear();
  }

 private:
  FILE* stream_;
  std::string text_;
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
  std::size_t replace(MsgMapEntry* e) {
    auto node = positions_.extract(e->getName().view());
    node.key() = e->getName().view();  // the text of the old name ends with its entry
    const std::size_t position = node.mapped();
    positions_.insert(std::move(node));
    selected_.clear();
    entries_[position] = e;
    return position;
  }

  MsgMapEntry* find(std::string_view slot) const {
    const auto found = positions_.find(slot);
    return found == positions_.end() ? nullptr : entries_[found->second];
  }

  MsgMapEntry* find(std::string_view slot, int& selectedSoFar) {
    if (selected_.empty()) countSelected();
    const auto found = positions_.find(slot);
    selectedSoFar = found == positions_.end() ? selected_.back() : selected_[found->second];
    return found == positions_.end() ? nullptr : entries_[found->second];
  }

 private:
  void countSelected() {
    int count = 0;
    for (const MsgMapEntry* e : entries_) selected_.push_back(count += e->selected());
  }

  std::unordered_map<std::string_view, std::size_t> positions_;  ///< Of a slot's entry.
  std::vector<MsgMapEntry*> entries_;                            ///< In list order.
  std::vector<int> selected_;  ///< Selected entries up to and including each; empty when out of date.
};

MapSpec::MapSpec(const char* text) : name(text) {}

MapSpec::~MapSpec() {
  clear();
  if (refcount != 0) std::abort();
}

void MapSpec::addSlot(MsgMapEntry* e) {
  MsgMapEntry* old = find(e->getName());
  if (!old) {
    appendSlot(e);
    return;
  }
  quillon::retain(e);  // first: e may be old
  if (index_) {
    maps[static_cast<int>(index_->replace(e))] = e;
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
  index_.reset();
  maps.remove(e);
  --size_;
  quillon::release(e);
}

MsgMapEntry* MapSpec::getmap(const char* slot, int& count) {
  count = 0;
  if (Index* index = indexed()) return index->find(slot ? slot : "", count);
  for (MsgMapEntry* e : maps) {
    if (e->selected()) ++count;
    if (e->getName() == slot) return e;
  }
  return nullptr;
}

void MapSpec::dbgdump() {
  std::printf("%s\n", name.view().data());
  dumpEntries();
}

void MapSpec::emitCds(FILE* stream, int index) {
  Output out(stream);
  out.line({"CLASS ", name.view(), "\n  SELECT\n"});
  out.line({"    1: ATTR(=,\"_event_id\"), VALUE(=,\"", Number(index).view(), "\");\n"});
  int line = 2;
  for (MsgMapEntry* e : maps) {
    if (e->selected()) out.line({"    ", Number(line++).view(), ": ATTR(=,\"", e->getName().view(), "\");\n"});
  }
  if (size_ > 0) out.line({"  MAP\n"});
  for (MsgMapEntry* e : maps) {
    if (!e->mapped()) continue;
    if (e->kind() == printMap) out.flush();  // what stands before a PRINTF that ends the process is still written
    out.line({"    ", e->getName().view(), " = ", e->cdsMap(this).view(), ";\n"});
  }
  out.line({"END\n"});
}

const qlStrobj& MapSpec::bvalue(VarMapEntry* /*e*/) {
  static const qlStrobj none("???");
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
  if (index_) index_->append(e);
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

/// The index, made now if it is time for one; null while walking the list is faster.
MapSpec::Index* MapSpec::indexed() {
  if (!index_ && size_ > kWalked) index_ = std::make_unique<Index>(maps);
  return index_.get();
}

/// The entry of `slot`; null when there is none.
MsgMapEntry* MapSpec::find(const qlStrobj& slot) {
  if (const Index* index = indexed()) return index->find(slot.view());
  for (MsgMapEntry* e : maps) {
    if (e->getName() == slot) return e;
  }
  return nullptr;
}
