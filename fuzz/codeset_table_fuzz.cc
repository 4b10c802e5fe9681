// A conversion table and a text. The first two bytes say how long the text is, which follows; the rest is the table.
// Nothing may be read or written outside, and a text in two pieces must give what it gives in one.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "codeset/codeset.h"
#include "codeset/image.h"
#include "codeset/tables.h"

namespace {

template <class Src, class Dst>
using Converter = int(nxl_cs*, const Src**, int*, Dst**, int*);

// Converts `source` cut at `split`, with targets of `room` units, in blocks of their own that the sanitizer guards.
template <class Src, class Dst>
std::basic_string<Dst> convert(Converter<Src, Dst>* converter, nxl_cs cs, const std::basic_string<Src>& source,
                               std::size_t split, int room) {
  std::basic_string<Dst> result;
  std::size_t begin = 0;
  for (const std::size_t end : {split, source.size()}) {
    while (begin < end) {
      const std::basic_string<Src> piece(source, begin, end - begin);
      const Src* src = piece.data();
      int left = static_cast<int>(piece.size());
      auto* target = new Dst[static_cast<std::size_t>(room)];
      Dst* dst = target;
      int free = room;
      const int code = converter(&cs, &src, &left, &dst, &free);
      result.append(target, dst);
      delete[] target;
      begin = end - static_cast<std::size_t>(left);
      if (code != 1) break;
    }
  }
  return result;
}

template <class Src, class Dst>
void check(Converter<Src, Dst>* converter, const nxl_cs& cs, const std::basic_string<Src>& source) {
  const int ample = static_cast<int>(4 * source.size() + 8);
  const auto whole = convert(converter, cs, source, source.size(), ample);
  if (whole != convert(converter, cs, source, source.size() / 2, ample)) std::abort();
  if (whole != convert(converter, cs, source, source.size(), 4)) std::abort();
  if (whole != convert(converter, cs, source, source.size() / 3, 37)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t text_size = std::min<std::size_t>(quillon::load16(data), size - 2);
  const std::string text(reinterpret_cast<const char*>(data) + 2, text_size);
  const std::size_t given = size - 2 - text_size;
  const std::size_t table_size = std::max(given, quillon::kMinTableBytes);  // a shorter file is no table
  auto* table = static_cast<unsigned char*>(std::calloc(1, table_size));
  if (!table) return 0;
  if (given > 0) std::memcpy(table, data + 2 + text_size, given);
  nxl_cs* cs = quillon::codesetOf(table, static_cast<std::uint32_t>(table_size));
  if (!cs) return 0;

  std::u16string units(text_size / 2, u'\0');
  std::memcpy(units.data(), text.data(), units.size() * 2);
  check(nxl_to_utf8_r, *cs, text);
  check(nxl_from_utf8_r, *cs, text);
  check(nxl_to_ucs2_r, *cs, text);
  check(nxl_from_ucs2_r, *cs, units);
  nxl_cs_free(cs);
  return 0;
}
