#include "src/adapters/logfile/common/MsgMapEntry.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "foundation/characters.h"
#include "src/adapters/logfile/common/MapSpec.h"
#include "src/adapters/logfile/common/Report.h"
#include "src/adapters/logfile/common/shared_text.h"

namespace {

constexpr quillon::ReportSite kOutOfRangeSite = quillon::errorSite(
    quillon::ReportCode::kVariableOutOfRange, quillon::kModelLevel, "src/adapters/logfile/common/MsgMapEntry", 250);

const qlStrobj& emptyConstant() {
  static const qlStrobj quotes = qlStrobj::permanent("\"\"");
  return quotes;
}

bool isQuoted(std::string_view text) { return text.starts_with('"'); }

qlStrobj numbered(const char* prefix, int number) { return qlStrobj(prefix).append(quillon::Decimal(number).view()); }

}  // namespace

MsgMapEntry* MsgMapEntry::create(const MapSpec* owner, const char* text, long type) {
  switch (type) {
    case varMap:
      return new VarMapEntry(owner, text);
    case notifMap:
      return new NotifMapEntry(owner, text);
    case defaultMap:
      return new DefaultMapEntry(owner, text);
    case labelMap:
      return new LabelMapEntry(owner, text);
    case filenameMap:
      return new FileNameMapEntry(owner, text);
    case constMap:
      return new ConstMapEntry(owner, text);
    case printMap:
      return new PrintMapEntry(owner, text);
    default:
      return nullptr;
  }
}

MsgMapEntry* MsgMapEntry::create(const MapSpec* owner, MsgMapEntry* e) {
  switch (e->kind()) {
    case varMap:
      return new VarMapEntry(owner, static_cast<const VarMapEntry&>(*e));
    case notifMap:
      return new NotifMapEntry(owner, static_cast<const NotifMapEntry&>(*e));
    case defaultMap:
      return new DefaultMapEntry(owner, static_cast<const DefaultMapEntry&>(*e));
    case labelMap:
      return new LabelMapEntry(owner, static_cast<const LabelMapEntry&>(*e));
    case filenameMap:
      return new FileNameMapEntry(owner, static_cast<const FileNameMapEntry&>(*e));
    case constMap:
      return new ConstMapEntry(owner, static_cast<const ConstMapEntry&>(*e));
    case printMap:
      return new PrintMapEntry(owner, static_cast<const PrintMapEntry&>(*e));
    default:
      return nullptr;
  }
}

MsgMapEntry::MsgMapEntry(const MapSpec* map, const char* text, long code)
    : name(quillon::sharedText(text[0] == '-' ? text + 1 : text)),
      type(static_cast<int>(code)),
      unmapped(text[0] == '-'),
      owner(map) {}

MsgMapEntry::MsgMapEntry(const MapSpec* map, const MsgMapEntry& e)
    : name(e.name), type(e.type), unmapped(e.unmapped), owner(map) {}

MsgMapEntry::~MsgMapEntry() {
  if (refcount != 0) std::abort();
}

qlStrobj MsgMapEntry::cdsMap(MapSpec* /*spec*/) { return ""; }

qlStrobj MsgMapEntry::fmtMap(MapSpec* /*spec*/) { return lineStart(); }

qlStrobj MsgMapEntry::svalue(MapSpec* /*spec*/) { return "???"; }

MsgMapEntry* MsgMapEntry::addRule(const char* /*text*/, MapSpec* /*spec*/) { return this; }

void MsgMapEntry::dbgdump() { std::printf("\t%s %d\n", name.view().data(), unmapped); }

quillon::Expansion MsgMapEntry::expression(const MapSpec& spec) const {
  if (selected()) return {selectedValue(spec), {}};
  if (type == constMap) return {static_cast<const ConstMapEntry*>(this)->getValue(), {}};
  if (type == printMap) return static_cast<const PrintMapEntry*>(this)->expand(spec);
  return {"", {}};
}

qlStrobj MsgMapEntry::selectedValue(const MapSpec& spec) const {
  return numbered("$V", spec.selectedUpTo(name.view()) + 1);  // the first line selects the event's number
}

qlStrobj MsgMapEntry::lineStart() const {
  qlStrobj line(unmapped ? "-" : "");
  return line << name << " ";
}

void MsgMapEntry::dumpLine(const char* value) const {
  std::printf("\t%s %d %s\n", name.view().data(), unmapped, value);
}

qlStrobj VarMapEntry::fmtMap(MapSpec* /*spec*/) { return lineStart() << numbered("$", number); }

qlStrobj VarMapEntry::svalue(MapSpec* spec) { return spec->bvalue(this); }

MsgMapEntry* VarMapEntry::addRule(const char* text, MapSpec* spec) {
  number = text[0] ? quillon::leadingNumber(text + 1) : 0;
  if (number < 1 || number > spec->numvars()) {
    quillon::report(kOutOfRangeSite, {.entry = this, .variable = number}, "$%d must be between 1 and %d\n", number,
                    spec->numvars());
  }
  return this;
}

void VarMapEntry::dbgdump() { dumpLine(numbered("$", number).getString()); }

ConstMapEntry::ConstMapEntry(const MapSpec* map, const char* slot)
    : MsgMapEntry(map, slot, constMap), value(emptyConstant()) {}

qlStrobj ConstMapEntry::cdsMap(MapSpec* /*spec*/) { return value; }

qlStrobj ConstMapEntry::fmtMap(MapSpec* /*spec*/) { return lineStart() << value; }

qlStrobj ConstMapEntry::svalue(MapSpec* /*spec*/) { return qlStrobj(quillon::withoutEnds(value.view())); }

MsgMapEntry* ConstMapEntry::addRule(const char* text, MapSpec* /*spec*/) {
  value = isQuoted(text) ? quillon::sharedText(text) : quillon::sharedText((qlStrobj("\"") << text << "\"").view());
  return this;
}

void ConstMapEntry::dbgdump() { dumpLine(value.getString()); }

MsgMapEntry* NotifMapEntry::addRule(const char* rule, MapSpec* /*spec*/) {
  text = isQuoted(rule) ? qlStrobj(quillon::withoutEnds(rule)) : qlStrobj(rule);
  return this;
}

void NotifMapEntry::dbgdump() { dumpLine(text.getString()); }

qlStrobj SourceMapEntry::fmtMap(MapSpec* /*spec*/) { return lineStart() << keyword(); }

qlStrobj SourceMapEntry::svalue(MapSpec* /*spec*/) { return word(); }

void SourceMapEntry::dbgdump() { dumpLine(keyword()); }
