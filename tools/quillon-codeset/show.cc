#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>

#include "codeset/image.h"
#include "codeset/init.h"
#include "codeset/tables.h"
#include "tools/quillon-codeset/commands.h"

namespace quillon {
namespace {

using Codeset = std::unique_ptr<nxl_cs, FreeCodeset>;

const char* kindName(int kind) {
  switch (kind) {
    case kSingleByteKind:
      return "single-byte";
    case kDoubleByteKind:
      return "double-byte";
    case kMultiByteKind:
      return "multi-byte";
    case kMixedEbcdicKind:
      return "mixed EBCDIC";
    case kUtf8Kind:
      return "UTF-8";
    case kEbcdicKind:
      return "EBCDIC";
    case kInternal37Kind:
      return "EBCDIC invariant set";
    case kGb18030Kind:
      return "GB 18030";
    default:
      return "pass-through";
  }
}

// The files of a directory, sorted; none when it cannot be read.
std::set<std::string> fileNames(const std::string& dir) {
  std::set<std::string> names;
  std::error_code error;
  std::filesystem::directory_iterator entries(dir.empty() ? "." : dir, error);
  while (!error && entries != std::filesystem::directory_iterator()) {
    names.insert(entries->path().filename().string());
    entries.increment(error);
  }
  return names;
}

// Prints every character of a codeset that the library converts.
class Characters {
 public:
  explicit Characters(const nxl_cs& cs) : cs_(cs), mixed_(cs.kind == kMixedEbcdicKind) {}

  void print() {
    walk("", 0);
    if (mixed_) walk("", 1);
  }

 private:
  static constexpr std::size_t kMostBytes = 4;

  // All characters that begin with `prefix`, in shift state `state`.
  void walk(const std::string& prefix, std::uint8_t state) {
    for (int byte = 0; byte < 256; ++byte) {
      const std::string bytes = prefix + static_cast<char>(byte);
      if (mixed_ && (byte == 0x0E || byte == 0x0F) && prefix.empty()) continue;
      nxl_cs copy = cs_;
      copy.state1 = state;
      char16_t unit[2];
      const char* in = bytes.data();
      char16_t* out = unit;
      int left = static_cast<int>(bytes.size());
      int room = 2;
      const int code = nxl_to_ucs2_r(&copy, &in, &left, &out, &room);
      if (code == 2 && bytes.size() < kMostBytes) walk(bytes, state);
      if (code == 0 && room == 1 && (state == 0 || bytes.size() > 1)) printCharacter(bytes, unit[0], state);
    }
  }

  void printCharacter(const std::string& bytes, char16_t c, std::uint8_t state) {
    char back[8];
    const int size = nxl_from_ucs2(const_cast<nxl_cs*>(&cs_), &c, 1, back, sizeof back);
    std::string shifted = state ? '\x0E' + bytes + '\x0F' : bytes;
    const bool same = shifted == std::string(back, static_cast<std::size_t>(size));
    if (c == u'?' && !same) return;  // stands for "no such character"
    std::string line;
    for (const char byte : shifted) {
      char digits[4];
      std::snprintf(digits, sizeof digits, "%02X ", static_cast<unsigned>(static_cast<unsigned char>(byte)));
      line += digits;
    }
    std::printf("%-13s%s U+%04X\n", line.c_str(), same ? "=" : ">", static_cast<unsigned>(c));
  }

  const nxl_cs& cs_;
  bool mixed_;
};

}  // namespace

int printNames(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    char buffer[128];
    get_table_name(name.c_str(), buffer, sizeof buffer);
    std::puts(buffer);
  }
  return finishOutput();
}

int listTables() {
  std::set<std::string> seen;
  for (const std::string& dir : tableDirectories()) {
    for (const std::string& name : fileNames(dir)) {
      std::uint32_t size = 0;
      const std::unique_ptr<unsigned char, decltype(&std::free)> table(load_table(dir.c_str(), name.c_str(), &size),
                                                                       &std::free);
      if (!table || !seen.insert(name).second) continue;
      const std::string path = dir + name;
      const bool ebcdic = load16(table.get() + kFamilyOffset) == kEbcdicFamily;
      const std::uint32_t kind = ebcdic ? std::uint32_t{kEbcdicKind} : load16(table.get() + kKindOffset);
      std::printf("%-12s %-13s %s\n", name.c_str(), kindName(static_cast<int>(kind)), path.c_str());
    }
  }
  return finishOutput();
}

int showCodeset(const std::string& name) {
  const Codeset cs(nxl_cs_new(name.c_str()));
  if (!cs) return fail("no codeset %s; \"quillon-codeset list\" shows what NXLDIR provides", name.c_str());
  std::printf("kind: %d (%s)\n", cs->kind, kindName(cs->kind));
  if (cs->table) {
    std::printf("name: %.*s\n", static_cast<int>(kNameBytes), reinterpret_cast<const char*>(cs->table + kNameOffset));
    std::printf("size: %lu bytes\n", static_cast<unsigned long>(cs->table_size));
    std::printf("longest character: %d\nlayout: %d\n", cs->param_a, cs->param_b);
  }
  if (cs->kind == kUtf8Kind) return finishOutput();
  std::puts("\nBytes, U+ character; \"=\" converts both ways, \">\" to Unicode only.");
  Characters(*cs).print();
  return finishOutput();
}

}  // namespace quillon
