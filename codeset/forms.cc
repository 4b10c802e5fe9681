#include "codeset/forms.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "codeset/ascii.h"
#include "codeset/ebcdic.h"

namespace quillon {
namespace {

std::uint32_t* allocate(std::size_t count) {
  return static_cast<std::uint32_t*>(std::calloc(count, sizeof(std::uint32_t)));
}

// The forms of all bytes.
template <class Source>
void fillBytes(const Source& source, std::uint32_t* forms) {
  for (unsigned i = 0; i < 256; ++i) {
    const auto byte = static_cast<unsigned char>(i);
    forms[i] = utf8Form(source.next(&byte, &byte + 1).character);
  }
}

// The bytes that begin a pair, from the first to the last but for the widest gap between them. Without any it is FF,
// which does no harm: it is asked for.
template <class Source>
void findLeads(const Source& source, ByteRange (&leads)[2]) {
  int first = 0xFF, last = 0xFF, gap_begin = 0xFF, gap_end = 0xFF;
  for (int i = 0xFF; i >= 0x80; --i) {
    const auto byte = static_cast<unsigned char>(i);
    if (source.next(&byte, &byte + 1).length != 0) continue;
    if (first == 0xFF) last = first = gap_begin = gap_end = i;
    if (first - i > gap_end - gap_begin) {
      gap_begin = i;
      gap_end = first;
    }
    first = i;
  }
  const auto range = [](int from, int to) {
    return ByteRange{static_cast<std::uint8_t>(from), static_cast<std::uint8_t>(to - from)};
  };
  leads[0] = range(first, gap_begin);
  leads[1] = range(gap_end, last);
}

bool isIn(unsigned byte, ByteRange range) { return byte >= range.first && byte - range.first <= range.span; }

// The forms of all pairs. What the marks take for one byte or for two has a form
// only where this very source takes as many: in a damaged table of GB 18030, say, the beginning of a four-byte code may
// have a character too.
template <class Source>
void fillPairs(const Source& source, Forms& forms) {
  for (unsigned pair = 0; pair < kPairForms; ++pair) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(pair >> 8), static_cast<unsigned char>(pair)};
    const int size = isIn(bytes[0], forms.leads[0]) || isIn(bytes[0], forms.leads[1]) ? 2 : 1;
    const Step step = source.next(bytes, bytes + size);
    if (step.length == size) forms.units[pair] = utf8Form(step.character);
  }
}

void fillFourBytes(const Gb18030Source& source, std::uint32_t* forms) {
  for (unsigned number = 0; number < kFourByteForms; ++number) {
    const unsigned char bytes[] = {
        static_cast<unsigned char>(0x81 + number / 12600), static_cast<unsigned char>(0x30 + number / 1260 % 10),
        static_cast<unsigned char>(0x81 + number / 10 % 126), static_cast<unsigned char>(0x30 + number % 10)};
    forms[number] = utf8Form(source.next(bytes, bytes + sizeof bytes).character);
  }
}

void fillMixed(nxl_cs cs, std::uint32_t* forms) {
  for (unsigned i = 0; i < kMixedForms; ++i) {
    const bool pair = i >= 256;
    const unsigned char bytes[] = {static_cast<unsigned char>(pair ? (i >> 8) + 0x3F : i),
                                   static_cast<unsigned char>(i)};
    cs.state1 = pair;
    MixedEbcdicSource source(cs);
    const Step step = source.next(bytes, bytes + 2);
    if (step.length == 1 + pair && step.character != kNoCharacter) forms[i] = utf8Form(step.character);
  }
}

// The form of a character's bytes; 0 for a surrogate, and for bytes that no form can hold.
template <class Target>
std::uint32_t formOf(Target& target, char32_t c) {
  unsigned char bytes[4] = {};
  const int length = c < 0xD800 || c >= 0xE000 ? target.put(c, bytes, bytes + sizeof bytes) : 0;
  if (length == 0 || bytes[length - 1] == 0) return 0;
  std::uint32_t form = 0;
  for (int i = length - 1; i >= 0; --i) form = form << 8 | bytes[i];
  return form;
}

// The table of codeForm(): what its first two bytes lead to, zeros, and the forms of all characters, 64 at a time.
// Those that equal the ones before are not kept twice, so that a small codeset takes little more than the first part.
template <class Write>
std::uint32_t* makeCodes(Write formOfCharacter) {
  constexpr std::uint32_t kPage = 64, kFirstTrail = 0x80;
  std::uint32_t* codes = allocate(kCodeLeads + kPage + 0x10000);
  if (!codes) return nullptr;
  std::uint32_t* const longer = codes + std::size_t{0xE0} * 64;
  std::fill(codes, longer, std::uint32_t{kCodeLeads});
  std::fill(longer, codes + kCodeLeads, std::uint32_t{kCodeLeads} - kFirstTrail);
  std::uint32_t used = kCodeLeads + kPage;
  for (char32_t first = 0; first < 0x10000; first += kPage) {
    std::uint32_t* page = codes + used;
    for (char32_t i = 0; i < kPage; ++i) page[i] = formOfCharacter(first + i);
    const bool repeated = std::memcmp(page, page - kPage, kPage * sizeof *page) == 0;
    if (!repeated) used += kPage;
    const std::uint32_t begin = used - kPage;
    if (first < 0x80) {
      for (std::uint32_t c = 0; c < kPage; ++c) std::fill_n(codes + (first + c) * std::size_t{64}, 64, begin + c);
    } else if (first < 0x800) {
      for (std::uint32_t c = 0; c < kPage; ++c) codes[0xC0 * 64 + first + c] = begin + c;
    } else {
      longer[first / 64] = begin - kFirstTrail;
    }
  }
  void* smaller = std::realloc(codes, used * sizeof *codes);
  return smaller ? static_cast<std::uint32_t*>(smaller) : codes;
}

template <class Target>
std::uint32_t* makeCodes(const nxl_cs& cs) {
  return makeCodes([target = Target(cs)](char32_t c) mutable { return formOf(target, c); });
}

template <class Source, class Target>
bool makeBytes(const nxl_cs& cs, Forms& forms) {
  forms.units = allocate(256);
  forms.codes = makeCodes<Target>(cs);
  if (!forms.units || !forms.codes) return false;
  fillBytes(Source(cs), forms.units);
  Target target(cs);
  for (unsigned char* single = forms.singles; single != std::end(forms.singles); ++single) {
    target.put(static_cast<char32_t>(single - forms.singles), single, single + 1);
  }
  return true;
}

template <class Source, class Target>
bool makePairs(const nxl_cs& cs, Forms& forms, std::size_t units = kPairForms) {
  forms.units = allocate(units);
  forms.codes = makeCodes<Target>(cs);
  if (!forms.units || !forms.codes) return false;
  findLeads(Source(cs), forms.leads);
  fillPairs(Source(cs), forms);
  return true;
}

bool makeMixed(const nxl_cs& cs, Forms& forms) {
  nxl_cs state = cs;
  const MixedEbcdicTarget target(state);
  for (unsigned char c = 0; c < 0x80; ++c) {
    const std::uint32_t code = target.code(c);
    if (code > 0xFF) return false;  // a damaged table
    forms.singles[c] = static_cast<unsigned char>(code);
  }
  forms.units = allocate(kMixedForms);
  forms.codes = makeCodes([&target](char32_t c) {
    const std::uint32_t code = c < 0xD800 || c >= 0xE000 ? target.code(c) : 0;
    return (code & 0xFF) == 0 ? 0 : code < 0x100 ? code : (code & 0xFF) << 8 | code >> 8;
  });
  if (!forms.units || !forms.codes) return false;
  fillMixed(cs, forms.units);
  return true;
}

bool fill(const nxl_cs& cs, Forms& forms) {
  switch (cs.kind) {
    case kSingleByteKind:
      return makeBytes<SingleByteSource, SingleByteTarget>(cs, forms);
    case kDoubleByteKind:
      return makePairs<DoubleByteSource, DoubleByteTarget>(cs, forms);
    case kMultiByteKind:
      return makePairs<MultiByteSource, MultiByteTarget>(cs, forms);
    case kMixedEbcdicKind:
      return makeMixed(cs, forms);
    case kEbcdicKind:
      return makeBytes<EbcdicSource, EbcdicTarget>(cs, forms);
    case kGb18030Kind:
      if (!makePairs<Gb18030Source, Gb18030Target>(cs, forms, kPairForms + kFourByteForms)) return false;
      fillFourBytes(Gb18030Source(cs), forms.units + kPairForms);
      return true;
    default:
      return false;
  }
}

}  // namespace

Forms* makeForms(const nxl_cs& cs) {
  auto* forms = new (std::nothrow) Forms{.kind = cs.kind};
  if (forms && fill(cs, *forms)) return forms;
  freeForms(forms);
  return nullptr;
}

void freeForms(Forms* forms) {
  if (!forms) return;
  std::free(forms->units);
  std::free(forms->codes);
  delete forms;
}

}  // namespace quillon
