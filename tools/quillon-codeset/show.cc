#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "codeset/image.h"
#include "codeset/init.h"
#include "codeset/tables.h"
#include "foundation/visible.h"
#include "tools/quillon-codeset/commands.h"

namespace quillon {
namespace {

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

// Text of a file, for standard output: as it is, but for eyes made visible.
std::string shown(const std::string& text) { return isatty(STDOUT_FILENO) ? visible(text) : text; }

[[gnu::format(printf, 2, 3)]] void print(std::string& out, const char* format, ...) {
  char line[2 * kPathBytes];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  out += line;
}

void printTable(std::string& out, const std::string& name, int kind, const std::string& place) {
  print(out, "%-12s %-13s ", shown(name).c_str(), kindName(kind));
  out += shown(place) + '\n';
}

// Prints every character of a codeset that the library converts.
class Characters {
 public:
  Characters(const nxl_cs& cs, std::string& out) : cs_(cs), out_(out), mixed_(cs.kind == kMixedEbcdicKind) {}

  void print() {
    walk("", 0);
    if (mixed_) walk("", 1);
  }

 private:
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
      if (code == 2) walk(bytes, state);  // ends: no family has characters of more than four bytes
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
    quillon::print(out_, "%-13s%s U+%04X\n", line.c_str(), same ? "=" : ">", static_cast<unsigned>(c));
  }

  const nxl_cs& cs_;
  std::string& out_;
  bool mixed_;
};

// The tables of the directories that are searched, the first of each name.
class Tables {
 public:
  void add(const std::string& dir) {
    std::error_code error;
    std::set<std::string> names;
    std::filesystem::directory_iterator entries(dir.empty() ? "." : dir, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
      names.insert(entries->path().filename().string());
    }
    if (error && error != std::errc::no_such_file_or_directory) cannotLookAt(dir.empty() ? "." : dir, error.value());
    for (const std::string& name : names) addFile(dir, name);
  }

  void print(std::string& out) const {
    if (lines_.empty()) {
      for (const auto& [name, kind] : {std::pair("UTF8", kUtf8Kind), std::pair("INTERNAL37", kInternal37Kind)}) {
        printTable(out, name, kind, "built in");
      }
      const char* dir = environmentOrEmpty("NXLDIR");
      say("no tables found; NXLDIR is %s", *dir ? dir : "unset");
    }
    for (const Line& line : lines_) printTable(out, line.name, line.kind, line.path);
  }

  int status() const { return status_; }

 private:
  struct Line {
    std::string name;
    int kind;
    std::string path;
  };

  void addFile(const std::string& dir, const std::string& name) {
    const std::string path = dir + name;
    std::uint32_t size = 0;
    const std::unique_ptr<unsigned char, decltype(&std::free)> table(load_table(dir.c_str(), name.c_str(), &size),
                                                                     &std::free);
    if (table && seen_.insert(name).second) {
      const bool ebcdic = load16(table.get() + kFamilyOffset) == kEbcdicFamily;
      const std::uint32_t kind = ebcdic ? std::uint32_t{kEbcdicKind} : load16(table.get() + kKindOffset);
      lines_.push_back({name, static_cast<int>(kind), path});
    }
    // Other files than tables lie about there; but one of a table's name that nobody can look at might be the table.
    const int error = table || !canBeTable(name) ? 0 : tableError(dir, name.c_str());
    if (error != 0) cannotLookAt(path, error);
  }

  static bool canBeTable(const std::string& name) {
    return std::ranges::all_of(name, [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); });
  }

  void cannotLookAt(const std::string& path, int error) {
    status_ = fail("cannot look at %s: %s", path.c_str(), std::strerror(error));
  }

  std::set<std::string> seen_;
  std::vector<Line> lines_;
  int status_ = EXIT_SUCCESS;
};

}  // namespace

int printNames(const std::vector<std::string>& names) {
  std::string out;
  for (const std::string& name : names) {
    char buffer[128];
    get_table_name(name.c_str(), buffer, sizeof buffer);
    out += shown(buffer) + '\n';
  }
  return writeOutput(out);
}

int listTables() {
  Tables tables;
  for (const std::string& dir : tableDirectories()) tables.add(dir);
  std::string out;
  tables.print(out);
  const int status = writeOutput(out);
  return status == EXIT_SUCCESS ? tables.status() : status;
}

int showCodeset(const std::string& name) {
  const Codeset cs = openCodeset(name);
  if (!cs) return EXIT_FAILURE;
  std::string out;
  print(out, "kind: %d (%s)\n", cs->kind, kindName(cs->kind));
  if (cs->table) {
    const auto* text = reinterpret_cast<const char*>(cs->table + kNameOffset);
    print(out, "name: %s\n", shown(std::string(text, strnlen(text, kNameBytes))).c_str());
    print(out, "size: %lu bytes\n", static_cast<unsigned long>(cs->table_size));
    print(out, "longest character: %d\nlayout: %d\n", cs->param_a, cs->param_b);
  }
  if (cs->kind == kUtf8Kind) return writeOutput(out);
  out += "\nBytes, U+ character; \"=\" converts both ways, \">\" to Unicode only.\n";
  Characters(*cs, out).print();
  return writeOutput(out);
}

}  // namespace quillon
