// Every shipped table against the C library's own conversion, in both directions.

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>

#include "tests/codeset/scratch.h"

namespace {

struct Shipped {
  std::string table, charset;
};

void PrintTo(const Shipped& shipped, std::ostream* out) { *out << shipped.table; }

std::vector<Shipped> shipped() {
  std::vector<Shipped> result;
  std::ifstream file(CODESET_CHARSETS);
  std::string line;
  while (std::getline(file, line)) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) result.push_back({line.substr(0, equals), line.substr(equals + 1)});
  }
  return result;
}

class Iconv {
 public:
  Iconv(const std::string& to, const std::string& from) : cd_(iconv_open(to.c_str(), from.c_str())) {}
  ~Iconv() { iconv_close(cd_); }

  // Converts a whole text; `*error` is 0, EILSEQ or EINVAL.
  std::string operator()(std::string text, int* error) {
    char buffer[64];
    char* in = text.data();
    std::size_t in_left = text.size();
    char* out = buffer;
    std::size_t out_left = sizeof buffer;
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    *error = iconv(cd_, &in, &in_left, &out, &out_left) == static_cast<std::size_t>(-1) ? errno : 0;
    iconv(cd_, nullptr, nullptr, &out, &out_left);
    return std::string(buffer, out);
  }

 private:
  iconv_t cd_;
};

std::string hex(const std::string& bytes) {
  std::ostringstream out;
  for (const char byte : bytes) out << std::hex << (static_cast<unsigned>(byte) & 0xFF) << ' ';
  return out.str();
}

std::string utf8(char16_t c) {
  char text[4];
  return std::string(text, static_cast<std::size_t>(nxl_from_ucs2(nxl_get_utf8_cs(), &c, 1, text, sizeof text)));
}

class AgainstIconv : public Scratch, public testing::WithParamInterface<Shipped> {
 protected:
  void SetUp() override {
    Scratch::SetUp();
    set("NXLDIR", CODESET_DATA);
    cs_.reset(nxl_cs_new(GetParam().table.c_str()));
    ASSERT_TRUE(cs_);
    Iconv iconv("UTF-8", GetParam().charset);
    for (int i = 0; !ebcdic() && i < 0x80; ++i) {
      const std::string byte(1, static_cast<char>(i));
      int error = 0;
      if (iconv(byte, &error) != byte) changed_ascii_ += byte;
    }
  }

  bool composes() const {
    const std::string& table = GetParam().table;
    return table == "CP1255" || table == "CP1258" || table == "TCVN57121";
  }
  bool ebcdic() const { return cs_->kind == kEbcdicKind || cs_->kind == kMixedEbcdicKind; }
  char letterA() const { return ebcdic() ? '\xC1' : 'A'; }
  bool mixed() const { return cs_->kind == kMixedEbcdicKind; }

  // By itself, where each limit is checked, and at the start of a long text, where none has to be: both are the same.
  std::string toUtf8(const std::string& bytes) const {
    const std::string alone = toUtf8Once(bytes);
    EXPECT_EQ(alone + std::string(48, 'A'), toUtf8Once(bytes + (mixed() ? "\x0F" : "") + std::string(48, letterA())));
    return alone;
  }

  std::string toUtf8Once(const std::string& bytes) const {
    char text[128];
    const int size = nxl_to_utf8(cs_.get(), bytes.data(), static_cast<int>(bytes.size()), text, sizeof text);
    return std::string(text, static_cast<std::size_t>(size));
  }

  std::string fromUcs2(char16_t c) const {
    char text[128];
    const int alone_size = nxl_from_ucs2(cs_.get(), &c, 1, text, sizeof text);
    const std::string alone(text, static_cast<std::size_t>(alone_size));
    const std::string longer = utf8(c) + std::string(48, 'A');
    const int size = nxl_from_utf8(cs_.get(), longer.data(), static_cast<int>(longer.size()), text, sizeof text);
    EXPECT_EQ(alone + std::string(48, letterA()), std::string(text, static_cast<std::size_t>(size)));
    return alone;
  }

  // Where the tables differ on purpose: "Differences from iconv" in doc/codeset-tables.md. `pair` are two characters.
  bool excepted(const std::string& bytes, bool pair, const std::string& expected) const {
    const auto changed = [this](char byte) { return changed_ascii_.find(byte) != std::string::npos; };
    if (changed(bytes[0]) || (pair && changed(bytes[1]))) return true;
    if (pair && composes()) return true;
    const auto supplementary = [](char byte) { return static_cast<unsigned char>(byte) >= 0xF0; };
    const bool holds = cs_->kind == kGb18030Kind && bytes.size() == 4;
    if (!holds && std::any_of(expected.begin(), expected.end(), supplementary)) return true;
    const auto begins = [](char byte) { return (byte & 0xC0) != 0x80; };
    const bool one = GetParam().table == "1399" ? bytes.size() == 2 : GetParam().table == "BIG5HKSCS" && !pair;
    const bool two_for_one = one && std::count_if(expected.begin(), expected.end(), begins) == 2;
    return two_for_one || expected == "\uffff";
  }

  // Compares every text of `prefix` and one more byte; and every pair, and what is longer where a lead byte wants more.
  void compareBelow(Iconv& iconv, const std::string& prefix, bool incomplete) {
    for (int byte = 0; byte < 256; ++byte) {
      const std::string bytes = prefix + static_cast<char>(byte);
      if (bytes.size() == 4 && cs_->kind == kGb18030Kind && (byte < '0' || byte > '9')) continue;  // 40 million less
      const std::string text = mixed() && prefix.size() == 1 ? "\x0E" + bytes + "\x0F" : bytes;
      int error = 0;
      const std::string expected = iconv(text, &error);
      if (error == 0 && !excepted(bytes, !incomplete && bytes.size() > 1, expected)) {
        const std::string got = toUtf8(text);
        ++compared_;
        if (expected != got) report(hex(text), expected, got);
      }
      if (error == EILSEQ && prefix.empty() && (ebcdic() || byte >= 0x80)) {
        const std::string got = toUtf8(text);
        if (got != "?" && !(mixed() && got.empty())) report(hex(text), "?", got);
      }
      const bool more = error == EINVAL && !mixed();
      if (prefix.empty() || (incomplete && more && bytes.size() < 4)) compareBelow(iconv, bytes, more);
    }
  }

  void report(const std::string& what, const std::string& expected, const std::string& got) {
    if (++differences_ <= 10) ADD_FAILURE() << what << "expected " << hex(expected) << "got " << hex(got);
  }

  Codeset cs_;
  std::string changed_ascii_;  ///< The bytes below 0x80 that iconv does not take for ASCII.
  int compared_ = 0;
  int differences_ = 0;
};

TEST_P(AgainstIconv, EverySequence) {
  Iconv iconv("UTF-8", GetParam().charset);
  compareBelow(iconv, "", true);
  EXPECT_GE(compared_, 200);
  EXPECT_EQ(0, differences_) << "of " << compared_;
}

TEST_P(AgainstIconv, EveryCharacter) {
  Iconv iconv(GetParam().charset, "UTF-8");
  for (int i = 0; i < 0x10000; ++i) {
    if (i >= 0xD800 && i < 0xE000) continue;
    const auto c = static_cast<char16_t>(i);
    int error = 0;
    std::string expected = iconv(utf8(c), &error);
    if (error != 0) expected.assign(1, ebcdic() ? '\x6F' : '?');
    if (!ebcdic() && i < 0x80) expected.assign(1, static_cast<char>(i));
    if (composes() && expected.size() > 1) expected.assign(1, '?');
    const std::string got = fromUcs2(c);
    if (expected != got) report("U+" + hex({static_cast<char>(i >> 8), static_cast<char>(i)}), expected, got);
  }
  EXPECT_EQ(0, differences_);
}

INSTANTIATE_TEST_SUITE_P(Tables, AgainstIconv, testing::ValuesIn(shipped()),
                         [](const auto& test) { return test.param.table; });

}  // namespace
