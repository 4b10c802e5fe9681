#include "authoring/samples/test_report.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "foundation/utf8.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

/// One test: a file as a whole or a sample.
struct Test {
  std::string title;
  const std::vector<Finding>& findings;

  /// What failed it; null when nothing has.
  const Finding* failure() const {
    const auto found = std::ranges::find_if(findings, [](const Finding& finding) {
      return finding.severity == Severity::kError || failsSample(finding.code);
    });
    return found == findings.end() ? nullptr : &*found;
  }
};

/// Calls `visit` with each test of `file`.
template <class Visit>
void forEachTest(const TestedFile& file, const Visit& visit) {
  visit(Test{file.file, file.findings});
  for (const SampleOutcome& outcome : file.samples) {
    const std::string line = std::to_string(outcome.sample.place.line);
    visit(Test{outcome.file + ":" + line + ": " + outcome.title(), outcome.findings});
  }
}

std::string position(const Place& place) {
  return place ? ":" + std::to_string(place.line) + ":" + std::to_string(place.column) : "";
}

/// `text`, of one line, in UTF-8 and without control characters.
std::string shown(std::string_view text) {
  std::string room;
  return visible(repairUtf8(text, room));
}

/// Whole lines: the finding, its notes and its hint.
std::string plainText(const Finding& finding) {
  std::string text =
      finding.file + position(finding.place) + ": " + finding.text + " [" + codeText(finding.code) + "]\n";
  for (const Note& note : finding.notes) {
    text += "  note: " + (note.place ? finding.file + position(note.place) + ": " : std::string()) + note.text + "\n";
  }
  if (!finding.hint.empty()) text += "  hint: " + finding.hint + "\n";
  return text;
}

/// Behind the number of a test "#" begins a directive.
std::string tapTitle(std::string_view title) {
  std::string text;
  for (const char c : shown(title)) {
    if (c == '#' || c == '\\') text += '\\';
    text += c;
  }
  return text;
}

/// `text` between double quotes.
std::string yamlText(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : shown(text)) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void appendTap(std::string& tap, const Test& test, std::size_t number) {
  tap += test.failure() ? "not ok " : "ok ";
  tap += std::to_string(number) + " - " + tapTitle(test.title) + "\n";
  if (test.findings.empty()) return;
  tap += "  ---\n  findings:\n";
  for (const Finding& finding : test.findings) {
    tap += "    - code: " + codeText(finding.code) + "\n";
    tap += "      at: " + yamlText(finding.file + position(finding.place)) + "\n";
    tap += "      message: " + yamlText(finding.text) + "\n";
    if (!finding.notes.empty()) tap += "      notes:\n";
    for (const Note& note : finding.notes) {
      tap += "        - text: " + yamlText(note.text) + "\n";
      if (note.place) tap += "          at: " + yamlText(finding.file + position(note.place)) + "\n";
    }
    if (!finding.hint.empty()) tap += "      hint: " + yamlText(finding.hint) + "\n";
  }
  tap += "  ...\n";
}

/// `text` as character data and in attributes; its newlines stay.
std::string xmlText(std::string_view text) {
  std::string escaped;
  while (true) {
    const std::size_t newline = std::min(text.find('\n'), text.size());
    for (const char c : shown(text.substr(0, newline))) {
      constexpr std::string_view kSpecial = "&<>\"\t";
      constexpr const char* kEntities[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#9;"};
      const std::size_t i = kSpecial.find(c);
      i < kSpecial.size() ? void(escaped += kEntities[i]) : escaped.push_back(c);
    }
    if (newline == text.size()) break;
    escaped += '\n';
    text.remove_prefix(newline + 1);
  }
  // These two code points are characters of UTF-8 but not of XML.
  for (const char* const none : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    for (std::size_t at = 0; (at = escaped.find(none, at)) != std::string::npos;)
      escaped.replace(at, 3, "\xEF\xBF\xBD");
  }
  return escaped;
}

std::string attribute(const char* name, std::string_view value) {
  return " " + std::string(name) + "=\"" + xmlText(value) + "\"";
}

void appendCase(std::string& xml, const TestedFile& file, const Test& test) {
  xml += "    <testcase" + attribute("classname", shown(file.file)) + attribute("name", shown(test.title));
  if (test.findings.empty()) {
    xml += "/>\n";
    return;
  }
  std::string text;
  for (const Finding& finding : test.findings) text += plainText(finding);
  std::string element = "system-out", attributes;
  if (const Finding* const failure = test.failure()) {
    element = "failure";
    attributes = attribute("message", shown(failure->text)) + attribute("type", codeText(failure->code));
  }
  xml += ">\n      <" + element + attributes + ">" + xmlText(text) + "</" + element + ">\n    </testcase>\n";
}

struct Counts {
  std::size_t tests = 0;
  std::size_t failures = 0;

  void add(const TestedFile& file) {
    forEachTest(file, [this](const Test& test) {
      ++tests;
      if (test.failure()) ++failures;
    });
  }
  std::string attributes() const {
    return attribute("tests", std::to_string(tests)) + attribute("failures", std::to_string(failures));
  }
};

}  // namespace

std::string tapText(std::span<const TestedFile> files) {
  Counts all;
  for (const TestedFile& file : files) all.add(file);
  std::string tap = "TAP version 13\n1.." + std::to_string(all.tests) + "\n";
  std::size_t number = 0;
  for (const TestedFile& file : files) {
    forEachTest(file, [&](const Test& test) { appendTap(tap, test, ++number); });
  }
  return tap;
}

std::string junitText(std::span<const TestedFile> files) {
  Counts all;
  for (const TestedFile& file : files) all.add(file);
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + all.attributes() + ">\n";
  for (const TestedFile& file : files) {
    Counts counts;
    counts.add(file);
    xml += "  <testsuite" + attribute("name", shown(file.file)) + counts.attributes() + ">\n";
    forEachTest(file, [&](const Test& test) { appendCase(xml, file, test); });
    xml += "  </testsuite>\n";
  }
  return xml + "</testsuites>\n";
}

}  // namespace quillon
