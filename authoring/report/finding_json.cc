#include "authoring/report/finding_json.h"

#include <algorithm>
#include <iterator>

#include "foundation/json_text.h"
#include "foundation/utf8.h"

namespace quillon {
namespace {

/// Writes JSON. Objects and lists are opened and closed in pairs; commas come by themselves.
class JsonWriter {
 public:
  JsonWriter& open(char bracket) {
    separate();
    json_ += bracket;
    isFirst_ = true;
    return *this;
  }
  JsonWriter& close(char bracket) {
    json_ += bracket;
    isFirst_ = false;
    return *this;
  }
  /// The next value is that of `name`.
  JsonWriter& name(const char* name) {
    separate();
    json_ += std::string("\"") + name + "\":";
    isFirst_ = true;
    return *this;
  }
  JsonWriter& text(std::string_view value) {
    separate();
    json_ += '"';
    appendJson(json_, value);
    json_ += '"';
    return *this;
  }
  JsonWriter& number(long long value) {
    separate();
    json_ += std::to_string(value);
    return *this;
  }
  JsonWriter& truth(bool value) {
    separate();
    json_ += value ? "true" : "false";
    return *this;
  }
  /// The next value begins in a line of its own.
  JsonWriter& newLine() {
    separate();
    json_ += '\n';
    isFirst_ = true;
    return *this;
  }
  std::string take() { return std::move(json_) + "\n"; }

 private:
  void separate() {
    if (!isFirst_) json_ += ',';
    isFirst_ = false;
  }

  std::string json_;
  bool isFirst_ = true;
};

const char* severityName(Severity severity) { return severity == Severity::kError ? "error" : "warning"; }

// ---- JSON.

void addPlace(JsonWriter& json, const Place& place) {
  if (!place) return;
  json.name("line").number(place.line).name("column").number(place.column);
  json.name("endLine").number(place.endLine).name("endColumn").number(place.endColumn);
}

void addFix(JsonWriter& json, const Fix& fix) {
  json.name("fix").open('{').name("title").text(fix.title).name("edits").open('[');
  for (const Edit& edit : fix.edits) {
    json.open('{');
    addPlace(json, edit.range);
    json.name("text").text(edit.text).close('}');
  }
  json.close(']').close('}');
}

void addFinding(JsonWriter& json, const Finding& finding) {
  json.newLine().open('{').name("code").text(codeText(finding.code)).name("name").text(codeEntry(finding.code).name);
  json.name("severity").text(severityName(finding.severity)).name("file").text(finding.file);
  addPlace(json, finding.place);
  json.name("text").text(finding.text);
  if (!finding.notes.empty()) {
    json.name("notes").open('[');
    for (const Note& note : finding.notes) {
      json.open('{');
      addPlace(json, note.place);
      json.name("text").text(note.text).close('}');
    }
    json.close(']');
  }
  if (!finding.hint.empty()) json.name("hint").text(finding.hint);
  if (finding.fix) addFix(json, *finding.fix);
  json.close('}');
}

// ---- SARIF.

/// "file.fmt" as a relative reference (RFC 3986), "/a b" as "file:///a%20b".
std::string uri(std::string_view path) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text = path.starts_with('/') ? "file://" : "";
  for (char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isUnreserved = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                              std::string_view("-._~/").find(c) != std::string_view::npos;
    if (isUnreserved) {
      text += c;
    } else {
      text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return text;
}

/// Columns that count characters. Remembers where it was: findings come in the order of the file, and a long line with
/// many of them should not be gone through for each.
class CharacterColumns {
 public:
  /// The column of the character that begins at, or holds, the byte in `column` of `line`.
  long long of(const TextLines& lines, int line, int column) {
    const std::string_view text = lines.line(line);
    const auto bytes = static_cast<std::size_t>(column) - 1;
    if (&lines != lines_ || line != line_ || bytes < bytes_) {
      lines_ = &lines;
      line_ = line;
      bytes_ = 0;
      characters_ = 1;
    }
    while (bytes_ < std::min(bytes, text.size())) {
      const std::size_t length = firstSequence(text.substr(bytes_)).length;
      if (bytes_ + length > bytes) break;
      bytes_ += length;
      ++characters_;
    }
    const std::size_t beyond = bytes > text.size() ? bytes - text.size() : 0;
    return characters_ + static_cast<long long>(beyond);
  }

 private:
  const TextLines* lines_ = nullptr;
  int line_ = 0;
  std::size_t bytes_ = 0;  ///< Before the present character of the line.
  long long characters_ = 1;
};

class SarifWriter {
 public:
  std::string write(const std::vector<FileFindings>& files) {
    json_.open('{').name("$schema").text("https://json.schemastore.org/sarif-2.1.0.json").name("version").text("2.1.0");
    json_.name("runs").open('[').open('{').name("tool").open('{').name("driver").open('{');
    json_.name("name").text("quillon-check").name("version").text(QUILLON_VERSION);
    addRules();
    json_.close('}').close('}').name("columnKind").text("unicodeCodePoints").name("results").open('[');
    for (const FileFindings& file : files) {
      for (const Finding& finding : file.findings) addResult(finding, file.lines);
    }
    json_.close(']').close('}').close(']').close('}');
    return json_.take();
  }

 private:
  void addMessage(std::string_view text) { json_.open('{').name("text").text(text).close('}'); }

  void addRules() {
    json_.name("rules").open('[');
    for (const CodeEntry& entry : allCodes()) {
      json_.newLine().open('{').name("id").text(codeText(entry.code)).name("name").text(entry.name);
      json_.name("shortDescription");
      addMessage(entry.title);
      json_.name("fullDescription");
      addMessage(entry.explanation);
      json_.name("defaultConfiguration")
          .open('{')
          .name("level")
          .text(severityName(entry.severity))
          .close('}')
          .close('}');
    }
    json_.close(']');
  }

  void addRegion(const char* name, const Place& place, const TextLines* lines) {
    json_.name(name).open('{').name("startLine").number(place.line);
    if (lines) {
      json_.name("startColumn").number(columns_.of(*lines, place.line, place.column));
      json_.name("endLine").number(place.endLine);
      json_.name("endColumn").number(columns_.of(*lines, place.endLine, place.endColumn));
    }
    json_.close('}');
  }

  void addArtifact(const std::string& file) {
    json_.name("artifactLocation").open('{').name("uri").text(uri(file)).close('}');
  }

  /// What a location is made of, but for its brackets.
  void addLocation(const std::string& file, const Place& place, const TextLines* lines) {
    json_.name("physicalLocation").open('{');
    addArtifact(file);
    if (place) addRegion("region", place, lines);
    json_.close('}');
  }

  void addResult(const Finding& finding, const TextLines* lines) {
    const auto rules = allCodes();
    const auto rule = std::ranges::find(rules, finding.code, &CodeEntry::code);
    json_.newLine().open('{').name("ruleId").text(codeText(finding.code));
    json_.name("ruleIndex").number(rule - rules.begin()).name("level").text(severityName(finding.severity));
    std::string message = finding.text;
    for (const Note& note : finding.notes) {
      if (!note.place) message += "\n" + note.text;
    }
    if (!finding.hint.empty()) message += "\n" + finding.hint;
    json_.name("message");
    addMessage(message);
    json_.name("locations").open('[').open('{');
    addLocation(finding.file, finding.place, lines);
    json_.close('}').close(']');
    addRelated(finding, lines);
    if (finding.fix) addFix(finding, lines);
    json_.close('}');
  }

  void addRelated(const Finding& finding, const TextLines* lines) {
    if (std::ranges::none_of(finding.notes, [](const Note& note) { return static_cast<bool>(note.place); })) return;
    json_.name("relatedLocations").open('[');
    for (const Note& note : finding.notes) {
      if (!note.place) continue;
      json_.open('{');
      addLocation(finding.file, note.place, lines);
      json_.name("message");
      addMessage(note.text);
      json_.close('}');
    }
    json_.close(']');
  }

  void addFix(const Finding& finding, const TextLines* lines) {
    json_.name("fixes").open('[').open('{').name("description");
    addMessage(finding.fix->title);
    json_.name("artifactChanges").open('[').open('{');
    addArtifact(finding.file);
    json_.name("replacements").open('[');
    for (const Edit& edit : finding.fix->edits) {
      json_.open('{');
      addRegion("deletedRegion", edit.range, lines);
      json_.name("insertedContent").open('{').name("text").text(edit.text).close('}').close('}');
    }
    json_.close(']').close('}').close(']').close('}').close(']');
  }

  JsonWriter json_;
  CharacterColumns columns_;
};

}  // namespace

std::string findingsJson(const std::vector<FileFindings>& files) {
  JsonWriter json;
  json.open('{').name("files").open('[');
  for (const FileFindings& file : files) {
    json.newLine().open('{').name("file").text(file.file);
    if (file.compiles) json.name("compiles").truth(*file.compiles);
    json.close('}');
  }
  json.close(']').name("findings").open('[');
  for (const FileFindings& file : files) {
    for (const Finding& finding : file.findings) addFinding(json, finding);
  }
  return json.close(']').close('}').take();
}

std::string findingsSarif(const std::vector<FileFindings>& files) { return SarifWriter().write(files); }

}  // namespace quillon
