#include "codeset/uls.h"

#include <clocale>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "tests/codeset/scratch.h"

namespace {

using std::string_literals::operator""s;

class Uls : public Scratch {
 protected:
  void SetUp() override {
    Scratch::SetUp();
    set("NXLDIR", CODESET_DATA);
    set("LC_ALL", "C.UTF-8");
  }
};

int size(const std::string& text) { return static_cast<int>(text.size()); }
int size(const std::wstring& text) { return static_cast<int>(text.size()); }

/// What a function that writes gives when there is room enough; it must say so beforehand.
template <class Unit>
std::basic_string<Unit> written(const std::function<int(Unit*, int)>& write) {
  std::basic_string<Unit> text(1000, 'x');
  text.resize(static_cast<std::size_t>(write(text.data(), 1000)));
  EXPECT_EQ(text.size(), static_cast<std::size_t>(write(nullptr, 0)));
  return text;
}

std::wstring wide(nxl_cs* cs, const std::string& text) {
  return written<wchar_t>([&](wchar_t* dst, int room) { return nxl_to_wcs(cs, text.data(), size(text), dst, room); });
}

std::string narrow(nxl_cs* cs, const std::wstring& text) {
  return written<char>([&](char* dst, int room) { return nxl_from_wcs(cs, text.data(), size(text), dst, room); });
}

using Mapping = int(nxl_cs*, const char*, int, char*, int);

std::string mapped(Mapping* map, nxl_cs* cs, const std::string& text) {
  return written<char>([&](char* dst, int room) { return map(cs, text.data(), size(text), dst, room); });
}

TEST_F(Uls, SetsItselfUp) {
  nxl_uninit();
  EXPECT_EQ(1, nxl_mb_count(nullptr, "\u00e9", -1));
  nxl_uninit();
  set("NXL_CODESET", "latin1");
  EXPECT_EQ(2, nxl_mb_count(nullptr, "\u00e9", -1));
}

/// The places between characters, going forward; going back must give the same.
std::string places(nxl_cs* cs, const std::string& text) {
  std::string forward;
  std::string back;
  for (int at = 0; at < size(text); at = nxl_mb_next(cs, text.data(), size(text), at, nullptr))
    forward += std::to_string(at) + ' ';
  for (int at = size(text); at > 0;) {
    at = nxl_mb_prev(cs, text.data(), size(text), at);
    back.insert(0, std::to_string(at) + ' ');
  }
  EXPECT_EQ(forward, back);
  return forward;
}

TEST_F(Uls, FindsWhereCharactersBegin) {
  const std::tuple<const char*, std::string, const char*, int> cases[] = {
      // codeset, text, where characters begin, the first piece that is none (-1: all are characters)
      {"UTF8", "a\u20ac\xFF\xE2\x82", "0 1 4 5 6 ", 4},  // the end cuts a character: its bytes stand alone
      {"UTF8", "\xE2\x82z\u00e9", "0 2 3 ", 0},          // in the middle it is one piece
      {"UTF8", "\x80\x80\x80\x80\x80z", "0 1 2 3 4 5 ", 0},
      {"UTF8", "?\xF0\x9F\x98\x80", "0 1 ", -1},
      {"SHIFTJIS", "\x95\x5C\x5C\x83\x5C", "0 2 3 ", -1},
      {"SHIFTJIS", "\x88\x9F\x88\x9F\xB1\x81\"", "0 2 4 5 6 ", 5},  // the quote is not taken for a second byte
      {"EUCJP", "\x8F\xB0\xA1\xA4\xA2z", "0 3 5 ", -1},
      {"GB18030", "\x81\x30\x81\x30"s + "0\x81\x31\x81z", "0 4 5 6 7 ", 5},
      {"1047", "\xC1\x6F", "0 1 ", -1},
      {"INTERNAL37", "\xC1\x41", "0 1 ", 1},                        // not invariant
      {"939", "\x81\x0E\x44\x81\x44\x82\x0F\x82", "0 1 4 7 ", -1},  // shifts go with the double bytes
      {"939", "\x0E\x0E\x44\x81\x0F\x0E\x0F\x82\x0E", "0 5 ", 9},   // and so do those that change nothing
      {"939", "\x0E\x44\x81\x0F\x0F", "0 ", -1},
      {"939", "\x0E\x44", "0 ", 0},
  };
  for (const auto& [name, text, expected, bad] : cases) {
    const Codeset cs(nxl_cs_new(name));
    ASSERT_NE(nullptr, cs) << name;
    EXPECT_EQ(expected, places(cs.get(), text)) << name;
    int where = 0;
    EXPECT_EQ(bad == -1, nxl_mb_valid(cs.get(), text.data(), size(text), &where)) << name << ' ' << expected;
    EXPECT_EQ(bad == -1 ? size(text) : bad, where) << name << ' ' << expected;
  }
}

/// Texts of each family, some damaged, by a seed.
std::string someText(nxl_cs* cs, std::minstd_rand& random) {
  std::wstring text;
  for (int i = 0; i < 12; ++i) text += L"aAbB\\?\u00e9\u3042\u8868\u4e9c\uff41\uff21"[random() % 12];
  std::string bytes = narrow(cs, text);
  if (random() % 2) bytes[random() % bytes.size()] = static_cast<char>(random() % 256);
  return bytes;
}

TEST_F(Uls, AgreesWithWideText) {
  std::minstd_rand random(1);
  for (const char* name : {"UTF8", "ISO88591", "SHIFTJIS", "EUCJP", "EUCTW", "GB18030", "1047", "939", "INTERNAL37"}) {
    const Codeset cs(nxl_cs_new(name));
    ASSERT_NE(nullptr, cs) << name;
    for (int round = 0; round < 300; ++round) {
      const std::string text = someText(cs.get(), random);
      const std::wstring characters = wide(cs.get(), text);
      SCOPED_TRACE(name + " round "s + std::to_string(round));
      places(cs.get(), text);
      EXPECT_EQ(size(characters), nxl_mb_count(cs.get(), text.data(), size(text)));
      if (!nxl_mb_valid(cs.get(), text.data(), size(text), nullptr)) continue;
      EXPECT_EQ(characters, wide(cs.get(), narrow(cs.get(), characters)));  // maybe with fewer shifts
      // Cut anywhere, it is a beginning of the same text, in whole characters, and as long as it can be.
      std::size_t kept = 0;
      for (int room = 1; room <= size(text); ++room) {
        std::string cut = text;
        cut.resize(static_cast<std::size_t>(nxl_str_copy(cs.get(), cut.data(), size(cut), cut.data(), room)));
        const std::wstring start = wide(cs.get(), cut);
        EXPECT_TRUE(characters.starts_with(start) && start.size() >= kept && size(cut) <= room) << room;
        EXPECT_TRUE(nxl_mb_valid(cs.get(), cut.data(), size(cut), nullptr)) << room;
        kept = start.size();
      }
      EXPECT_EQ(characters.size(), kept);
      // What is found stands as many characters from the start.
      const std::wstring part = characters.substr(random() % characters.size(), 1 + random() % 3);
      const std::string bytes = narrow(cs.get(), part);
      const int at = nxl_str_find(cs.get(), text.data(), size(text), bytes.data(), size(bytes), nullptr);
      ASSERT_GE(at, 0);
      EXPECT_EQ(static_cast<int>(characters.find(part)), nxl_mb_count(cs.get(), text.data(), at));
      EXPECT_EQ(nxl_wcs_casefind(characters.data(), size(characters), part.data(), size(part), nullptr),
                nxl_mb_count(cs.get(), text.data(),
                             nxl_str_casefind(cs.get(), text.data(), size(text), bytes.data(), size(bytes), nullptr)));
      EXPECT_EQ(static_cast<int>(characters.rfind(part[0])),
                nxl_mb_count(cs.get(), text.data(), nxl_str_rchr(cs.get(), text.data(), size(text), part[0])));
    }
  }
}

TEST_F(Uls, SearchesAndSpans) {
  const Codeset utf8(nxl_cs_new("UTF8"));
  const std::tuple<const char*, const char*, const char*> cases[] = {
      // text, part; where it is with and without regard to case, and how long
      {"ababac", "abac", "2+4 2+4"},
      {"die Stra\u00dfe", "STRASSE", "-1+0 4+7"},
      {"\u00df\u00df", "sS", "-1+0 0+2"},
      {"a\u00df", "as", "-1+0 -1+0"},  // half a character is not found
      {"\u00dfs", "sss", "-1+0 0+3"},
      {"s\u00dfs", "ss", "-1+0 1+2"},  // from the middle of one neither
      {"abc", "", "0+0 0+0"},
      {"", "a", "-1+0 -1+0"},
      {"\xC3\xA9\xC3", "\xC3", "2+1 2+1"},  // a stray byte is none within a character
  };
  for (const auto& [text, part, expected] : cases) {
    int length = 0;
    int folded_length = 0;
    const int at = nxl_str_find(utf8.get(), text, -1, part, -1, &length);
    const int folded = nxl_str_casefind(utf8.get(), text, -1, part, -1, &folded_length);
    EXPECT_EQ(expected, std::to_string(at) + '+' + std::to_string(length) + ' ' + std::to_string(folded) + '+' +
                            std::to_string(folded_length))
        << text << ' ' << part;
  }
  const Codeset sjis(nxl_cs_new("sjis"));
  const char path[] = "\x95\x5C\x5C\x83\x5C";
  EXPECT_EQ(2, nxl_str_chr(sjis.get(), path, -1, L'\\'));
  EXPECT_EQ(2, nxl_str_rchr(sjis.get(), path, -1, L'\\'));
  EXPECT_EQ(-1, nxl_str_chr(sjis.get(), path, -1, L'/'));
  EXPECT_EQ(2, nxl_str_cspan(sjis.get(), path, -1, "\\", -1));
  EXPECT_EQ(3, nxl_str_span(sjis.get(), path, -1, "\\\x95\x5C", -1));
  EXPECT_EQ(1, nxl_wcs_span(L"aab", 1, L"a", -1));
  EXPECT_EQ(2, nxl_wcs_cspan(L"aab", -1, L"b", -1));
  EXPECT_EQ(2, nxl_wcs_chr(L"abcbc", -1, L'c'));
  EXPECT_EQ(4, nxl_wcs_rchr(L"abcbc", -1, L'c'));
  EXPECT_EQ(2, nxl_wcs_find(L"ab\u00dfc", -1, L"\u00df", -1, nullptr));
}

TEST_F(Uls, MapsCase) {
  const std::tuple<const char*, const char*, Mapping*, std::string, std::string> cases[] = {
      // codeset, locale, what, text, result
      {"UTF8", "C", nxl_str_upper, "stra\u00dfe \u00e9\xFFz", "STRASSE \u00c9\xFFZ"},
      {"UTF8", "C", nxl_str_fold, "Stra\u00dfe", "strasse"},
      {"UTF8", "C", nxl_str_lower, "\u03a3\u0391\u03a3 \u0391\u03a3..\u0391\u03a3.",
       "\u03c3\u03b1\u03c2 \u03b1\u03c3..\u03b1\u03c2."},
      {"UTF8", "de_DE", nxl_str_lower, "I", "i"},
      {"UTF8", "tr_TR.UTF-8", nxl_str_lower, "I\u0130", "\u0131i"},
      {"UTF8", "az", nxl_str_upper, "i", "\u0130"},
      {"UTF8", "lt_LT", nxl_str_lower, "I\u0301 J", "i\u0307\u0301 j"},
      {"ISO88591", "C", nxl_str_upper, "\xDF\xE9\xFF", "SS\xC9\xFF"},  // the codeset has no capital of the last
      {"SHIFTJIS", "C", nxl_str_upper, "\x83\x61\x82\x81z", "\x83\x61\x82\x60Z"},
      {"1047", "C", nxl_str_lower, "\xC1\x6F", "\x81\x6F"},
      {"939", "C", nxl_str_upper, "\x81\x0E\x42\x81\x0F", "\xC1\x0E\x42\xC1\x0F"},
  };
  for (const auto& [name, locale, map, text, expected] : cases) {
    const Codeset cs(nxl_cs_new(name));
    set("LC_ALL", locale);
    EXPECT_EQ(expected, mapped(map, cs.get(), text)) << name << ' ' << text;
  }
  EXPECT_EQ(L"\u00df \u0131",
            written<wchar_t>([](wchar_t* dst, int room) { return nxl_wcs_lower(L"\u1e9e \u0131", 3, dst, room); }));
  EXPECT_EQ(L"\u0178", std::wstring(1, nxl_wc_upper(L'\u00ff')));
  EXPECT_EQ(L"\u00df", std::wstring(1, nxl_wc_upper(L'\u00df')));
}

TEST_F(Uls, ComparesByCharacters) {
  set("LC_ALL", "");
  const std::tuple<const char*, const char*, const char*, int, int> cases[] = {
      // codeset, texts, their order, the order of their folded forms
      {"UTF8", "stra\u00dfe", "STRASSE", 1, 0},
      {"UTF8", "\u00c9", "\u00e9", -1, 0},
      {"UTF8", "a", "ab", -1, -1},
      {"UTF8", "b", "A", 1, 1},
      {"UTF8", "\xFF", "\u00ff", 1, 1},  // a stray byte is not the character of its value
      {"UTF8", "\xFF", "\xFE", 1, 1},
      {"EUCJP", "\xA4\xA2", "\xA5\xA2", -1, -1},
      {"SHIFTJIS", "\x83\x41", "\x83\x61", -1, -1},  // no case in a second byte
      {"SHIFTJIS", "\xB1", "\x83\x41", 1, 1},        // Unicode's order, not that of the bytes
      {"1047", "\x81", "\xC1", 1, 0},
      {"939", "\x0E\x42\x81\x0F\x0E\x42\x82\x0F", "\x0E\x42\x81\x42\x82\x0F", 0, 0},
  };
  for (const auto& [name, a, b, order, folded] : cases) {
    const Codeset cs(nxl_cs_new(name));
    EXPECT_EQ(order, nxl_str_cmp(cs.get(), a, -1, b, -1)) << a << ' ' << b;
    EXPECT_EQ(folded, nxl_str_casecmp(cs.get(), a, -1, b, -1)) << a << ' ' << b;
    EXPECT_EQ(-folded, nxl_str_casecmp(cs.get(), b, -1, a, -1)) << a << ' ' << b;
  }
  EXPECT_EQ(0, nxl_str_ncmp(nullptr, "\u00e9a", -1, "\u00e9b", -1, 1));
  EXPECT_EQ(0, nxl_str_ncasecmp(nullptr, "\u00e9a", -1, "\u00c9b", -1, 1));
  EXPECT_EQ(-1, nxl_str_ncasecmp(nullptr, "\u00e9a", -1, "\u00c9b", -1, 2));
  EXPECT_EQ(0, nxl_wcs_casecmp(L"\u00c9a", -1, L"\u00e9A", -1));
  EXPECT_EQ(-1, nxl_wcs_casecmp(L"ab", -1, L"Ac", -1));
  EXPECT_EQ(-1, nxl_wcs_cmp(L"A", -1, L"a", -1));
  EXPECT_EQ(1, nxl_wcs_cmp(L"a\0", 2, L"a", 1));
  EXPECT_EQ(0, nxl_wcs_ncmp(L"ab", -1, L"ac", -1, 1));
  EXPECT_EQ(1, nxl_wcs_ncasecmp(L"ac", -1, L"AB", -1, 2));
}

TEST_F(Uls, KeepsToItsRoom) {
  const Codeset utf8(nxl_cs_new("UTF8"));
  char text[8] = "xxxxxxx";
  EXPECT_EQ(2, nxl_str_lower(utf8.get(), "A\u00c9", -1, text, 3));  // no room for both bytes of the second
  EXPECT_STREQ("a", text);
  EXPECT_EQ(0, nxl_str_lower(utf8.get(), "A", -1, text, 0));
  EXPECT_STREQ("a", text);
  EXPECT_EQ(1, nxl_str_upper(utf8.get(), "a\u00df", 3, text, 2));  // of "SS" both or none; not terminated
  EXPECT_EQ("A", std::string(text, 1));
  EXPECT_EQ(3, nxl_str_copy(utf8.get(), "ab\u00e9", -1, text, 4));
  EXPECT_EQ(5, nxl_str_append(utf8.get(), text, 6, "cd\u00e9fg", -1));  // nor here
  EXPECT_STREQ("abcd", text);
  EXPECT_EQ(0, nxl_str_append(utf8.get(), text, 3, "x", -1));  // no terminator there
  const Codeset mixed(nxl_cs_new("939"));
  char shifted[8] = "\x81";
  EXPECT_EQ(2, nxl_str_append(mixed.get(), shifted, 5, "\x0E\x44\x81\x0F", -1));  // needs six
  EXPECT_EQ(6, nxl_str_append(mixed.get(), shifted, 7, "\x0E\x44\x81\x44\x82\x0F", -1));
  EXPECT_STREQ("\x81\x0E\x44\x81\x0F", shifted);
  wchar_t wide_text[3];
  EXPECT_EQ(3, nxl_wcs_copy(L"abc", -1, wide_text, 3));
  EXPECT_STREQ(L"ab", wide_text);
  wide_text[1] = 0;
  EXPECT_EQ(3, nxl_wcs_append(wide_text, 3, L"cd", -1));
  EXPECT_STREQ(L"ac", wide_text);
  EXPECT_EQ("?a", narrow(utf8.get(),
                         L"\xD800"
                         L"a"));
  EXPECT_EQ(L"?a", wide(utf8.get(),
                        "\xFF"
                        "a"));
}

TEST_F(Uls, KnowsClassesAndWidths) {
  const std::tuple<wchar_t, NxlClass, int> classes[] = {
      {L'\u00e9', kLowerClass, 1},  {L'\u0663', kDigitClass, 1}, {L'\u00e9', kDigitClass, 0},
      {L'\u3000', kSpaceClass, 1},  {L'\u00bd', kAlnumClass, 0}, {L' ', kGraphClass, 0},
      {L' ', kPrintClass, 1},       {L'\t', kPrintClass, 0},     {L'\t', kBlankClass, 1},
      {L'\x85', kCntrlClass, 1},    {L'\u01c5', kUpperClass, 0}, {L'\u00bf', kPunctClass, 1},
      {L'\uff21', kXdigitClass, 1}, {L'\u05d0', kAlphaClass, 1}, {0xD800, kGraphClass, 0},
  };
  for (const auto& [c, which, is] : classes)
    EXPECT_EQ(is, nxl_wc_is(c, which)) << static_cast<int>(c) << " class " << which;
  const std::tuple<const char*, const char*, int> widths[] = {
      {"UTF8", "a\u0301\u3042\xFF\t", 4},
      {"UTF8", "\u03b1", 1},
      {"SHIFTJIS", "\x83\xBF\xB1", 3},  // there an alpha is as wide as an ideograph
      {"939", "\x81\x0E\x41\x61\x0F", 3},
  };
  for (const auto& [name, text, width] : widths) {
    const Codeset cs(nxl_cs_new(name));
    EXPECT_EQ(width, nxl_str_width(cs.get(), text, -1)) << name;
  }
  EXPECT_EQ(3, nxl_wcs_width(L"a\u3042", -1));
}

TEST_F(Uls, FollowsTheProcessLocale) {
  ASSERT_NE(nullptr, std::setlocale(LC_ALL, "C"));
  nxl_uninit();
  const char text[] = "a\u20ac\xFF\xE2\x82";  // each byte of what is no character stands alone
  const char* const end = text + std::strlen(text);
  EXPECT_EQ(5, nxl_mb_count(text, end));  // the first use sets the locale up
  std::string steps;
  for (const char* p = text; p != end; p = nxl_mb_next(p, end)) steps += std::to_string(nxl_mb_len(p, end));
  EXPECT_EQ("13111", steps);
  std::string back;
  for (const char* p = end; p != text; p = nxl_mb_prev(text, p)) back += std::to_string(p - nxl_mb_prev(text, p));
  EXPECT_EQ("11131", back);
  EXPECT_EQ(0, nxl_mb_len(end, end));
  EXPECT_EQ(text, nxl_mb_prev(text, text));
  char mapped[8];
  EXPECT_EQ(8, nxl_str_upper("a\u00e9\xFF\u00dfz", mapped, sizeof mapped));  // one for one
  EXPECT_STREQ("A\u00c9\xFF\u00dfZ", mapped);
  EXPECT_EQ(2, nxl_str_lower("A\u00c9", mapped, 3));  // no room for both bytes of the second
  EXPECT_STREQ("a", mapped);
  EXPECT_EQ(0, nxl_str_lower("A", mapped, 0));
  const std::tuple<const char*, const char*, int> cases[] = {
      {"\u00c9a", "\u00e9A", 0}, {"stra\u00dfe", "STRASSE", 1}, {"a", "ab", -1}, {"\xFF", "\u00ff", 1}, {"b", "A", 1},
  };
  for (const auto& [one, other, order] : cases) EXPECT_EQ(order, nxl_str_casecmp(one, other)) << one << ' ' << other;
  EXPECT_EQ(0, nxl_str_ncasecmp("\u00e9a", "\u00c9b", 1));
  EXPECT_EQ(-1, nxl_str_ncasecmp("\u00e9a", "\u00c9b", 2));
  EXPECT_EQ(0, nxl_wcs_casecmp(L"\u00c9a", L"\u00e9A"));
  EXPECT_EQ(-1, nxl_wcs_casecmp(L"ab", L"Ac"));
  EXPECT_LT(nxl_wcs_cmp(L"A", L"a"), 0);
  wchar_t wide_text[3];
  EXPECT_EQ(3, nxl_wcs_copy(L"abc", wide_text, 3));
  EXPECT_STREQ(L"ab", wide_text);
  // A locale that the program has chosen is not taken away.
  nxl_uninit();
  set("LC_ALL", "C");
  EXPECT_EQ(1, nxl_mb_count(text + 1, text + 4));
}

TEST_F(Uls, FindsMessageCatalogues) {
  const std::tuple<std::string, const char*, const char*> cases[] = {
      // the file, NLSPATH, LANG; the first ones are each better than those before
      {"nxl%N/msg/C/app.cat", "", "de_DE.UTF-8@euro"},
      {"nxl%N/msg/de/app.cat", "", "de_DE.UTF-8@euro"},
      {"nxl%N/msg/de_DE/app.cat", "", "de_DE.UTF-8@euro"},
      {"nxl%N/msg/de_DE.UTF-8/app.cat", "", "de_DE.UTF-8@euro"},
      {"nxl%N/msg/de_DE.UTF-8@euro/app.cat", "", "de_DE.UTF-8@euro"},
      {"own/de-DE-UTF-8%app", "nowhere:own/%l-%t-%c%%%N", "de_DE.UTF-8@euro"},
      {"own/de/app", "own/%L/%N:own/%l-%t-%c%%%N", "de_DE.UTF-8@euro"},
      {"nxl%N/msg/C/app.cat", "", "../../etc"},
  };
  set("NXLDIR", "nxl%N");
  set("LC_ALL", "");
  set("LC_MESSAGES", "");
  for (const auto& [file, nlspath, lang] : cases) {
    set("NLSPATH", nlspath);
    set("LANG", lang);
    quillon::writeFile(file, "");
    char path[300];
    EXPECT_EQ(0, nxl_msg_path("app", path, sizeof path)) << file;
    EXPECT_EQ(file, path);
    EXPECT_EQ(1, nxl_msg_path("app", path, size(file)));  // one byte short
    EXPECT_EQ(0, nxl_msg_path("app", path, size(file) + 1));
    EXPECT_EQ(1, nxl_msg_path("none", path, sizeof path));
    EXPECT_STREQ("", path);
  }
  // Paths of 255 bytes are tried, longer ones are not.
  for (const int length : {255, 256}) {
    const std::string dir(120, 'd');
    const std::string file = dir + '/' + std::string(static_cast<std::size_t>(length) - 121, 'f');
    quillon::writeFile(file, "");
    set("NLSPATH", dir + "/%N");
    char path[300];
    EXPECT_EQ(length > 255, nxl_msg_path(file.c_str() + 121, path, sizeof path));
  }
}

}  // namespace
