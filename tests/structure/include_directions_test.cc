#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// What each folder may include from besides itself. Data flows one way: a folder that is not named here, or an include
/// that a row does not allow, is a decision to be taken here first.
const std::map<std::string, std::vector<std::string>> kMayInclude = {
    {"foundation", {}},
    {"codeset", {"foundation"}},
    {"config", {"foundation"}},
    {"cds", {"foundation", "codeset"}},
    {"src/adapters/logfile/common", {"foundation", "codeset"}},
    {"src/adapters/logfile/match", {"foundation", "codeset", "src/adapters/logfile/common"}},
    {"src/adapters/logfile/event",
     {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/match"}},
    {"src/adapters/logfile/source", {"foundation"}},
    {"src/adapters/logfile/broker", {"foundation", "config", "delivery", "src/adapters/logfile/source"}},
    {"authoring/report", {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/event"}},
    {"authoring/shadow", {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/match"}},
    {"authoring/explain",
     {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/match",
      "src/adapters/logfile/event", "authoring/report"}},
    {"authoring/compare",
     {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/match",
      "src/adapters/logfile/event", "authoring/report", "authoring/explain"}},
    {"authoring/check",
     {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/match",
      "src/adapters/logfile/event", "authoring/report", "authoring/shadow"}},
    {"authoring/samples",
     {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/match",
      "src/adapters/logfile/event", "authoring/report", "authoring/explain", "authoring/check"}},
    {"delivery/cache", {"foundation"}},
    {"delivery", {"foundation", "config", "delivery/cache"}},
    {"program", {"foundation", "codeset", "src/adapters/logfile/common"}},
    {"adapter",
     {"foundation", "config", "src/adapters/logfile/common", "src/adapters/logfile/match", "src/adapters/logfile/event",
      "src/adapters/logfile/source", "src/adapters/logfile/broker", "cds", "delivery/cache", "delivery", "daemon",
      "program"}},
    {"daemon", {"foundation", "config", "delivery/cache", "delivery"}},
    {"server", {"foundation", "config", "codeset", "cds", "delivery/cache", "delivery", "daemon", "program"}},
    {"compiler", {"program", "src/adapters/logfile/common"}},
    {"tools",
     {"foundation", "codeset", "src/adapters/logfile/common", "src/adapters/logfile/match",
      "src/adapters/logfile/event", "src/adapters/logfile/source", "authoring/report", "authoring/shadow",
      "authoring/explain", "authoring/compare", "authoring/check", "authoring/samples", "config", "delivery/cache",
      "delivery", "program"}},
};

/// The row of `path`, relative to the root; empty when there is none. A folder within another may have its own.
std::string folderOf(const std::string& path) {
  for (auto row = kMayInclude.rbegin(); row != kMayInclude.rend(); ++row) {
    if (path.starts_with(row->first + "/")) return row->first;
  }
  return "";
}

bool mayInclude(const std::string& folder, const std::string& included) {
  if (folder == included) return true;
  const std::vector<std::string>& allowed = kMayInclude.at(folder);
  return std::find(allowed.begin(), allowed.end(), included) != allowed.end();
}

/// What a line includes by a name in quotes; empty when it is no such line.
std::string includedBy(std::string_view line) {
  const auto skipBlanks = [&line] { line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size())); };
  skipBlanks();
  if (!line.starts_with('#')) return "";
  line.remove_prefix(1);
  skipBlanks();
  if (!line.starts_with("include")) return "";
  line.remove_prefix(std::string_view("include").size());
  skipBlanks();
  if (!line.starts_with('"')) return "";
  line.remove_prefix(1);
  return std::string(line.substr(0, line.find('"')));
}

/// The breaches in one file, one a line.
std::string breaches(const std::string& path, std::istream& source) {
  std::string found;
  for (std::string line; std::getline(source, line);) {
    const std::string name = includedBy(line);
    if (name.empty()) continue;
    if (name == "eConfig.tab.h") continue;  // written by bison, for the scanner beside it
    if (!mayInclude(folderOf(path), folderOf(name))) found += path + " includes " + name + "\n";
  }
  return found;
}

TEST(IncludeDirections, FollowTheFolders) {
  const fs::path root(QUILLON_SOURCE);
  int files = 0;
  for (const char* top : {"foundation", "config", "codeset", "src", "authoring", "delivery", "cds", "program",
                          "compiler", "daemon", "adapter", "server", "tools"}) {
    if (!fs::exists(root / top)) continue;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / top)) {
      static const std::set<std::string> sources = {".h", ".cc", ".l", ".y"};
      const std::string path = entry.path().lexically_relative(root);
      if (!sources.contains(entry.path().extension())) continue;
      ++files;
      ASSERT_NE("", folderOf(path)) << path << " stands in a folder that has no row here";
      std::ifstream text(entry.path());
      EXPECT_EQ("", breaches(path, text));
    }
  }
  EXPECT_LT(80, files);  // else the walk has missed them
}

TEST(IncludeDirections, BreachesAreSeen) {
  struct Case {
    const char *path, *line, *expected;
  };
  const Case cases[] = {
      {"foundation/a.h", "#include \"codeset/codeset.h\"", "foundation/a.h includes codeset/codeset.h\n"},
      {"codeset/a.cc", "#include \"foundation/list.h\"", ""},
      {"tools/a.cc", "  # include \"compiler/quillon.h\" // why", "tools/a.cc includes compiler/quillon.h\n"},
      {"src/adapters/logfile/source/a.h", "#include \"src/adapters/logfile/common/LogDriver.h\"",
       "src/adapters/logfile/source/a.h includes src/adapters/logfile/common/LogDriver.h\n"},
      {"tools/a.cc", "#include \"strobj.h\"", "tools/a.cc includes strobj.h\n"},  // not spelled from the root
  };
  for (const Case& c : cases) {
    std::istringstream text(c.line);
    EXPECT_EQ(c.expected, breaches(c.path, text)) << c.line;
  }
}

}  // namespace
}  // namespace quillon
