#include "codeset/codeset.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include "codeset/ascii.h"
#include "codeset/ebcdic.h"
#include "codeset/image.h"
#include "codeset/init.h"
#include "codeset/tables.h"

using quillon::Registry;

namespace {

constexpr int kNormalisedBytes = 128;

std::uint16_t word(const unsigned char* table, std::size_t offset) {
  return static_cast<std::uint16_t>(quillon::load16(table + offset));
}

std::uint32_t* allocateForms(std::size_t count) {
  return static_cast<std::uint32_t*>(std::calloc(count, sizeof(std::uint32_t)));
}

// The UTF-8 of every byte. Null, which only costs time later, when memory is short.
template <class Source>
std::uint32_t* makeByteForms(const nxl_cs& cs) {
  std::uint32_t* forms = allocateForms(256);
  const Source source(cs);
  for (unsigned byte = 0; forms && byte < 256; ++byte) {
    const auto unit = static_cast<unsigned char>(byte);
    forms[byte] = quillon::utf8Form(source.next(&unit, &unit + 1).character);
  }
  return forms;
}

// The UTF-8 of every pair of bytes that begins with a byte from 0x80 on and that this very source takes for one
// character: in a damaged table of GB 18030, say, the beginning of a four-byte code may have a character too.
template <class Source>
std::uint32_t* makePairForms(const nxl_cs& cs) {
  std::uint32_t* forms = allocateForms(32768);
  const Source source(cs);
  for (unsigned pair = 0; forms && pair < 128 * 256; ++pair) {
    const unsigned char bytes[] = {static_cast<unsigned char>(0x80 | pair >> 8), static_cast<unsigned char>(pair)};
    const quillon::Step step = source.next(bytes, bytes + 2);
    if (step.length == 2 && step.character != quillon::kSubstitute) forms[pair] = quillon::utf8Form(step.character);
  }
  return forms;
}

// The form of a character's bytes; 0 for none below U+10000 and for four bytes, which fit in no form.
template <class Target>
std::uint32_t formIn(const Target& target, char32_t c) {
  unsigned char bytes[4];
  const int length = target.put(c, bytes, bytes + 4);
  if (length > 3 || (c >= 0xD800 && c < 0xE000)) return 0;
  std::uint32_t form = static_cast<std::uint32_t>(length) << 24;
  for (int i = 0; i < length; ++i) form |= static_cast<std::uint32_t>(bytes[i]) << 8 * i;
  return form;
}

// The forms of all characters of UCS-2: first where the page for each high byte begins, then the pages. A page like the
// one before is not kept twice, so that a small codeset takes a few kilobytes.
template <class Target>
std::uint32_t* makeCodes(const nxl_cs& cs) {
  constexpr std::size_t kPage = 256;
  std::uint32_t* codes = allocateForms(kPage + 256 * kPage);
  if (!codes) return nullptr;
  const Target target(cs);
  std::size_t used = kPage;
  for (char32_t high = 0; high < 256; ++high) {
    std::uint32_t* page = codes + used;
    for (char32_t low = 0; low < kPage; ++low) page[low] = formIn(target, high << 8 | low);
    const bool repeated = high > 0 && std::memcmp(page, page - kPage, kPage * sizeof *page) == 0;
    if (!repeated) used += kPage;
    codes[high] = static_cast<std::uint32_t>(used - kPage);
  }
  void* smaller = std::realloc(codes, used * sizeof *codes);
  return smaller ? static_cast<std::uint32_t*>(smaller) : codes;
}

void makeForms(nxl_cs& cs) {
  cs.forms_kind = cs.kind;
  switch (cs.kind) {
    case kSingleByteKind:
      cs.forms = makeByteForms<quillon::SingleByteSource>(cs);
      cs.codes = makeCodes<quillon::SingleByteTarget>(cs);
      break;
    case kEbcdicKind:
      cs.forms = makeByteForms<quillon::EbcdicSource>(cs);
      cs.codes = makeCodes<quillon::EbcdicTarget>(cs);
      break;
    case kDoubleByteKind:
      cs.forms = makePairForms<quillon::DoubleByteSource>(cs);
      cs.codes = makeCodes<quillon::DoubleByteTarget>(cs);
      break;
    case kGb18030Kind:
      cs.forms = makePairForms<quillon::Gb18030Source>(cs);
      cs.codes = makeCodes<quillon::Gb18030Target>(cs);
      break;
    case kMultiByteKind:
      cs.forms = makePairForms<quillon::MultiByteSource>(cs);
      cs.codes = makeCodes<quillon::MultiByteTarget>(cs);
      break;
    default:
      break;
  }
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
  makeForms(cs);
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

const std::uint32_t* codesFor(const nxl_cs& cs, NxlKind kind) {
  static const std::array<std::uint32_t, 512> nothing = [] {
    std::array<std::uint32_t, 512> codes{};
    std::fill_n(codes.begin(), 256, 256u);
    return codes;
  }();
  return cs.codes && cs.forms_kind == kind ? cs.codes : nothing.data();
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
  std::free(cs->forms);
  std::free(cs->codes);
  delete cs;
  return 0;
}

const unsigned char* nxl_cs_table(nxl_cs* cs, std::uint32_t* size_out) {
  if (!cs) cs = nxl_get_def_cs();
  if (size_out) *size_out = cs->table_size;
  return cs->table;
}
