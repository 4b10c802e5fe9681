#include "codeset/codeset.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include "codeset/forms.h"
#include "codeset/image.h"
#include "codeset/init.h"
#include "codeset/tables.h"

using quillon::Registry;

namespace {

constexpr int kNormalisedBytes = 128;

std::uint16_t word(const unsigned char* table, std::size_t offset) {
  return static_cast<std::uint16_t>(quillon::load16(table + offset));
}

void takeTable(nxl_cs& cs, unsigned char* table, std::uint32_t size) {
  const bool ebcdic = word(table, quillon::kFamilyOffset) == quillon::kEbcdicFamily;
  cs.table = table;
  cs.table_size = size;
  cs.table_loaded = 1;
  cs.kind = ebcdic ? std::uint16_t{kEbcdicKind} : word(table, quillon::kKindOffset);
  cs.param_a = word(table, quillon::kParamAOffset);
  cs.param_b = word(table, quillon::kParamBOffset);
  std::memcpy(cs.header_bytes, table + quillon::kHeaderBytesOffset, sizeof cs.header_bytes);
  cs.forms = quillon::makeForms(cs);
}

}  // namespace

namespace quillon {

nxl_cs* codesetOf(unsigned char* table, std::uint32_t size) {
  auto* cs = new (std::nothrow) nxl_cs;
  if (cs) {
    takeTable(*cs, table, size);
  } else {
    std::free(table);
  }
  return cs;
}

Column::Column(const nxl_cs& cs, std::size_t offset) {
  static const std::array<unsigned char, 512> nothing = [] {
    std::array<unsigned char, 512> entries;
    entries.fill(0xFF);
    return entries;
  }();
  base_ = cs.table_size >= kMinTableBytes ? cs.table + offset : nothing.data();
}

}  // namespace quillon

nxl_cs* cs_new(const char* name) {
  const bool utf8 = std::strcmp(name, "UTF8") == 0;
  if (utf8 || std::strcmp(name, "INTERNAL37") == 0) {
    auto* cs = new (std::nothrow) nxl_cs;
    if (cs) cs->kind = utf8 ? kUtf8Kind : kInternal37Kind;
    return cs;
  }
  std::uint32_t size = 0;
  unsigned char* table = get_table(name, &size);
  return table ? quillon::codesetOf(table, size) : nullptr;
}

nxl_cs* nxl_cs_new(const char* name) {
  if (!name) return nullptr;
  if (std::strpbrk(name, "/\\")) return cs_new(name);
  char normalised[kNormalisedBytes];
  get_table_name(name, normalised, sizeof normalised);
  return cs_new(normalised);
}

int nxl_cs_free(nxl_cs* cs) {
  Registry& registry = Registry::instance();
  if (!cs || registry.isBuiltIn(cs)) return 0;
  registry.forget(cs);
  std::free(cs->table);
  quillon::freeForms(cs->forms);
  delete cs;
  return 0;
}

const unsigned char* nxl_cs_table(nxl_cs* cs, std::uint32_t* size_out) {
  if (!cs) cs = nxl_get_def_cs();
  if (size_out) *size_out = cs->table_size;
  return cs->table;
}
