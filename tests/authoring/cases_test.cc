// What quillon-check says of a format file: one test for all files of cases/, each of which holds
//
//     # Any comment.
//     --- file            the format file, which findings name FILE
//     --- text            what is shown of its findings
//     --- json            its findings as JSON, one in each line
//     --- fixed           the file with all its fixes, where there are any
//
// A section's text ends with a newline unless its last line is "\ no newline". In one with ", escaped" behind its name
// \xHH is a byte and \\ a backslash. With QUILLON_UPDATE=1 in the environment a case takes what came as its
// expectation; review the diff like code.

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "authoring/check/CheckedFile.h"
#include "authoring/check/checks.h"
#include "authoring/check/fixes.h"
#include "authoring/report/finding_json.h"
#include "authoring/report/finding_text.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kNoNewline = "\\ no newline\n";

std::string unescaped(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && text.substr(i + 1, 1) == "x") {
      bytes += static_cast<char>(std::stoi(std::string(text.substr(i + 2, 2)), nullptr, 16));
      i += 3;
    } else {
      i += text[i] == '\\';
      bytes += text[i];
    }
  }
  return bytes;
}

struct Section {
  std::string head, text;

  std::string bytes() const {
    std::string plain = text;
    if (plain.ends_with(kNoNewline)) plain.resize(plain.size() - kNoNewline.size() - 1);
    return head.ends_with(", escaped") ? unescaped(plain) : plain;
  }
};

struct Case {
  explicit Case(const fs::path& path) {
    std::string all = readFile(path);
    std::string_view text = all;
    std::string* current = &comment;
    while (!text.empty()) {
      const std::string_view line = text.substr(0, text.find('\n') + 1);
      text.remove_prefix(line.size());
      if (line.starts_with("--- ")) {
        sections.push_back({std::string(line.substr(4, line.size() - 5)), ""});
        current = &sections.back().text;
      } else {
        current->append(line);
      }
    }
  }

  Section* find(std::string_view name) {
    const auto found =
        std::ranges::find_if(sections, [name](const Section& section) { return section.head.starts_with(name); });
    return found == sections.end() ? nullptr : &*found;
  }
  std::string bytes(std::string_view name) {
    const Section* const section = find(name);
    return section ? section->bytes() : "";
  }

  std::string comment;
  std::vector<Section> sections;
};

std::vector<fs::path> casePaths() {
  std::vector<fs::path> paths;
  for (const fs::directory_entry& entry : fs::directory_iterator(QUILLON_CASES)) paths.push_back(entry.path());
  std::ranges::sort(paths);
  return paths;
}

std::string textOf(const std::vector<Finding>& findings, const CheckedFile& file) {
  std::string text;
  for (const Finding& finding : findings) text += findingText(finding, file.textLines(), false);
  return text;
}

/// The lines of the JSON that hold a finding each, without what separates them.
std::string jsonOf(const std::vector<Finding>& findings, const CheckedFile& file) {
  const std::string all = findingsJson({{"FILE", &file.textLines(), file.compiles(), findings}});
  std::string lines;
  for (std::size_t at = all.find("\n{\"code\""); at < all.size(); at = all.find("\n{\"code\"", at + 1)) {
    std::string line = all.substr(at + 1, all.find('\n', at + 1) - at - 1);
    line.resize(line.size() - (line.ends_with("]}") && all.find('\n', at + 1) == all.size() - 1 ? 2 : 1));
    lines += line + "\n";
  }
  return lines;
}

void update(const fs::path& path, Case test, const std::string& text, const std::string& json,
            const std::string& fixed) {
  const auto set = [&](const std::string& name, const std::string& value) {
    Section* section = test.find(name);
    if (!section) section = &test.sections.emplace_back(Section{name, ""});
    section->text = value + (value.ends_with('\n') ? "" : "\n" + std::string(kNoNewline));
  };
  set("text", text);
  set("json", json);
  if (fixed != test.bytes("file")) set("fixed", fixed);
  std::string all = test.comment;
  for (const Section& section : test.sections) all += "--- " + section.head + "\n" + section.text;
  writeFile(path, all);
}

class AuthoringCases : public testing::TestWithParam<fs::path> {};

TEST_P(AuthoringCases, Says) {
  Case test(GetParam());
  const std::string bytes = test.bytes("file");
  const CheckedFile file("FILE", bytes);
  const std::vector<Finding> findings = check(file);
  const std::string fixed = fixAll("FILE", bytes, [](const Finding&) { return true; }).text;
  if (std::getenv("QUILLON_UPDATE")) update(GetParam(), test, textOf(findings, file), jsonOf(findings, file), fixed);
  EXPECT_EQ(test.bytes("text"), textOf(findings, file));
  EXPECT_EQ(test.bytes("json"), jsonOf(findings, file));
  EXPECT_EQ(test.find("fixed") ? test.bytes("fixed") : bytes, fixed);
  EXPECT_TRUE(!test.find("fixed") || CheckedFile("FILE", fixed).compiles());

  // An error says that the compiler refuses the file, and none that it does not.
  const auto isError = [](const Finding& finding) { return finding.severity == Severity::kError; };
  EXPECT_EQ(file.compiles(), std::ranges::none_of(findings, isError));

  // A case is named by what it is about.
  const std::string name = GetParam().stem().string().substr(0, 5);
  const auto code = codeNamed(name);
  EXPECT_TRUE(!code || std::ranges::find(findings, *code, &Finding::code) != findings.end());
}

INSTANTIATE_TEST_SUITE_P(Of, AuthoringCases, testing::ValuesIn(casePaths()), [](const auto& test) {
  std::string name = test.param.stem();
  std::ranges::replace(name, '-', '_');
  return name;
});

/// What the schema of SARIF 2.1.0 requires of the parts that are written, and what makes them useful.
TEST(AuthoringSarif, HasTheRequiredMembers) {
  std::vector<std::string> texts;
  for (const fs::path& path : casePaths()) texts.push_back(Case(path).bytes("file"));
  for (const std::string& text : texts) {
    const CheckedFile file("a b/FILE", text);
    const std::vector<Finding> findings = check(file);
    rapidjson::Document log;
    log.Parse(findingsSarif({{"a b/FILE", &file.textLines(), file.compiles(), findings}}).c_str());
    ASSERT_FALSE(log.HasParseError());
    EXPECT_STREQ("2.1.0", log["version"].GetString());
    ASSERT_EQ(1u, log["runs"].Size());
    const auto& run = log["runs"][0];
    EXPECT_STREQ("quillon-check", run["tool"]["driver"]["name"].GetString());
    EXPECT_STREQ("unicodeCodePoints", run["columnKind"].GetString());
    const auto& rules = run["tool"]["driver"]["rules"];
    EXPECT_EQ(allCodes().size(), rules.Size());
    ASSERT_EQ(findings.size(), run["results"].Size());
    for (const auto& result : run["results"].GetArray()) {
      EXPECT_STREQ(result["ruleId"].GetString(), rules[result["ruleIndex"].GetUint()]["id"].GetString());
      EXPECT_LT(0u, result["message"]["text"].GetStringLength());
      const auto& place = result["locations"][0]["physicalLocation"];
      EXPECT_STREQ("a%20b/FILE", place["artifactLocation"]["uri"].GetString());
      EXPECT_TRUE(!place.HasMember("region") || place["region"]["startColumn"].GetInt() >= 1);
      if (!result.HasMember("fixes")) continue;
      for (const auto& change : result["fixes"][0]["artifactChanges"].GetArray()) {
        EXPECT_TRUE(change.HasMember("artifactLocation"));
        ASSERT_LT(0u, change["replacements"].Size());
        for (const auto& replacement : change["replacements"].GetArray()) {
          EXPECT_LE(1, replacement["deletedRegion"]["startLine"].GetInt());
        }
      }
    }
  }
}

/// A column of a SARIF log counts characters, one of JSON bytes, and the underline is as wide as a terminal makes it.
TEST(AuthoringPlaces, CountBytesCharactersOrColumns) {
  const CheckedFile file("FILE", "FORMAT A\n\u00e9\u4e16\t%d %s\na $1\nEND\n");
  const std::vector<Finding> findings = check(file);
  ASSERT_EQ(2u, findings.size());
  EXPECT_EQ(7, findings[1].place.column);
  EXPECT_NE(std::string::npos, findingsSarif({{"FILE", &file.textLines(), true, findings}})
                                   .find("\"startLine\":2,\"startColumn\":4,\"endLine\":2,\"endColumn\":6"));
  EXPECT_NE(std::string::npos,
            findingText(findings[1], file.textLines(), false).find("2 | \u00e9\u4e16     %d %s\n  |         ^^\n"));
}

std::set<FindingCode> codesOf(const std::string& text) {
  const CheckedFile file("FILE", text);
  std::set<FindingCode> codes;
  for (const Finding& finding : check(file)) codes.insert(finding.code);
  return codes;
}

/// Below 600, where what is found needs no message.
bool isOfFile(const CodeEntry& entry) { return static_cast<int>(entry.code) < 600; }

TEST(AuthoringCodes, ExamplesAreTrue) {
  for (const CodeEntry& entry : allCodes()) {
    if (!isOfFile(entry) || *entry.before == '\0') continue;
    EXPECT_TRUE(codesOf(entry.before).contains(entry.code)) << entry.name;
    EXPECT_EQ(std::set<FindingCode>(), codesOf(entry.after)) << entry.name;
    EXPECT_EQ(entry.severity == Severity::kError, !CheckedFile("FILE", entry.before).compiles()) << entry.name;
  }
}

TEST(AuthoringCodes, HaveACaseEach) {
  std::set<std::string> names;
  for (const fs::path& path : casePaths()) names.insert(path.stem().string().substr(0, 5));
  std::set<std::string_view> seen;
  FindingCode latest{};
  for (const CodeEntry& entry : allCodes()) {
    EXPECT_LT(latest, entry.code);
    latest = entry.code;
    EXPECT_TRUE(seen.insert(entry.name).second) << entry.name;
    EXPECT_EQ(entry.code, codeNamed(codeText(entry.code)));
    const bool isElsewhere = entry.code == FindingCode::kCannotRead || entry.code == FindingCode::kRefused;
    EXPECT_TRUE(!isOfFile(entry) || isElsewhere || names.contains(codeText(entry.code))) << entry.name;
  }
}

}  // namespace
}  // namespace quillon
