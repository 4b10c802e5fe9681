#include "authoring/samples/Samples.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "foundation/characters.h"
#include "src/adapters/logfile/common/FormatSpec.h"

namespace quillon {
namespace {

constexpr std::string_view kMark = "//@";

std::size_t skipSpace(std::string_view text, std::size_t at) {
  while (at < text.size() && isWhiteSpace(text[at])) ++at;
  return at;
}

/// The end of the word at `at`.
std::size_t skipWord(std::string_view text, std::size_t at) {
  while (at < text.size() && !isWhiteSpace(text[at])) ++at;
  return at;
}

std::string_view withoutSpaceBehind(std::string_view text) {
  while (!text.empty() && isWhiteSpace(text.back())) text.remove_suffix(1);
  return text;
}

int hexDigit(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// A piece of an entry, by its bytes.
struct Range {
  std::size_t at = 0;
  std::size_t end = 0;
};

/// A line comment, or a line of a file of samples.
struct Entry {
  std::string_view text;
  Place start;       ///< Of its first byte.
  std::size_t from;  ///< Where the mark ends.
  bool isRaw;        ///< Ended by NUL.

  Range wordAt(std::size_t at) const {
    at = skipSpace(text, at);
    return {at, skipWord(text, at)};
  }
  std::string_view operator[](Range range) const { return text.substr(range.at, range.end - range.at); }

  /// Where `range` stands in the file.
  Place place(Range range) const {
    Place place = advanced(start, text.substr(0, range.at));
    const Place end = advanced(place, text.substr(range.at, range.end - range.at));
    place.length = static_cast<int>(range.end - range.at);
    place.endLine = end.line;
    place.endColumn = end.column;
    return place;
  }
  /// Behind the NUL byte that ends it.
  Place behind() const {
    Place place = advanced(start, text);
    ++place.column;
    return place;
  }

 private:
  static Place advanced(Place place, std::string_view over) {
    place.line += static_cast<int>(std::count(over.begin(), over.end(), '\n'));
    const std::size_t newline = over.rfind('\n');
    place.column =
        static_cast<int>(newline == std::string_view::npos ? over.size() + static_cast<std::size_t>(place.column)
                                                           : over.size() - newline);
    return place;
  }
};

/// What the first words of an entry make of it.
struct Head {
  Sample::Kind kind;
  Range name;        ///< Of its block; empty when it names none.
  std::size_t text;  ///< Where its message begins: right behind the colon.
};

/// The head of a sample; none when `entry` begins with something else.
std::optional<Head> headOf(const Entry& entry) {
  static constexpr std::pair<std::string_view, Sample::Kind> kKinds[] = {
      {"sample", Sample::Kind::kBound}, {"not", Sample::Kind::kNotBound}, {"unmatched", Sample::Kind::kUnmatched}};
  const Range word = entry.wordAt(entry.from);
  const Range name = entry.wordAt(word.end);
  for (const auto& [keyword, kind] : kKinds) {
    if (!entry[word].starts_with(keyword)) continue;
    const std::string_view behind = entry[word].substr(keyword.size());
    if (behind == ":") return Head{kind, {}, word.end};
    if (behind.empty() && name.end - name.at > 1 && entry[name].back() == ':') {
      return Head{kind, {name.at, name.end - 1}, name.end};
    }
  }
  return std::nullopt;
}

/// Takes entries one after the other and makes samples of them.
class SampleReader {
 public:
  explicit SampleReader(SampleList& list) : list_(list) {}

  /// What follows stands at another place: before the block `name`, or, when it is empty, before none, because of
  /// `whyNone`.
  void enter(std::string_view name, std::string whyNone) {
    block_ = name;
    whyNone_ = std::move(whyNone);
    state_ = State::kNoSample;
  }

  void take(const Entry& entry) {
    if (const std::optional<Head> head = headOf(entry)) {
      takeSample(entry, *head);
    } else {
      takeValue(entry);
    }
  }

 private:
  enum class State {
    kNoSample,
    kSample,  ///< The values of the latest sample may follow.
    kFaulty,  ///< They would, but it had a fault, which has been told.
  };
  using Kind = SampleFault::Kind;
  static constexpr const char* kNulEnds = "a message ends at its first NUL byte";

  void fault(Kind kind, const Place& place, std::string text, std::string hint = {}) {
    list_.faults.push_back({kind, place, std::move(text), std::move(hint)});
  }

  void takeSample(const Entry& entry, const Head& head) {
    state_ = State::kFaulty;
    Sample sample;
    sample.kind = head.kind;
    sample.block = head.name.end > 0 ? entry[head.name] : std::string_view(block_);
    if (head.name.end > 0) sample.blockPlace = entry.place(head.name);
    if (head.kind == Sample::Kind::kUnmatched) {
      if (head.name.end > 0) return fault(Kind::kMalformed, entry.place(head.name), "an unmatched line has no block");
      sample.block.clear();
    } else if (sample.block.empty()) {
      return fault(Kind::kMisplaced, entry.place(entry.wordAt(entry.from)), whyNone_,
                   "a sample stands before the FORMAT line of its block, or names it: \"sample NAME: LINE\"");
    }
    const std::optional<Range> text = takeText(entry, head.text, sample.message);
    if (!text) return;
    sample.place = entry.place(*text);
    state_ = State::kSample;
    list_.samples.push_back(std::move(sample));
  }

  void takeValue(const Entry& entry) {
    const Range name = entry.wordAt(entry.from);
    const Range equals = entry.wordAt(name.end);
    if (entry[equals] != "=") return notUnderstood(entry, name);
    if (state_ == State::kFaulty) return;
    if (state_ == State::kNoSample) {
      return fault(Kind::kMisplaced, entry.place(name), "a value stands below no sample",
                   "values follow the sample that they are of");
    }
    Sample& sample = list_.samples.back();
    if (sample.kind != Sample::Kind::kBound) {
      return fault(Kind::kMisplaced, entry.place(name), "only a line that its block binds has values");
    }
    Sample::Value value;
    value.name = entry[name];
    if (std::ranges::find(sample.values, value.name, &Sample::Value::name) != sample.values.end()) {
      return fault(Kind::kMalformed, entry.place(name), value.name + " is given a value twice");
    }
    const std::optional<Range> text = takeText(entry, equals.end, value.text);
    if (!text) return;
    value.place = entry.place({name.at, text->end});
    sample.values.push_back(std::move(value));
  }

  void notUnderstood(const Entry& entry, Range word) {
    std::string hint = "it begins with \"sample:\", \"not:\" or \"unmatched:\", or is \"SLOT = VALUE\"";
    if (entry[word].find('=') != std::string_view::npos) {
      hint = "blanks stand around the \"=\" of a value";
    } else {
      state_ = State::kFaulty;
      const std::size_t colon = entry[word].find(':');
      if (colon != std::string_view::npos && colon + 1 < entry[word].size()) hint = "a blank follows the \":\"";
    }
    fault(Kind::kMalformed, entry.place(word.at < word.end ? word : Range{0, entry.from}),
          "this is no part of a sample", std::move(hint));
  }

  /// Takes what stands from `at` on, without the white space around it and out of its quotes. Where it was; nothing
  /// after a fault.
  std::optional<Range> takeText(const Entry& entry, std::size_t at, std::string& text) {
    if (entry.isRaw) {
      const Range range{std::min(at + 1, entry.text.size()), entry.text.size()};  // behind the blank
      text = entry[range];
      return range;
    }
    const std::size_t end = withoutSpaceBehind(entry.text).size();
    const Range range{std::min(skipSpace(entry.text, at), end), end};
    if (range.at == range.end) {
      fault(Kind::kMalformed, entry.place({skipSpace(entry.text, entry.from), end}), "nothing follows",
            "an empty text is written \"\"");
      return std::nullopt;
    }
    if (entry.text[range.at] == '"') return unquote(entry, range, text) ? std::optional(range) : std::nullopt;
    text = entry[range];
    if (const std::size_t nul = text.find('\0'); nul != std::string::npos) {
      fault(Kind::kMalformed, entry.place({range.at + nul, range.at + nul + 1}), kNulEnds);
      return std::nullopt;
    }
    return range;
  }

  bool unquote(const Entry& entry, Range quoted, std::string& text) {
    const char* const kWhole = "what begins with a quote is quoted as a whole: \"\\\"GET /\\\" 200\"";
    std::size_t at = quoted.at + 1;
    while (at < quoted.end && entry.text[at] != '"') {
      if (entry.text[at] != '\\') {
        text += entry.text[at++];
      } else if (!takeEscape(entry, {at, quoted.end}, at, text)) {
        return false;
      }
    }
    if (at >= quoted.end) {
      fault(Kind::kMalformed, entry.place(quoted), "the quote is not closed", kWhole);
      return false;
    }
    if (at + 1 < quoted.end) {
      fault(Kind::kMalformed, entry.place({at + 1, quoted.end}), "something follows the closing quote", kWhole);
      return false;
    }
    return true;
  }

  /// Appends to `text` what the escape that begins `rest` stands for, and moves `at` behind it. False after a fault.
  bool takeEscape(const Entry& entry, Range rest, std::size_t& at, std::string& text) {
    static constexpr std::string_view kLetters = "\"\\nt", kBytes = "\"\\\n\t";
    const std::string_view escape = entry[rest].substr(1);
    std::size_t length = std::min<std::size_t>(1, escape.size());
    if (escape.starts_with('x')) {
      while (length < std::min<std::size_t>(3, escape.size()) && hexDigit(escape[length]) >= 0) ++length;
    }
    const Range range{rest.at, rest.at + 1 + length};
    at = range.end;
    if (const std::size_t i = kLetters.find(escape.substr(0, 1)); !escape.empty() && i < kLetters.size()) {
      text += kBytes[i];
      return true;
    }
    const int byte = length == 3 ? hexDigit(escape[1]) * 16 + hexDigit(escape[2]) : -1;
    if (byte > 0) {
      text += static_cast<char>(byte);
      return true;
    }
    const bool isNul = byte == 0;
    fault(Kind::kMalformed, entry.place(range), isNul ? kNulEnds : "there is no such escape",
          isNul ? "" : "there are \\\", \\\\, \\n, \\t and, for any byte, \\xHH");
    return false;
  }

  SampleList& list_;
  std::string block_;
  std::string whyNone_;
  State state_ = State::kNoSample;
};

/// True when the author of `comment`, which does not begin with the mark, seems to have meant a sample: the mark is
/// there, but taken apart or in a comment of the other kind, or it is all that is missing before "sample:".
bool looksLikeSample(std::string_view comment) {
  const bool isBlock = comment.starts_with("/*");
  if (isBlock && comment.ends_with("*/")) comment.remove_suffix(2);
  std::size_t from = skipSpace(comment, std::min<std::size_t>(2, comment.size()));
  const bool hasMark = comment.substr(from).starts_with('@');
  if (hasMark) ++from;
  const std::optional<Head> head = headOf({comment, {}, from, false});
  return head && (hasMark || (!isBlock && head->kind == Sample::Kind::kBound && head->name.end == 0));
}

bool isBefore(const Place& a, const Place& b) { return a.line != b.line ? a.line < b.line : a.column < b.column; }

}  // namespace

int Sample::Value::variable() const {
  const bool isVariable = name.size() > 1 && name[0] == '$' && std::all_of(name.begin() + 1, name.end(), isDigit);
  return isVariable ? leadingNumber(name.c_str() + 1) : 0;
}

SampleList samplesIn(const FormatPlaces& places) {
  SampleList list;
  SampleReader reader(list);
  auto next = places.blocks().begin();
  const FormatPlaces::Block* latest = nullptr;  // of those that begin before the comment
  bool isInside = false;
  const auto enter = [&] {
    if (isInside) {
      reader.enter({}, "a sample stands inside the block " + std::string(latest->format->getName().view()));
    } else if (next != places.blocks().end()) {
      reader.enter(next->format->getName().view(), {});
    } else {
      reader.enter({}, "no block follows this sample");
    }
  };
  enter();
  for (const FormatPlaces::Comment& comment : places.comments()) {
    const bool wasInside = isInside;
    const FormatPlaces::Block* const before = latest;
    while (next != places.blocks().end() && isBefore(next->name, comment.place)) latest = &*next++;
    isInside = latest && latest->end && isBefore(comment.place, latest->end);
    if (latest != before || isInside != wasInside) enter();
    if (comment.text.starts_with(kMark)) {
      reader.take({comment.text, comment.place, kMark.size(), false});
    } else if (looksLikeSample(comment.text)) {
      list.faults.push_back({SampleFault::Kind::kLooksLike, comment.place,
                             "this comment is prose, though it looks like a sample", "a sample begins with \"//@\""});
    }
  }
  return list;
}

SampleList samplesInText(std::string_view text) {
  SampleList list;
  SampleReader reader(list);
  reader.enter({}, "this sample names no block");
  const bool isRaw = text.find('\0') != std::string_view::npos;
  Place start{.line = 1, .column = 1};
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find(isRaw ? '\0' : '\n'));
    const Entry whole{line, start, 0, isRaw};
    const std::size_t begin = skipSpace(line, 0);
    if (const std::string_view rest = line.substr(begin); rest.starts_with(kMark)) {
      reader.take({line, start, begin + kMark.size(), isRaw});
    } else if (!rest.empty() && !rest.starts_with("//")) {
      reader.take(whole);
    }
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    start = isRaw ? whole.behind() : Place{.line = start.line + 1, .column = 1};
  }
  return list;
}

}  // namespace quillon
