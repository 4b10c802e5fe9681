#include <algorithm>
#include <cstdlib>
#include <future>
#include <iterator>
#include <random>

#include "codeset/conv.h"
#include "codeset/tables.h"
#include "tests/codeset/scratch.h"

namespace {

using namespace std::string_literals;

class Convert : public Scratch {
 protected:
  void SetUp() override {
    Scratch::SetUp();
    set("NXLDIR", CODESET_DATA);
  }

  static nxl_cs* codeset(const std::string& name) {
    static std::map<std::string, Codeset> loaded;
    Codeset& cs = loaded[name];
    if (!cs) cs.reset(nxl_cs_new(name.c_str()));
    EXPECT_TRUE(cs) << name;
    return cs.get();
  }
};

// One call: "text|code|bytes used", where text shows what was written.
template <class Function>
std::string call(Function function, nxl_cs* cs, const std::string& source, int room) {
  nxl_cs copy = *cs;
  char target[64];
  std::fill_n(target, sizeof target, '\xAA');
  const char* src = source.data();
  char* dst = target;
  int src_left = static_cast<int>(source.size());
  int dst_left = room;
  const int code = function(&copy, &src, &src_left, &dst, &dst_left);
  EXPECT_EQ(room, dst - target + dst_left);
  EXPECT_EQ(static_cast<long>(sizeof target) - room, std::count(target + room, std::end(target), '\xAA'))
      << "written behind the target";
  return std::string(target, dst) + "|" + std::to_string(code) + "|" + std::to_string(src - source.data());
}

struct Case {
  const char* codeset;
  std::string source;
  int room;
  std::string expected;
};

TEST_F(Convert, KeepsTheContractTowardsUtf8) {
  const Case cases[] = {
      {"ISO88591", "a\xE9", 8, "a\u00e9|0|2"},
      {"ISO88591", "a\xE9", 2, "a|1|1"},  // two bytes do not fit in one
      {"ISO88591", "", 0, "|0|0"},
      {"ISO88591", "a", 0, "|1|0"},
      {"CP1252", "\x80\x81", 8, "\u20ac?|0|2"},  // 0x81 is not assigned
      {"SHIFTJIS", "a\x82", 8, "a|2|1"},
      {"SHIFTJIS", "\x82\n", 8, "?\n|0|2"},  // the newline survives a stray lead byte
      {"SHIFTJIS", "\x82\xFF.", 8, "?.|0|3"},
      {"EUCJP", "\x8F\xB0\xA1\x8E\xB1", 8, "\u4e02\uff71|0|5"},
      {"EUCJP", "\x8F\xB0", 8, "|2|0"},
      {"EUCJP", "\x8F\xB0n", 8, "?n|0|3"},
      {"GB18030", "\x90\x30\x81\x30", 8, "\U00010000|0|4"},
      {"GB18030", "\xE3\x32\x9A\x35", 8, "\U0010FFFF|0|4"},
      {"GB18030", "\xE3\x32\x9A\x36", 8, "?|0|4"},
      {"GB18030", "\x81\x30\x81", 8, "|2|0"},
      {"GB18030", "\x81\x30x", 8, "?0x|0|3"},
      {"939", "\xC1\x0E\x44\x81\x0F\x81", 8, "A\u3042a|0|6"},
      {"939", "\x0F\x0E\x0E\x44", 8, "|2|3"},
      {"939", "\x0E\x44\x81\x0F", 3, "\u3042|1|3"},
      {"939", "\x0E\x25\x44\xFF", 8, "\n?|0|4"},  // a control among double bytes; a pair without a character
      {"INTERNAL37", "\xC1\x81", 8, "\xC1\x81|0|2"},
      {"UTF8", "\xC3\xA9\xFF\xC3", 8, "\xC3\xA9\xFF\xC3|0|4"},
      {"UTF8", "a\u20ac", 3, "a|1|1"},
      {"UTF8", "a\xE2\x82", 2, "a\xE2|1|2"},        // not a character, so it may be cut
      {"UTF8", "\xED\xA0\x80", 2, "\xED\xA0|1|2"},  // a surrogate neither
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected, call(nxl_to_utf8_r, codeset(c.codeset), c.source, c.room)) << c.codeset << ' ' << c.source;
  }
}

TEST_F(Convert, KeepsTheContractFromUtf8) {
  const Case cases[] = {
      {"ISO88591", "a\u00e9\u20ac\U0001F600", 8, "a\xE9??|0|10"},
      {"ISO88591", "\xC3", 8, "|2|0"},
      {"ISO88591", "\xC3z\xFF\xE2\x82z\xED\xA0\x80\xC0\x80", 16, "?z??z?????|0|11"},  // one for each maximal subpart
      {"EUCJP", "\u4e02", 2, "|1|0"},
      {"GB18030", "\u0080\U00010000\U0010FFFF", 12, "\x81\x30\x81\x30\x90\x30\x81\x30\xE3\x32\x9A\x35|0|10"},
      {"INTERNAL37", "Aa[", 8, "\xC1\x81\x6F|0|3"},
      {"INTERNAL37", "Iz9+?;\"", 8, "\xC9\xA9\xF9\x4E\x6F\x5E\x7F|0|7"},
      {"939", "A\u3042a", 8, "\xC1\x0E\x44\x81\x0F\x81|0|5"},
      {"939", "\u3042", 4, "\x0E\x44\x81|0|3"},
      {"939", "\u3042", 3, "|1|0"},  // the shift-in must fit behind it
      {"939", "\x0E\u3042\u20a9", 9, "\x3F\x0E\x44\x81\x0F\x6F|0|7"},
      {"UTF8", "\u20ac", 2, "|1|0"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected, call(nxl_from_utf8_r, codeset(c.codeset), c.source, c.room)) << c.codeset << ' ' << c.source;
  }
}

TEST_F(Convert, Ucs2HasNoSurrogates) {
  char text[16];
  ASSERT_EQ(6, nxl_from_ucs2(codeset("UTF8"), u"a\xD800\u20ac\xDC00", 4, text, 16));
  EXPECT_EQ("a?\u20ac?", std::string(text, 6));
  char16_t units[8] = {};
  EXPECT_EQ(2, nxl_to_ucs2(codeset("UTF8"), "\U0001F600\u00e9", 6, units, 8));
  EXPECT_EQ(u"?\u00e9", std::u16string(units));
  EXPECT_EQ(1, nxl_to_ucs2(codeset("GB18030"), "\x90\x30\x81\x30", 4, units, 8));
  EXPECT_EQ(u'?', units[0]);
  nxl_set_def_cs(nullptr);
  EXPECT_EQ(2, nxl_to_ucs2(nullptr, "\xFF", -1, units, 8));
  EXPECT_EQ(u"\u00ff", std::u16string(units));
  EXPECT_EQ(3, nxl_from_ucs2(nullptr, u"\u00ff\u0100", -1, text, 8));
  EXPECT_STREQ("\xFF?", text);
}

TEST_F(Convert, FlushResetsTheShift) {
  nxl_cs* cs = codeset("939");
  cs->state1 = 1;
  EXPECT_EQ(0, nxl_to_utf8_r(cs, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(0, cs->state1);
  for (auto* flush : {os_to_utf8_r, utf8_to_utf8_r, ascii_sbcs_to_utf8_r, ebcdic_dbcs_from_utf8_r}) {
    cs->state1 = 1;
    EXPECT_EQ(0, flush(cs, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(0, cs->state1);
  }
}

TEST_F(Convert, WholeStrings) {
  nxl_cs* latin = codeset("ISO88591");
  char text[8];
  EXPECT_EQ(0, nxl_to_utf8(latin, "abc", 3, text, 0));
  EXPECT_EQ(4, nxl_to_utf8(latin, "abc", -1, text, 4));
  EXPECT_STREQ("abc", text);
  EXPECT_EQ(3, nxl_to_utf8(latin, "abc", -1, text, 3));  // what does not fit is dropped, the terminator stays
  EXPECT_STREQ("ab", text);
  EXPECT_EQ(1, nxl_to_utf8(latin, "\xE9", -1, text, 2));
  EXPECT_EQ(1, nxl_to_utf8(latin, nullptr, -1, text, 2));
  EXPECT_EQ(1, nxl_to_utf8(codeset("SHIFTJIS"), "a\x82", 2, text, 8));

  nxl_cs* mixed = codeset("939");
  EXPECT_EQ(3, nxl_to_utf8(mixed, "\x0E\x44\x81", 3, text, 8));
  EXPECT_EQ(0, mixed->state1);
  EXPECT_EQ(5, nxl_from_utf8(mixed, "\u3042", -1, text, 8));
  EXPECT_STREQ("\x0E\x44\x81\x0F", text);
}

TEST_F(Convert, AllocatesForTheWorstCase) {
  int length = 0;
  char* utf8 = nxl_tou_alloc(codeset("CP1252"), "\x80\x80", 2, &length);
  EXPECT_EQ("\u20ac\u20ac", std::string(utf8, static_cast<std::size_t>(length)));
  nxl_free(utf8);
  char* mixed = nxl_fromu_alloc(codeset("939"), "\u0416a\u0416", 5, &length);  // a shift at every character
  EXPECT_EQ("\x0E\x41\xC7\x0F\x81\x0E\x41\xC7\x0F", std::string(mixed, static_cast<std::size_t>(length)));
  nxl_free(mixed);
  EXPECT_EQ(nullptr, nxl_tou_alloc(nullptr, "", -1, &length));
  EXPECT_EQ(nullptr, nxl_tou_alloc(nullptr, "", 1 << 30, &length));
  EXPECT_EQ(0, length);
}

// Bytes of all sorts, with the neighbourhoods that matter frequent.
std::string randomBytes(std::mt19937& random, int size) {
  const std::string frequent = "az\n0\x0E\x0F\x44\x81\x8E\x8F\xA1\xB0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xFE\xFF";
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes += random() % 3 ? frequent[random() % frequent.size()] : static_cast<char>(random());
  }
  return bytes;
}

// Characters of one length side by side, in UTF-8, in pairs and in the four-byte codes of GB 18030, and what ends such
// runs.
std::string randomRuns(std::mt19937& random) {
  const char* const pieces[] = {
      "\u3042",           "\u0436",           "\xC4\xE3", "\x81\x30\x84\x31", "\x81\x30\xFF\x31", "\xFE\x39\xFE\x39",
      "\x81\x3A\x84\x31", "\x90\x30\x81\x30", "a",        "\U0001F600",       "\xED\xA0\x80",     "\xFF"};
  std::string bytes;
  while (bytes.size() < 150) {
    const char* const piece = pieces[random() % std::size(pieces)];
    for (auto count = random() % (random() % 3 ? 30 : 3); count > 0; --count) bytes += piece;
  }
  return bytes;
}

template <class Src, class Dst>
using Piecewise = int(nxl_cs*, const Src**, int*, Dst**, int*);

// Converts `source` in two parts cut at `split`, into targets of `room` units, and flushes.
template <class Src, class Dst>
std::basic_string<Dst> inPieces(Piecewise<Src, Dst>* function, nxl_cs cs, std::basic_string<Src> source,
                                std::size_t split, int room) {
  std::basic_string<Dst> result;
  std::basic_string<Dst> target(static_cast<std::size_t>(room), Dst());
  const auto step = [&](const Src** src, int* left) {
    Dst* dst = target.data();
    int dst_left = room;
    const int code = function(&cs, src, left, &dst, &dst_left);
    result.append(target.data(), dst);
    return code;
  };
  const Src* src = source.data();
  for (const std::size_t end : {split, source.size()}) {
    int left = static_cast<int>(source.data() + end - src);
    while (step(&src, &left) == 1) continue;
  }
  src = nullptr;
  int left = 0;
  step(&src, &left);
  return result;
}

template <class Src, class Dst>
void checkSplits(Piecewise<Src, Dst>* function, nxl_cs* cs, const std::basic_string<Src>& source,
                 const std::string& what) {
  const int ample = static_cast<int>(4 * source.size() + 8);
  const auto whole = inPieces(function, *cs, source, source.size(), ample);
  for (std::size_t split = 0; split <= source.size(); ++split) {
    for (const int room : {4, 5, 7, 33, ample}) {
      ASSERT_EQ(whole, inPieces(function, *cs, source, split, room)) << what << " cut at " << split << " into " << room;
    }
  }
}

TEST_F(Convert, ResumedAtAnySplitGivesTheSame) {
  std::mt19937 random(20240607);
  for (const char* name : {"KOI8R", "SHIFTJIS", "EUCJP", "EUCTW", "GB18030", "037", "939", "UTF8", "INTERNAL37"}) {
    for (int round = 0; round < 20; ++round) {
      const std::string bytes = round % 3 == 2 ? randomRuns(random) : randomBytes(random, round % 4 ? 24 : 150);
      std::u16string units;
      for (int i = 0; i < (round % 4 ? 24 : 150); ++i)
        units += static_cast<char16_t>(random() % 4 ? 0x3000 + random() % 256 : random());
      checkSplits(nxl_to_utf8_r, codeset(name), bytes, name);
      checkSplits(nxl_from_utf8_r, codeset(name), bytes, name);
      checkSplits(nxl_to_ucs2_r, codeset(name), bytes, name);
      checkSplits(nxl_from_ucs2_r, codeset(name), units, name);
    }
  }
}

// The thread sanitizer sees a write to what they share.
TEST_F(Convert, ThreadsShareACodeset) {
  nxl_init();
  for (const char* name : {"KOI8R", "SHIFTJIS", "EUCJP", "GB18030", "1047", "939", "INTERNAL37", "UTF8"}) {
    nxl_cs* cs = codeset(name);
    std::mt19937 random(11);
    const std::string bytes = randomBytes(random, 500);
    const auto convertAll = [cs, &bytes] {
      std::string results(8000, ' ');
      const auto size = static_cast<int>(bytes.size());
      int used = nxl_to_utf8(cs, bytes.data(), size, results.data(), 2000);
      used += nxl_from_utf8(cs, bytes.data(), size, results.data() + 2000, 2000);
      nxl_cs copy = *cs;
      const char* src = bytes.data();
      char* dst = results.data() + 4000;
      int left = size, room = 2000;
      EXPECT_NE(1, nxl_to_utf8_r(&copy, &src, &left, &dst, &room));  // all fits
      nxl_to_utf8(nullptr, "default", 7, results.data() + 6000, 2000);
      return results.substr(0, static_cast<std::size_t>(used));
    };
    auto other = std::async(std::launch::async, convertAll);
    const std::string here = convertAll();
    EXPECT_EQ(here, other.get()) << name;
  }
}

// A table that holds nothing but its header and the bytes of its single entries.
TEST_F(Convert, ResumedAtAnySplitWithADamagedTable) {
  std::mt19937 random(5);
  for (const int kind : {1, 2, 3, 4, 8, 10}) {
    const std::string image = tableImage(kind, 2400) + randomBytes(random, 600);
    auto* table = static_cast<unsigned char*>(std::malloc(image.size()));
    std::copy(image.begin(), image.end(), table);
    const Codeset cs(quillon::codesetOf(table, static_cast<std::uint32_t>(image.size())));
    std::string bytes = randomBytes(random, 150);
    for (std::size_t i = 0; i < bytes.size(); i += 9) bytes[i] = '\0';
    checkSplits(nxl_to_utf8_r, cs.get(), bytes, image.substr(48, 1));
    checkSplits(nxl_from_utf8_r, cs.get(), bytes, image.substr(48, 1));
  }
}

// The offsets of a table may lead anywhere.
TEST_F(Convert, FindsNoCharacterBehindTheTable) {
  const std::string image = tableImage(kGb18030Kind).replace(64, 8, "\xFF\xFF\xFF\x0F\xFF\xFF\xFF\x0F");
  auto* table = static_cast<unsigned char*>(std::malloc(image.size()));
  std::copy(image.begin(), image.end(), table);
  const Codeset cs(quillon::codesetOf(table, static_cast<std::uint32_t>(image.size())));
  EXPECT_EQ("?|0|4", call(nxl_to_utf8_r, cs.get(), "\x81\x30\x81\x30", 8));
}

// Wrong text is all that can come of it; the sanitizers see a read outside.
TEST_F(Convert, SurvivesAnotherKindsCodeset) {
  std::mt19937 random(3);
  const std::string bytes = randomBytes(random, 400);
  for (const char* name : {"KOI8R", "SHIFTJIS", "EUCJP", "GB18030", "037", "939", "UTF8", "INTERNAL37"}) {
    for (auto* convert : {ascii_sbcs_to_utf8_r, ascii_dbcs_to_utf8_r, ascii_mbcs_to_utf8_r, ascii_gb18030_to_utf8_r,
                          ebcdic_sbcs_to_utf8_r, ebcdic_dbcs_to_utf8_r, ascii_sbcs_from_utf8_r, ascii_dbcs_from_utf8_r,
                          ascii_mbcs_from_utf8_r, ascii_gb18030_from_utf8_r, ebcdic_dbcs_from_utf8_r}) {
      nxl_cs copy = *codeset(name);
      std::string text(2000, ' ');
      const char* src = bytes.data();
      char* dst = text.data();
      EXPECT_NE(1, convert(&copy, &src, src + bytes.size(), &dst, dst + text.size()));
    }
  }
}

}  // namespace
