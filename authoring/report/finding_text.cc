#include "authoring/report/finding_text.h"

#include <unitypes.h>
#include <uniwidth.h>

#include <algorithm>
#include <cstdint>

#include "foundation/utf8.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

constexpr std::size_t kTab = 8;
/// Bytes that are shown before and behind a range in a very long line.
constexpr std::size_t kAround = 120;

struct Colours {
  const char *error, *warning, *note, *place, *end;
};
constexpr Colours kPlain = {"", "", "", "", ""};
constexpr Colours kTerminal = {"\x1B[1;31m", "\x1B[1;35m", "\x1B[36m", "\x1B[1m", "\x1B[0m"};

/// The character that `bytes`, a well-formed sequence, encodes.
std::uint32_t decoded(std::string_view bytes) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])); };
  if (bytes.size() == 1) return byte(0);
  std::uint32_t c = byte(0) & (0xFFU >> (bytes.size() + 1));
  for (std::size_t i = 1; i < bytes.size(); ++i) c = c << 6 | (byte(i) & 0x3F);
  return c;
}

/// A piece of a line as it is shown, with the columns that each byte of it begins and ends at.
class ShownLine {
 public:
  /// Of `line`, with at most kAround bytes before and behind the range.
  ShownLine(std::string_view line, std::size_t from, std::size_t to) {
    from = std::min(from, line.size());
    to = std::clamp(to, from, line.size());
    begin_ = from > kAround ? from - kAround : 0;
    std::size_t end = std::min({line.size(), to + kAround, from + 4 * kAround});
    while (begin_ > 0 && isContinuation(line[begin_])) --begin_;
    while (end < line.size() && isContinuation(line[end])) ++end;
    if (begin_ > 0) add("...", 3);
    fromColumn_ = toColumn_ = width_;
    for (std::size_t at = begin_; at < end;) {
      const Utf8Sequence sequence = firstSequence(line.substr(at, end - at));
      addCharacter(line.substr(at, sequence.length), sequence.wellFormed);
      at += sequence.length;
      if (at <= from) fromColumn_ = width_;
      if (at - sequence.length < to) toColumn_ = width_;
    }
    if (end < line.size()) add("...", 3);
  }

  const std::string& text() const { return text_; }
  std::size_t fromColumn() const { return fromColumn_; }
  std::size_t toColumn() const { return std::max(toColumn_, fromColumn_ + 1); }

 private:
  static bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

  void add(std::string_view text, std::size_t columns) {
    text_ += text;
    width_ += columns;
  }

  void addCharacter(std::string_view bytes, bool isWellFormed) {
    if (bytes == "\t") {
      const std::size_t blanks = kTab - width_ % kTab;
      return add(std::string(blanks, ' '), blanks);
    }
    if (!isWellFormed) {
      // A terminal would show nothing, or anything.
      for (char c : bytes) {
        constexpr const char* kDigits = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        add(std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 15], 4);
      }
      return;
    }
    const std::string shown = visible(bytes);
    if (shown != bytes) return add(shown, shown.size());
    add(shown, static_cast<std::size_t>(std::max(uc_width(decoded(bytes), "UTF-8"), 0)));
  }

  std::size_t begin_ = 0;
  std::string text_;
  std::size_t width_ = 0;
  std::size_t fromColumn_ = 0;
  std::size_t toColumn_ = 0;
};

class FindingWriter {
 public:
  FindingWriter(const TextLines& lines, bool colours, int largestLine)
      : lines_(lines), colours_(colours ? kTerminal : kPlain), gutter_(std::to_string(largestLine).size()) {}

  void head(const Finding& finding) {
    out_ += colours_.place + visible(finding.file);
    if (finding.place) out_ += ":" + std::to_string(finding.place.line) + ":" + std::to_string(finding.place.column);
    out_ += std::string(": ") + colours_.end;
    const bool isError = finding.severity == Severity::kError;
    out_ += isError ? colours_.error : colours_.warning;
    out_ += (isError ? "error " : "warning ") + codeText(finding.code) + colours_.end + ": ";
    out_ += visible(finding.text) + "\n";
  }

  /// The line of `place` with the range underlined, and `text` behind that.
  void excerpt(const Place& place, char underline, const char* colour, std::string_view text) {
    const std::string_view line = lines_.line(place.line);
    const auto from = static_cast<std::size_t>(place.column) - 1;
    const bool isOneLine = place.line == place.endLine;
    const std::size_t to = isOneLine ? static_cast<std::size_t>(place.endColumn) - 1 : line.size();
    const ShownLine shown(line, from, to);
    const std::string number = std::to_string(place.line);
    out_ += std::string(gutter_ - number.size(), ' ') + number + " |";
    if (!shown.text().empty()) out_ += " " + shown.text();
    out_ += "\n" + std::string(gutter_, ' ') + " | " + std::string(shown.fromColumn(), ' ') + colour;
    out_ += std::string(shown.toColumn() - shown.fromColumn(), underline);
    if (!text.empty()) out_ += " " + visible(text);
    out_ += colour[0] ? colours_.end : "";
    out_ += "\n";
  }

  /// "= hint: ...", with further lines below the first one.
  void remark(const char* kind, std::string_view text) {
    std::string lead = std::string(gutter_, ' ') + " = " + kind + ": ";
    while (true) {
      const std::size_t end = text.find('\n');
      out_ += lead + visible(text.substr(0, end)) + "\n";
      if (end == std::string_view::npos) return;
      text.remove_prefix(end + 1);
      lead.assign(lead.size(), ' ');
    }
  }

  void all(const Finding& finding) {
    head(finding);
    const char* const colour = finding.severity == Severity::kError ? colours_.error : colours_.warning;
    if (finding.place) excerpt(finding.place, '^', colour, "");
    for (const Note& note : finding.notes) {
      if (note.place) excerpt(note.place, '-', colours_.note, note.text);
    }
    for (const Note& note : finding.notes) {
      if (!note.place) remark("note", note.text);
    }
    if (!finding.hint.empty()) remark("hint", finding.hint);
    if (finding.fix) remark("fix", finding.fix->title);
  }

  std::string take() { return std::move(out_); }

 private:
  const TextLines& lines_;
  const Colours& colours_;
  const std::size_t gutter_;
  std::string out_;
};

void addExample(std::string& text, const char* title, std::string_view lines) {
  text += std::string("\n") + title + "\n\n";
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    const std::string_view line = lines.substr(0, end);
    if (!line.empty()) text += "    " + visible(line);
    text += "\n";
    lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
  }
}

/// `paragraph` in lines of up to 79 characters.
std::string filled(std::string_view paragraph) {
  constexpr std::size_t kColumns = 79;
  std::string text;
  std::size_t column = 0;
  while (!paragraph.empty()) {
    const std::string_view word = paragraph.substr(0, paragraph.find(' '));
    if (column > 0 && column + 1 + word.size() > kColumns) {
      text += "\n";
      column = 0;
    } else if (column > 0) {
      text += " ";
      ++column;
    }
    text += word;
    column += word.size();
    paragraph.remove_prefix(std::min(word.size() + 1, paragraph.size()));
  }
  return text + "\n";
}

}  // namespace

std::string findingText(const Finding& finding, const TextLines& lines, bool colours) {
  int largest = finding.place.line;
  for (const Note& note : finding.notes) largest = std::max(largest, note.place.line);
  FindingWriter writer(lines, colours, largest);
  writer.all(finding);
  return writer.take();
}

std::string codeExplanation(const CodeEntry& entry) {
  const bool isError = entry.severity == Severity::kError;
  std::string text = codeText(entry.code) + " (" + entry.name + ", " + (isError ? "error" : "warning") + "): ";
  text += std::string(entry.title) + "\n\n" + filled(entry.explanation);
  if (*entry.before != '\0') {
    addExample(text, "Before:", entry.before);
    addExample(text, "After:", entry.after);
  }
  return text;
}

}  // namespace quillon
