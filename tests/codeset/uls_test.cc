#include "codeset/uls.h"

#include <clocale>
#include <cstring>
#include <tuple>

#include "tests/codeset/scratch.h"

namespace {

class Uls : public Scratch {
 protected:
  void SetUp() override {
    Scratch::SetUp();
    ASSERT_NE(nullptr, std::setlocale(LC_ALL, "C.UTF-8"));
  }
};

TEST_F(Uls, StepsByCharacters) {
  const char text[] = "a\u20ac\xFF\xE2\x82";  // the last character is unfinished: two strays
  const char* const end = text + std::strlen(text);
  std::string steps;
  for (const char* p = text; p != end; p = nxl_mb_next(p, end)) steps += std::to_string(nxl_mb_len(p, end));
  EXPECT_EQ("13111", steps);
  EXPECT_EQ(5, nxl_mb_count(text, end));
  std::string back;
  for (const char* p = end; p != text; p = nxl_mb_prev(text, p)) back += std::to_string(p - nxl_mb_prev(text, p));
  EXPECT_EQ("11131", back);
  EXPECT_EQ(0, nxl_mb_len(end, end));
  EXPECT_EQ(text, nxl_mb_prev(text, text));
}

TEST_F(Uls, MapsAndIgnoresCase) {
  char text[8];
  EXPECT_EQ(6, nxl_str_upper("a\u00e9\xFFz", text, sizeof text));
  EXPECT_STREQ("A\u00c9\xFFZ", text);
  EXPECT_EQ(2, nxl_str_lower("A\u00c9", text, 3));  // no room for both bytes of the second
  EXPECT_STREQ("a", text);
  EXPECT_EQ(0, nxl_str_lower("A", text, 0));
  const std::tuple<const char*, const char*, int> cases[] = {
      {"stra\u00dfe", "STRA\u00dfE", 0},
      {"\u00c9", "\u00e9", 0},
      {"a", "B", -1},
      {"b", "A", 1},
      {"a", "ab", -1},
      {"\xFF", "\u00ff", 1},  // a stray byte is not the character of its value
  };
  for (const auto& [one, other, order] : cases) EXPECT_EQ(order, nxl_str_casecmp(one, other)) << one << ' ' << other;
  EXPECT_EQ(0, nxl_str_ncasecmp("\u00e9a", "\u00c9b", 1));
  EXPECT_EQ(-1, nxl_str_ncasecmp("\u00e9a", "\u00c9b", 2));
  EXPECT_EQ(0, nxl_wcs_casecmp(L"\u00c9a", L"\u00e9A"));
  EXPECT_LT(nxl_wcs_cmp(L"A", L"a"), 0);
  wchar_t wide[3];
  EXPECT_EQ(3, nxl_wcs_copy(L"abc", wide, 3));
  EXPECT_STREQ(L"ab", wide);
}

TEST_F(Uls, FindsMessageCatalogues) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      // the file, NLSPATH, LANG
      {"nxl%N/msg/C/app.cat", "", "de_DE.UTF-8"},
      {"nxl%N/msg/de/app.cat", "", "de_DE.UTF-8"},
      {"nxl%N/msg/de_DE.UTF-8/app.cat", "", "de_DE.UTF-8"},
      {"own/de-DE-UTF-8%app", "nowhere:own/%l-%t-%c%%%N", "de_DE.UTF-8@euro"},
      {"nxl%N/msg/C/app.cat", "", "../../etc"},
  };
  set("NXLDIR", "nxl%N");
  set("LC_ALL", "");
  set("LC_MESSAGES", "");
  for (const auto& [file, nlspath, lang] : cases) {
    set("NLSPATH", nlspath);
    set("LANG", lang);
    quillon::writeFile(file, "");
    char path[64];
    EXPECT_EQ(0, nxl_msg_path("app", path, sizeof path)) << file;
    EXPECT_STREQ(file, path);
    EXPECT_EQ(1, nxl_msg_path("app", path, 5));
    EXPECT_EQ(1, nxl_msg_path("none", path, sizeof path));
    EXPECT_STREQ("", path);
  }
}

}  // namespace
