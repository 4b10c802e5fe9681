#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <tuple>

#include "codeset/init.h"
#include "codeset/tables.h"
#include "tests/codeset/scratch.h"

namespace {

using quillon::writeFile;

class Registry : public Scratch {
 protected:
  static std::string normalised(const std::string& name, int len = 128) {
    char buffer[256];
    EXPECT_EQ(0, get_table_name(name.c_str(), buffer, len));
    return buffer;
  }

  // "kind K", or "none".
  static std::string kindOf(const nxl_cs* cs) { return cs ? "kind " + std::to_string(cs->kind) : "none"; }
  static std::string lookUp(const char* name) { return kindOf(Codeset(nxl_cs_new(name)).get()); }
};

TEST_F(Registry, NormalisesNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"iso-8859-1", "ISO88591"},
      {"ISO_8859-1", "ISO88591"},
      {"ORB-1047", "1047"},
      {"orb", ""},
      {"XORB1", "XORB1"},
      {"\xE9t\xFF.1", "T1"},
      {"", ""},
      {"os", "ANSIX341968"},
      {"Dos", "ANSIX341968"},
      {"WIN", "ANSIX341968"},
      {"OS-", "OS"},  // only the bare word stands for the locale's codeset
  };
  for (const auto& [name, expected] : cases) EXPECT_EQ(expected, normalised(name)) << name;
  EXPECT_EQ("ISO8", normalised("iso-8859-1", 5));
  EXPECT_EQ(std::string(127, 'A'), normalised(std::string(5000, 'a')));
  EXPECT_EQ(1, get_table_name("x", nullptr, 0));
  EXPECT_EQ(1, get_cs_name("OS", nullptr, 0));
  set("LC_ALL", "C.UTF-8");
  EXPECT_EQ("UTF8", normalised("os"));
}

TEST_F(Registry, ReadsAliasLines) {
  const std::string filler(127, 'x'), longest(123, 'B');
  const std::pair<std::string, std::string> cases[] = {
      // what A1 becomes
      {"A1 B\n", "B"},
      {" \t A1 \t B \n", "B"},
      {"A1 B C\n", "B"},
      {"#A1 B\nA1 C\nA1 D\n", "C"},
      {"a1 B\nA B\nA12 B\n", "A1"},
      {"A1 B", "A1"},  // unfinished last line
      {"A1\nA1 \nA1 C\n", "C"},
      {"\n\n", "A1"},
      {filler + "A1 B\n", "B"},                        // a long line is read in pieces of 127 bytes
      {"A1 " + std::string(124, 'y') + "z \n", "A1"},  // a second field cut by the end of a piece is none
      {"A1 " + longest + "\nA1 C\n", longest},         // the longest that fits one
  };
  for (const auto& [text, expected] : cases) {
    writeFile("aliases", text);
    EXPECT_EQ(expected, normalised("a1")) << text;
  }
  writeFile("aliases", "A1 ABCDEF\n");
  char name[4] = "A1";
  EXPECT_EQ(0, get_alias(name, sizeof name));
  EXPECT_STREQ("ABC", name);
  char whole[] = "A1";
  EXPECT_EQ(0, get_alias(whole, 1));  // room for the terminator alone
  EXPECT_STREQ("", whole);
}

TEST_F(Registry, SearchesAliasFilesAndTablesInOrder) {
  char name[16] = "X";
  EXPECT_EQ(1, get_alias(name, sizeof name));
  EXPECT_EQ("none", lookUp("x"));

  writeFile("aliases", "X HERE\n");
  writeFile("X", tableImage(21));
  writeFile("HERE", tableImage(22));
  EXPECT_EQ("HERE", normalised("x"));
  EXPECT_EQ("kind 22", lookUp("x"));
  set("BINDIR", dir() + "/bin");
  writeFile("bin/../generic/codeset/HERE", tableImage(23));
  std::filesystem::create_directories("bin");
  EXPECT_EQ("kind 23", lookUp("x"));
  set("NXLDIR", dir() + "/nxl");
  writeFile("nxl/aliases", "X NXL\n");
  writeFile("nxl/NXL", tableImage(24));
  EXPECT_EQ("kind 24", lookUp("x"));
  writeFile("nxl/codeset/aliases", "X SUB\n");
  writeFile("nxl/codeset/SUB", tableImage(25));
  EXPECT_EQ("kind 25", lookUp("x"));
  EXPECT_EQ("kind 23", lookUp("./HERE"));  // searched for like any other, but neither normalised nor aliased
  EXPECT_EQ("none", lookUp("./here"));
  EXPECT_EQ("none", lookUp("here\\"));
  std::filesystem::remove("nxl/codeset/aliases");
  std::filesystem::create_directories("nxl/codeset/aliases");  // a directory in its place is no alias file
  EXPECT_EQ("NXL", normalised("x"));
}

TEST_F(Registry, LeavesOutTheCurrentDirectoryWhereToldTo) {
  struct Case {
    const char* nxldir;
    bool always;
    const char* instead;
    const char* expected;  // what x becomes, and the kind of its table
  };
  const Case cases[] = {
      {"", true, "", "HERE kind 22"},       {"nxl", true, "", "HERE kind 22"},   {"nxl", false, "", "X none"},
      {"", false, "", "HERE kind 22"},      {"", false, "place", "SUB kind 25"}, {"nxl", false, "place", "X none"},
      {"", false, "empty", "HERE kind 22"},
  };
  writeFile("aliases", "X HERE\n");
  writeFile("HERE", tableImage(22));
  writeFile("place/codeset/aliases", "X SUB\n");
  writeFile("place/codeset/SUB", tableImage(25));
  for (const Case& c : cases) {
    set("NXLDIR", c.nxldir);
    quillon::setTableSearch({c.always, c.instead});
    EXPECT_EQ("kind 22", lookUp("./HERE"));
    EXPECT_EQ(c.expected, normalised("x") + " " + lookUp("x")) << c.nxldir << ' ' << c.always << ' ' << c.instead;
  }
  quillon::setTableSearch({});
}

TEST_F(Registry, LeavesOutPathsThatAreTooLong) {
  // NXLDIR/codeset/aliases may be 254 bytes long; NXLDIR/aliases still fits one byte later.
  for (const std::size_t length : {238u, 239u, 246u, 247u, 300u}) {
    std::string base = dir() + "/";
    while (base.size() < length) base += base.size() % 100 || base.size() + 1 == length ? "x" : "/";
    set("NXLDIR", base);
    writeFile(base + "/codeset/aliases", "X SUB\n");
    writeFile(base + "/aliases", "X NXL\n");
    EXPECT_EQ(length <= 238 ? "SUB" : length <= 246 ? "NXL" : "X", normalised("x")) << length;
  }
}

TEST_F(Registry, LoadsTablesAndFollowsRedirections) {
  writeFile("T", tableImage(5));
  for (const char* link : {"R1 T", "R2 R1", "R3 R2", "R4 R3", "R5 R4"}) writeFile({link, link + 2}, link + 3);
  writeFile("SELF", "SELF\n");
  writeFile("BLANKS", " \n\x01T\t\x7F\r\n");
  writeFile("SHORT", tableImage(5, 1759));
  writeFile("MAGIC", tableImage(5).replace(8, 3, "ucw"));
  writeFile("EMPTY", "");
  writeFile("LONG", std::string(100000, 'x'));
  writeFile("UP", "../" + std::filesystem::path(dir()).filename().string() + "/T");
  std::filesystem::create_directories("DIR");
  ASSERT_EQ(0, mkfifo("FIFO", 0600));
  const std::pair<const char*, std::uint32_t> cases[] = {
      {"T", 1760},  {"R1", 1760}, {"R4", 1760}, {"R5", 0},  {"SELF", 0}, {"BLANKS", 1760}, {"SHORT", 0}, {"MAGIC", 0},
      {"EMPTY", 0}, {"LONG", 0},  {"UP", 1760}, {"DIR", 0}, {"FIFO", 0}, {"NONE", 0},      {"T/T", 0},
  };
  for (const auto& [name, expected] : cases) {
    std::uint32_t size = 99;
    unsigned char* table = load_table((dir() + "/").c_str(), name, &size);
    EXPECT_EQ(expected, size) << name;
    EXPECT_EQ(expected != 0, table != nullptr) << name;
    std::free(table);
  }
  // A file of the kernel's says 4096 bytes and has fewer: it is not waited for.
  std::uint32_t size = 0;
  EXPECT_EQ(nullptr, load_table("/sys/kernel/", "uevent_seqnum", &size));
  std::filesystem::resize_file("T", (64u << 20) + 1);
  EXPECT_EQ("none", lookUp("T"));
}

TEST_F(Registry, FillsTheObjectFromTheHeader) {
  std::string image = tableImage(3, 2000);
  for (std::size_t i = 56; i < 80; ++i) image[i] = static_cast<char>(i);
  image[49] = 1;
  writeFile("T", image);
  const Codeset cs(nxl_cs_new("t"));
  ASSERT_TRUE(cs);
  EXPECT_EQ(0x103, cs->kind);
  EXPECT_EQ(1, cs->table_loaded);
  EXPECT_EQ(62 | 63 << 8, cs->param_a);
  EXPECT_EQ(56 | 57 << 8, cs->param_b);
  EXPECT_EQ(image.substr(64, 16), std::string(reinterpret_cast<const char*>(cs->header_bytes), 16));
  std::uint32_t size = 0;
  EXPECT_EQ(image, std::string(reinterpret_cast<const char*>(nxl_cs_table(cs.get(), &size)), 2000));
  EXPECT_EQ(2000u, size);

  std::string smallest = tableImage(1);  // no byte behind the header
  smallest[0x80 * 2 + 80] = 'x';
  writeFile("T", smallest);
  char text[2];
  EXPECT_EQ(1, nxl_to_utf8(Codeset(nxl_cs_new("t")).get(), "\x80", 1, text, sizeof text));
  EXPECT_EQ('x', text[0]);

  image[51] = 0x11;  // the EBCDIC family
  writeFile("T", image);
  EXPECT_EQ("kind 8", lookUp("T"));
  EXPECT_EQ("kind 6", lookUp("utf-8"));
  EXPECT_EQ("kind 9", lookUp("internal-37"));
  EXPECT_EQ("none", kindOf(nxl_cs_new(nullptr)));
}

TEST_F(Registry, ChoosesTheDefault) {
  const std::array<const char*, 4> cases[] = {
      // NXL_CODESET, locale, table file, expected
      {"", "C", "", "kind 7"},  // nothing usable: text passes through
      {"", "C.UTF-8", "", "kind 6"},
      {"", "C", "ANSIX341968", "kind 20"},
      {"os", "C", "ANSIX341968", "kind 20"},
      {"my-own", "C.UTF-8", "MYOWN", "kind 20"},
      {"my-own", "C.UTF-8", "DEFAULT", "kind 20"},
      {"my-own", "C.UTF-8", "OSDEFAULT", "kind 7"},
      {"./MYOWN", "C", "MYOWN", "kind 20"},  // a choice by the environment is a name, never a path
  };
  for (const auto& [codeset, locale, file, expected] : cases) {
    set("NXL_CODESET", codeset);
    set("LC_ALL", locale);
    if (*file) writeFile(file, tableImage(20));
    EXPECT_EQ(expected, kindOf(nxl_get_def_cs())) << codeset << " in " << locale << " with " << file;
    nxl_uninit();
    std::filesystem::remove(file);
  }
  char text[4];
  EXPECT_EQ(3, nxl_to_utf8(nullptr, "\xE9\xFF", -1, text, sizeof text));
  EXPECT_STREQ("\xE9\xFF", text);
}

// Each line would leak or free twice if a slot were forgotten; the sanitizers see it.
TEST_F(Registry, KeepsOwnershipOfItsSlots) {
  set("LC_ALL", "C.UTF-8");
  nxl_cs* initial = nxl_get_def_cs();
  nxl_cs* own = nxl_cs_new("UTF8");
  nxl_set_def_cs(own);
  EXPECT_EQ(own, nxl_get_def_cs());
  nxl_set_def_cs(nullptr);
  EXPECT_EQ("kind 7", kindOf(nxl_get_def_cs()));
  nxl_set_def_cs(own);
  nxl_cs_free(own);
  EXPECT_EQ("kind 7", kindOf(nxl_get_def_cs()));
  nxl_set_def_cs(initial);
  nxl_uninit();
  nxl_uninit();

  nxl_cs_free(nxl_get_def_cs());
  nxl_set_def_cs(nxl_cs_new("UTF8"));
  EXPECT_EQ(0, nxl_cs_free(nullptr));
  nxl_cs_free(nxl_get_utf8_cs());
  EXPECT_EQ("kind 6", kindOf(nxl_get_utf8_cs()));
}

TEST_F(Registry, WritesCanonicalNames) {
  const std::tuple<int (*)(const char*, char*, int), const char*, const char*> cases[] = {
      // "-" for an error
      {nxl_canonical_loc, "american", "C"},    {nxl_canonical_loc, "Jp_JP", "ja_JP"},
      {nxl_canonical_loc, "de-DE", "de_DE"},   {nxl_canonical_loc, "portuguese", "portug"},
      {nxl_canonical_loc, "de_DE.UTF-8", "-"}, {nxl_canonical_lang, "en", "C"},
      {nxl_canonical_lang, "zh", "zh_CN"},     {nxl_canonical_lang, "american", "americ"},
      {nxl_canonical_lang, "k\xF6", "-"},
  };
  for (const auto& [function, name, expected] : cases) {
    char buffer[16];
    const bool failed = function(name, buffer, sizeof buffer) != 0;
    EXPECT_EQ(expected, std::string(failed ? "-" : "") + buffer) << name;
  }
  char buffer[4];
  nxl_os_lang_name(buffer, sizeof buffer);
  EXPECT_STREQ("C", buffer);
  set("LANG", "de_DE.UTF-8");
  nxl_os_lang_name(buffer, sizeof buffer);
  EXPECT_STREQ("de_", buffer);
  for (auto* function : {nxl_canonical_loc, nxl_canonical_lang}) EXPECT_EQ(1, function("C", buffer, 0));
  nxl_os_lang_name(buffer, 0);
  EXPECT_STREQ("de_", buffer);
}

// The probe is made once in a process, which is why each case has its own.
TEST_F(Registry, Variant930BlanksLowerCase) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto convertA = [](const char* dir) {
    std::uint32_t size = 0;
    std::free(load_table(dir, "NONE", &size));
    std::free(load_table("later/", "NONE", &size));
    const Codeset cs(nxl_cs_new("INTERNAL37"));
    char16_t units[2];
    nxl_to_ucs2(cs.get(), "\x81\xC1", 2, units, 2);
    char back[2];
    nxl_from_ucs2(cs.get(), u"aA", 2, back, 2);
    std::exit(units[0] == u'a' && units[1] == u'A' && back[0] == '\x81' && back[1] == '\xC1'   ? 10
              : units[0] == u'?' && units[1] == u'A' && back[0] == '\x6F' && back[1] == '\xC1' ? 20
                                                                                               : 30);
  };
  writeFile("here/930variant", "");
  writeFile("later/930variant", "");
  EXPECT_EXIT(convertA("here/"), testing::ExitedWithCode(20), "");
  EXPECT_EXIT(convertA("elsewhere/"), testing::ExitedWithCode(10), "");
}

}  // namespace
