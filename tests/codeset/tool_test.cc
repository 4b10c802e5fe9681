#include <sys/wait.h>

#include <cstdio>

#include "tests/codeset/scratch.h"

namespace {

class Tool : public Scratch {
 protected:
  void SetUp() override {
    Scratch::SetUp();
    set("NXLDIR", CODESET_DATA);
  }

  // The exit status and what the tool said: both outputs of "quillon-codeset ARGUMENTS" in a shell.
  static std::string run(const std::string& arguments) {
    std::FILE* pipe = popen(("{ " CODESET_TOOL " " + arguments + "; } 2>&1").c_str(), "r");
    std::string output;
    char buffer[4096];
    while (const std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
    const int status = pclose(pipe);
    return std::to_string(WEXITSTATUS(status)) + ": " + output;
  }
};

TEST_F(Tool, Speaks) {
  write("mojibake", "gr\xFC\xDF");
  write("cut", "ab\xE2\x82");
  write("sjis-cut", "ab\x82");
  struct Case {
    const char *arguments, *expected;
  };
  const Case cases[] = {
      {"name iso-8859-1 windows-1252 os", "0: ISO88591\nCP1252\nUTF8\n"},
      {"convert -f latin1 -t utf-8 mojibake", "0: gr\u00fc\u00df"},
      {"convert -f latin1 -t utf-8 <mojibake", "0: gr\u00fc\u00df"},
      {"convert -f utf8 -t latin1 cut", "1: abquillon-codeset: cut: incomplete character at byte 2\n"},
      {"convert -f sjis -t utf8 sjis-cut", "1: abquillon-codeset: sjis-cut: incomplete character at byte 2\n"},
      {"convert -f utf8 -t latin1 nofile", "1: quillon-codeset: cannot open nofile: No such file or directory\n"},
      {"convert -f utf8 -t latin1 .", "1: quillon-codeset: cannot read .: Is a directory\n"},
      {"convert -f latin1 -t utf8 mojibake >/dev/full",
       "1: quillon-codeset: cannot write to standard output: No space left on device\n"},
      {"convert -f nosuch -t utf8 cut",
       "1: quillon-codeset: no codeset nosuch; \"quillon-codeset list\" shows what NXLDIR provides\n"},
      {"build X NO-SUCH", "1: quillon-codeset: the C library has no charset NO-SUCH; iconv -l lists them\n"},
      {"build X ISO-2022-JP", "1: quillon-codeset: no table for ISO-2022-JP: it switches by escapes\n"},
      {"build -o no/dir/X X KOI8-R", "1: quillon-codeset: cannot write no/dir/X: No such file or directory\n"},
      {"build MINE KOI8-R && ls && NXLDIR= " CODESET_TOOL " list",
       "0: MINE\ncut\nmojibake\nsjis-cut\nMINE         single-byte   MINE\n"},
      {"--version >version; mkfifo p; timeout 9 cat p >copy & sleep 0.1; " CODESET_TOOL
       " build -o p MINE KOI8-R; wait; cmp copy MINE; test -p p",
       "0: "},  // what is no file is written into, not replaced
      {"show 939 | grep -A1 '^0E 44 81'", "0: 0E 44 81 0F  = U+3042\n0E 44 82 0F  = U+3044\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, run(c.arguments)) << c.arguments;
  EXPECT_EQ("2: ", run("frobnicate").substr(0, 3));
  EXPECT_EQ("2: ", run("convert -f utf8").substr(0, 3));
  EXPECT_EQ("0: quillon-codeset ", run("--version").substr(0, 19));
}

// Larger than any buffer of the tool, with characters across their ends.
TEST_F(Tool, ConvertsLongFilesBothWays) {
  std::string text;
  while (text.size() < 500000) text += text.size() % 7 ? "\u3042x" : "\u0416\n";
  write("text", text);
  for (const std::string name : {"utf8", "sjis", "eucjp", "gb18030", "939"}) {
    const std::string back =
        run("convert -f utf8 -t " + name + " text | " CODESET_TOOL " convert -f " + name + " -t utf8");
    EXPECT_TRUE(back == "0: " + text) << name;
  }
}

}  // namespace
