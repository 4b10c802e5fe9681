#include "codeset/uls.h"

#include <algorithm>

#include "codeset/text.h"
#include "codeset/text_helpers.h"

using quillon::CaseForm;
using quillon::Codes;
using quillon::MbReader;
using quillon::MbWriter;
using quillon::WideReader;
using quillon::WideWriter;

namespace {

constexpr std::uint32_t kQuestionMark = '?';

using Text = quillon::Text<char>;
using WideText = quillon::Text<wchar_t>;

const nxl_cs& resolve(nxl_cs* cs) { return cs ? *cs : *nxl_get_def_cs(); }

MbReader readerOf(nxl_cs* cs, const char* text, int len) { return {resolve(cs), Text(text, len)}; }

int compare(nxl_cs* cs, Text a, Text b, bool folded, int most) {
  const nxl_cs& codeset = resolve(cs);
  return quillon::compare(Codes<MbReader>({codeset, a}, folded, most), Codes<MbReader>({codeset, b}, folded, most));
}

int find(nxl_cs* cs, Text text, Text part, bool folded, int* found_len) {
  const nxl_cs& codeset = resolve(cs);
  return quillon::find(MbReader(codeset, text), MbReader(codeset, part), folded, found_len);
}

int span(nxl_cs* cs, Text text, Text set, bool in) {
  const nxl_cs& codeset = resolve(cs);
  return quillon::span(MbReader(codeset, text), MbReader(codeset, set), in);
}

int mapCase(nxl_cs* cs, Text src, char* dst, int dst_len, CaseForm form) {
  const nxl_cs& codeset = resolve(cs);
  return quillon::deliver(dst, dst_len, src.terminated, [&](int room) {
    return quillon::mapCase(MbReader(codeset, src), MbWriter(codeset, dst, room), form);
  });
}

// Adds a text in one form to a target in another; a character without counterpart becomes "?".
template <class Reader, class Writer>
int convert(Reader reader, Writer writer) {
  typename Reader::Character c;
  while (reader.next(c)) {
    const std::uint32_t code = c.code < quillon::kStray ? static_cast<std::uint32_t>(c.code) : kQuestionMark;
    bool known = true;
    if (writer.put(&code, 1, &known)) continue;
    if (known || !writer.put(&kQuestionMark, 1, &known)) break;
  }
  return writer.finish();
}

int compare(WideText a, WideText b, bool folded, int most) {
  return quillon::compare(Codes<WideReader>(WideReader(a), folded, most),
                          Codes<WideReader>(WideReader(b), folded, most));
}

int find(WideText text, WideText part, bool folded, int* found_len) {
  return quillon::find(WideReader(text), WideReader(part), folded, found_len);
}

int mapCase(WideText src, wchar_t* dst, int dst_len, CaseForm form) {
  return quillon::deliver(dst, dst_len, src.terminated,
                          [&](int room) { return quillon::mapCase(WideReader(src), WideWriter(dst, room), form); });
}

// Adds what `add` writes, given the room and what stands there, behind the terminated text in `dst`.
template <class Unit, class Add>
int append(Unit* dst, int dst_len, Add add) {
  if (dst && dst_len <= 0) return 0;
  const Unit* const end = dst ? std::find(dst, dst + dst_len, Unit{}) : nullptr;
  if (dst && end == dst + dst_len) return 0;
  const int used = add(dst_len - 1, static_cast<int>(end - dst));
  if (dst) dst[used] = 0;
  return used + 1;
}

bool isCharacter(wchar_t c) {
  quillon::WideReader::Character found;
  return WideReader(WideText(&c, 1)).next(found) && found.code < quillon::kStray;
}

}  // namespace

int nxl_mb_len(nxl_cs* cs, const char* text, int len) { return nxl_mb_next(cs, text, len, 0, nullptr); }

int nxl_mb_count(nxl_cs* cs, const char* text, int len) { return quillon::countCharacters(readerOf(cs, text, len)); }

int nxl_mb_valid(nxl_cs* cs, const char* text, int len, int* where) {
  const Text all(text, len);
  MbReader reader(resolve(cs), all);
  const int end = quillon::validUpTo(reader);
  if (where) *where = end;
  return end == all.size() && !reader.shifted();
}

int nxl_mb_next(nxl_cs* cs, const char* text, int len, int at, wchar_t* c) {
  const Text all(text, len);
  MbReader reader(resolve(cs), all, std::clamp(at, 0, all.size()));
  MbReader::Character found;
  reader.next(found);
  if (c) *c = found.code < quillon::kStray ? static_cast<wchar_t>(found.code) : kNoWideCharacter;
  return reader.offset();
}

int nxl_mb_prev(nxl_cs* cs, const char* text, int len, int at) {
  const nxl_cs& codeset = resolve(cs);
  const Text all(text, len);
  at = std::clamp(at, 0, all.size());
  if (at == 0) return 0;
  MbReader reader(codeset, all, quillon::placeBefore(codeset, text, at));
  MbReader::Character c;
  int place = reader.offset();
  for (int next = place; next < at && reader.next(c); next = reader.offset()) place = next;
  return place;
}

int nxl_str_copy(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len) {
  const nxl_cs& codeset = resolve(cs);
  const Text text(src, src_len);
  if (dst == src) dst_len = std::min(dst_len, text.size() + text.terminated);
  return quillon::deliver(dst, dst_len, text.terminated, [&](int room) {
    return quillon::copyText(MbReader(codeset, text), MbWriter(codeset, dst, room));
  });
}

int nxl_str_append(nxl_cs* cs, char* dst, int dst_len, const char* src, int src_len) {
  const nxl_cs& codeset = resolve(cs);
  return append(dst, dst_len, [&](int room, int used) {
    MbReader before(codeset, Text(dst, used), used);
    MbWriter writer(codeset, dst, room);
    writer.resume(used, before.shifted());
    return quillon::copyText(MbReader(codeset, Text(src, src_len)), writer);
  });
}

int nxl_str_chr(nxl_cs* cs, const char* text, int len, wchar_t c) {
  return quillon::findCharacter(readerOf(cs, text, len), c, false);
}

int nxl_str_rchr(nxl_cs* cs, const char* text, int len, wchar_t c) {
  return quillon::findCharacter(readerOf(cs, text, len), c, true);
}

int nxl_str_find(nxl_cs* cs, const char* text, int len, const char* part, int part_len, int* found_len) {
  return find(cs, {text, len}, {part, part_len}, false, found_len);
}

int nxl_str_casefind(nxl_cs* cs, const char* text, int len, const char* part, int part_len, int* found_len) {
  return find(cs, {text, len}, {part, part_len}, true, found_len);
}

int nxl_str_span(nxl_cs* cs, const char* text, int len, const char* set, int set_len) {
  return span(cs, {text, len}, {set, set_len}, true);
}

int nxl_str_cspan(nxl_cs* cs, const char* text, int len, const char* set, int set_len) {
  return span(cs, {text, len}, {set, set_len}, false);
}

int nxl_str_cmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len) {
  return compare(cs, {a, a_len}, {b, b_len}, false, INT_MAX);
}

int nxl_str_ncmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len, int n) {
  return compare(cs, {a, a_len}, {b, b_len}, false, n);
}

int nxl_str_casecmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len) {
  return compare(cs, {a, a_len}, {b, b_len}, true, INT_MAX);
}

int nxl_str_ncasecmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len, int n) {
  return compare(cs, {a, a_len}, {b, b_len}, true, n);
}

int nxl_str_upper(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len) {
  return mapCase(cs, {src, src_len}, dst, dst_len, CaseForm::kUpper);
}

int nxl_str_lower(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len) {
  return mapCase(cs, {src, src_len}, dst, dst_len, CaseForm::kLower);
}

int nxl_str_fold(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len) {
  return mapCase(cs, {src, src_len}, dst, dst_len, CaseForm::kFold);
}

int nxl_str_width(nxl_cs* cs, const char* text, int len) { return quillon::width(readerOf(cs, text, len)); }

int nxl_to_wcs(nxl_cs* cs, const char* src, int src_len, wchar_t* dst, int dst_len) {
  const Text text(src, src_len);
  return quillon::deliver(dst, dst_len, text.terminated,
                          [&](int room) { return convert(MbReader(resolve(cs), text), WideWriter(dst, room)); });
}

int nxl_from_wcs(nxl_cs* cs, const wchar_t* src, int src_len, char* dst, int dst_len) {
  const WideText text(src, src_len);
  return quillon::deliver(dst, dst_len, text.terminated,
                          [&](int room) { return convert(WideReader(text), MbWriter(resolve(cs), dst, room)); });
}

int nxl_wcs_len(const wchar_t* text) { return WideText(text, -1).size(); }

int nxl_wcs_valid(const wchar_t* text, int len, int* where) {
  const WideText all(text, len);
  WideReader reader(all);
  const int end = quillon::validUpTo(reader);
  if (where) *where = end;
  return end == all.size();
}

int nxl_wcs_copy(const wchar_t* src, int src_len, wchar_t* dst, int dst_len) {
  const WideText text(src, src_len);
  return quillon::deliver(dst, dst_len, text.terminated,
                          [&](int room) { return quillon::copyText(WideReader(text), WideWriter(dst, room)); });
}

int nxl_wcs_append(wchar_t* dst, int dst_len, const wchar_t* src, int src_len) {
  return append(dst, dst_len, [&](int room, int used) {
    WideWriter writer(dst, room);
    writer.resume(used);
    return quillon::copyText(WideReader(WideText(src, src_len)), writer);
  });
}

int nxl_wcs_chr(const wchar_t* text, int len, wchar_t c) {
  return quillon::findCharacter(WideReader(WideText(text, len)), c, false);
}

int nxl_wcs_rchr(const wchar_t* text, int len, wchar_t c) {
  return quillon::findCharacter(WideReader(WideText(text, len)), c, true);
}

int nxl_wcs_find(const wchar_t* text, int len, const wchar_t* part, int part_len, int* found_len) {
  return find({text, len}, {part, part_len}, false, found_len);
}

int nxl_wcs_casefind(const wchar_t* text, int len, const wchar_t* part, int part_len, int* found_len) {
  return find({text, len}, {part, part_len}, true, found_len);
}

int nxl_wcs_span(const wchar_t* text, int len, const wchar_t* set, int set_len) {
  return quillon::span(WideReader(WideText(text, len)), WideReader(WideText(set, set_len)), true);
}

int nxl_wcs_cspan(const wchar_t* text, int len, const wchar_t* set, int set_len) {
  return quillon::span(WideReader(WideText(text, len)), WideReader(WideText(set, set_len)), false);
}

int nxl_wcs_cmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len) {
  return compare({a, a_len}, {b, b_len}, false, INT_MAX);
}

int nxl_wcs_ncmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len, int n) {
  return compare({a, a_len}, {b, b_len}, false, n);
}

int nxl_wcs_casecmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len) {
  return compare({a, a_len}, {b, b_len}, true, INT_MAX);
}

int nxl_wcs_ncasecmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len, int n) {
  return compare({a, a_len}, {b, b_len}, true, n);
}

int nxl_wcs_upper(const wchar_t* src, int src_len, wchar_t* dst, int dst_len) {
  return mapCase({src, src_len}, dst, dst_len, CaseForm::kUpper);
}

int nxl_wcs_lower(const wchar_t* src, int src_len, wchar_t* dst, int dst_len) {
  return mapCase({src, src_len}, dst, dst_len, CaseForm::kLower);
}

int nxl_wcs_fold(const wchar_t* src, int src_len, wchar_t* dst, int dst_len) {
  return mapCase({src, src_len}, dst, dst_len, CaseForm::kFold);
}

int nxl_wcs_width(const wchar_t* text, int len) { return quillon::width(WideReader(WideText(text, len))); }

int nxl_wc_is(wchar_t c, NxlClass which) {
  return isCharacter(c) && quillon::isOfClass(static_cast<std::uint32_t>(c), which);
}

wchar_t nxl_wc_upper(wchar_t c) {
  return isCharacter(c) ? static_cast<wchar_t>(quillon::upperOf(static_cast<std::uint32_t>(c))) : c;
}

wchar_t nxl_wc_lower(wchar_t c) {
  return isCharacter(c) ? static_cast<wchar_t>(quillon::lowerOf(static_cast<std::uint32_t>(c))) : c;
}
