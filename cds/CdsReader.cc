// One class at a time, with a cursor, straight into the set. Where a text could end in two places the choice is noted;
// a class that turns out to have a fault is taken back and read again with the latest choice made otherwise, so that
// `"C:\", "x"` is read right whether it is the word C:\ and x or the one text `C:\", `. The bytes that are read again
// have a budget in proportion to the text, and nothing else goes back.

#include "cds/CdsReader.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <optional>
#include <unordered_set>
#include <utility>

#include "codeset/codeset.h"
#include "foundation/characters.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

/// What the numbers in a ClassSet hold, and the codeset services take.
constexpr std::size_t kMostBytes = std::size_t{512} << 20;
constexpr std::size_t kMostFaults = 20;
constexpr std::size_t kReadAgain = 4;  ///< How often the text may be read again, all choices together,
constexpr std::size_t kReadAgainAnyway = std::size_t{1} << 20;  ///< and bytes of a small one.
constexpr std::size_t kShown = 24;  ///< Bytes of what is found in place of what is expected.

constexpr std::string_view kIndent = "    ";
constexpr std::string_view kClass = "CLASS ";
constexpr std::string_view kMap = "  MAP\n";
constexpr std::string_view kEnd = "END\n";
constexpr std::string_view kPrint = "PRINTF(";
constexpr std::string_view kNext = ", ";
constexpr std::string_view kStop = ";\n";

/// Of a word of the format-file language: of a name, or of a constant that was written without quotes.
bool isWordByte(char c) { return !isWhiteSpace(c) && std::string_view("\"%(),").find(c) == std::string_view::npos; }

bool isAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

/// As the writer counts what stands for the arguments of a PRINTF.
std::size_t fields(std::string_view format) {
  std::size_t count = 0;
  for (std::size_t at = format.find("%s"); at != std::string_view::npos; at = format.find("%s", at + 2)) ++count;
  return count;
}

std::string quoted(std::string_view text) {
  std::string result = "\"";
  result += text;
  return result += "\"";
}

}  // namespace

/// Reads, and makes the set.
class ClassSetBuilder {
 public:
  ClassSetBuilder(std::string_view text, nxl_cs* codeset)
      : text_(text),
        codeset_(codeset && codeset->kind != kUtf8Kind && codeset->kind != kPassThroughKind ? codeset : nullptr) {}

  CdsReading read() {
    if (text_.size() > kMostBytes) {
      faults_.push_back({0, "more than 512 MiB"});
    } else {
      while (at_ < text_.size() && faults_.size() < kMostFaults) classDefinition();
    }
    CdsReading reading;
    reading.faults = placed();
    if (faults_.empty()) reading.classes = finished();
    return reading;
  }

 private:
  struct Fault {
    std::size_t at;
    std::string text;
  };

  using Names = std::unordered_set<std::string_view>;

  /// How much of the set there was.
  struct Mark {
    std::size_t texts, classes, attributes, slots, pieces;
  };

  /// An open PRINTF.
  struct Print {
    std::size_t at;
    std::size_t left;  ///< Arguments that must still come.
  };

  // ---- Classes and choices.

  void classDefinition() {
    const std::size_t begin = at_;
    const Mark mark = {set_.texts_.size(), set_.classes_.size(), set_.attributes_.size(), set_.slots_.size(),
                       set_.pieces_.size()};
    std::vector<Fault> faults;  // of the time that came furthest
    std::size_t furthest = 0;
    choices_.clear();
    for (;;) {
      found_.clear();
      choice_ = 0;
      definition();
      if (found_.empty()) {
        ids_.insert(set_.classes_.back().eventId);
        return;
      }
      if (faults.empty() || at_ > furthest) {
        faults = found_;
        furthest = at_;
      }
      readAgain_ += at_ - begin;
      takeBack(mark);
      while (!choices_.empty() && choices_.back()) choices_.pop_back();
      if (choices_.empty() || readAgain_ > kReadAgain * text_.size() + kReadAgainAnyway) break;
      choices_.back() = true;
      at_ = begin;
    }
    faults_.insert(faults_.end(), faults.begin(), faults.end());
    // On with what looks like the next class.
    const std::size_t next = text_.find("\nCLASS ", std::max(begin, faults.back().at));
    at_ = std::min(next, text_.size() - 1) + 1;
  }

  void takeBack(const Mark& mark) {
    set_.texts_.resize(mark.texts);
    set_.classes_.resize(mark.classes);
    set_.attributes_.resize(mark.attributes);
    set_.slots_.resize(mark.slots);
    set_.pieces_.resize(mark.pieces);
  }

  /// Whether the text at hand goes on where it could end, too. Asked in the same order each time that a class is read.
  bool goesOn() {
    if (choice_ == choices_.size()) choices_.push_back(false);
    return choices_[choice_++];
  }

  // ---- The productions. False when there is no going on in this class.

  bool definition() {
    if (!expect(kClass)) return false;
    ClassSet::Class made;
    made.attribute = count(set_.attributes_);
    made.slot = count(set_.slots_);
    made.name = keep(utf8(name()));
    set_.classes_.push_back(made);
    if (!expect("\n") || !select()) return false;
    if (!startsWith(kEnd) && !startsWith(kMap)) return fails("expected \"  MAP\" or \"END\", found " + present());
    if (take(kMap)) {
      names_ = Names();
      while (at_ < text_.size() && !startsWith(kEnd)) {
        if (!slot()) return false;
      }
    }
    if (!expect(kEnd)) return false;
    return at_ == text_.size() || startsWith(kClass) || fails("expected CLASS, found " + present());
  }

  bool select() {
    if (!expect("  SELECT\n") || !expect("    1: ATTR(=,\"_event_id\"), VALUE(=,\"")) return false;
    const std::size_t at = at_;
    const auto id = number();
    if (!id) return fails("expected the number of the class, found " + present());
    if (ids_.contains(*id)) finds(at, "another class has the _event_id " + std::to_string(*id));
    ClassSet::Class& made = set_.classes_.back();
    made.eventId = *id;
    made.number = keep(text_.substr(at, at_ - at));
    if (!expect("\");\n")) return false;
    lines_ = 1;
    names_ = Names();  // not clear(), which takes as long as the largest class has names
    while (startsWith(kIndent)) {
      if (!expect(std::string(kIndent) + std::to_string(lines_ + 1) + ": ATTR(=,\"")) return false;
      ++lines_;
      set_.attributes_.push_back(keep(newName("attribute")));
      if (!expect("\");\n")) return false;
    }
    return true;
  }

  bool slot() {
    if (!take(kIndent)) return fails("expected four blanks and a slot, or \"END\", found " + present());
    set_.slots_.push_back({keep(utf8(newName("slot"))), count(set_.pieces_)});
    pending_.clear();
    if (!expect(" = ")) return false;
    if (!(startsWith(kPrint) ? print() : operand(kStop, true))) return false;
    if (!pending_.empty() || set_.slots_.back().piece == set_.pieces_.size()) endPiece(0);
    return expect(kStop);
  }

  /// A PRINTF with all that is in it. Of those within it only their form matters: "%s" stays where the argument is a
  /// PRINTF itself, as it does in the events that an adapter makes. So what is kept is no longer than the text.
  bool print() {
    open_.clear();
    if (!openPrint()) return false;
    format_ = utf8(text_.substr(format_begin_, at_ - format_begin_));
    format_ = format_.size() < 2 ? "" : format_.substr(1, format_.size() - 2);
    std::size_t copied = 0;
    while (!open_.empty()) {
      if (open_.back().left == 0) {
        if (startsWith(kNext)) return failsCount();
        if (!expect(")")) return false;
        open_.pop_back();
        continue;
      }
      if (startsWith(")")) return failsCount();
      if (!expect(kNext)) return false;
      --open_.back().left;
      const bool isDirect = open_.size() == 1;
      const bool isPrint = startsWith(kPrint);
      if (isDirect) {
        const std::size_t field = std::min(format_.find("%s", copied), format_.size());
        pending_.append(format_, copied, field - copied + (isPrint ? 2 : 0));
        copied = std::min(field + 2, format_.size());
      }
      if (!(isPrint ? openPrint() : operand(open_.back().left > 0 ? kNext : ")", isDirect))) return false;
    }
    pending_.append(format_, copied);
    return true;
  }

  bool openPrint() {
    const std::size_t begin = at_;
    at_ += kPrint.size();
    format_begin_ = at_;
    if (!startsWith("\"")) return fails("expected a text in quotes, found " + present());
    if (!endQuoted()) return false;
    open_.push_back({begin, fields(text_.substr(format_begin_, at_ - format_begin_))});
    return true;
  }

  /// A constant, before `follow`, or the value of a line of SELECT; it becomes part of the slot if it is `used`.
  bool operand(std::string_view follow, bool used) {
    const std::size_t begin = at_;
    if (startsWith("\"")) {
      if (!endConstant(follow)) return false;
      if (used) pending_ += utf8(text_.substr(begin + 1, at_ - begin - 2));
      return true;
    }
    const auto line = take("$V") ? number() : std::nullopt;
    if (!line) {
      at_ = begin;
      return fails("expected $V and a number, a text in quotes, or PRINTF(, found " + present());
    }
    if (*line < 1 || *line > lines_) {
      finds(begin, "SELECT has no line " + std::to_string(*line));
    } else if (used) {
      endPiece(*line);
    }
    return true;
  }

  // ---- Pieces of them.

  /// Moves behind a constant that begins here.
  bool endConstant(std::string_view follow) {
    const std::size_t begin = at_;
    std::size_t end = begin + 1;
    while (end < text_.size() && isWordByte(text_[end])) ++end;
    const std::size_t escapes = end - 1 - std::min(text_.find_last_not_of('\\', end - 1), end - 1);
    const bool isWord =
        escapes % 2 == 1 && text_.substr(end).starts_with("\"") && text_.substr(end + 1).starts_with(follow);
    if (!isWord || goesOn()) return endQuoted();
    at_ = end + 1;
    return true;
  }

  /// Moves behind the first quote that no backslash belongs to.
  bool endQuoted() {
    const std::size_t begin = at_;
    for (std::size_t at = text_.find_first_of("\"\\", begin + 1); at < text_.size();
         at = text_.find_first_of("\"\\", at + 2)) {
      if (text_[at] == '\\') continue;
      at_ = at + 1;
      return true;
    }
    readAgain_ += text_.size() - begin;  // this may happen each time the class is read
    return fails("the text in quotes never ends: " + present());
  }

  /// As many word bytes as there are.
  std::string_view name() {
    const std::size_t begin = at_;
    while (at_ < text_.size() && isWordByte(text_[at_])) ++at_;
    return text_.substr(begin, at_ - begin);
  }

  std::string_view newName(const char* kind) {
    const std::size_t begin = at_;
    const std::string_view found = name();
    if (!names_.insert(found).second) finds(begin, std::string("the ") + kind + " " + visible(found) + " comes twice");
    return found;
  }

  /// Decimal, without a zero in front.
  std::optional<std::uint32_t> number() {
    std::uint32_t number = 0;
    const char* const begin = text_.data() + at_;
    const auto [end, error] = std::from_chars(begin, text_.data() + text_.size(), number);
    if (error != std::errc() || (*begin == '0' && end - begin > 1)) return std::nullopt;
    at_ += static_cast<std::size_t>(end - begin);
    return number;
  }

  void endPiece(std::uint32_t line) {
    set_.pieces_.push_back({keep(pending_), line});
    pending_.clear();
  }

  ClassSet::Text keep(std::string_view text) {
    const ClassSet::Text kept = {count(set_.texts_), static_cast<std::uint32_t>(text.size())};
    set_.texts_ += text;
    return kept;
  }

  template <class Container>
  static std::uint32_t count(const Container& container) {
    return static_cast<std::uint32_t>(container.size());
  }

  /// `text`, of the format file, in UTF-8. The language of the file is ASCII: what is ASCII alone stays as it is.
  std::string utf8(std::string_view text) const {
    if (!codeset_ || isAscii(text)) return std::string(text);
    std::string result(3 * text.size() + 1, '\0');
    const int size = nxl_to_utf8(codeset_, text.data(), static_cast<int>(text.size()), result.data(),
                                 static_cast<int>(result.size()));
    result.resize(static_cast<std::size_t>(size));
    return result;
  }

  // ---- The cursor.

  bool startsWith(std::string_view what) const { return text_.substr(at_).starts_with(what); }

  bool take(std::string_view what) {
    if (!startsWith(what)) return false;
    at_ += what.size();
    return true;
  }

  bool expect(std::string_view what) {
    if (take(what)) return true;
    if (what == "\n") return fails("expected the end of the line, found " + present());
    if (what.ends_with('\n')) what.remove_suffix(1);
    return fails("expected " + quoted(what) + ", found " + present());
  }

  /// What stands at the cursor.
  std::string present() const {
    if (at_ == text_.size()) return "the end of the text";
    const std::string_view rest = text_.substr(at_);
    const std::string_view line = rest.substr(0, rest.substr(0, kShown).find('\n'));
    if (line.empty()) return "the end of the line";
    return quoted(visible(line.substr(0, kShown)));
  }

  // ---- Faults.

  void finds(std::size_t at, std::string text) {
    if (found_.size() < kMostFaults) found_.push_back({at, std::move(text)});
  }

  bool fails(std::string text) {
    finds(at_, std::move(text));
    return false;
  }

  bool failsCount() {
    finds(open_.back().at, "this PRINTF has another number of arguments than of %s");
    return false;
  }

  std::vector<CdsFault> placed() {
    std::vector<CdsFault> placed;
    placed.reserve(faults_.size());
    std::stable_sort(faults_.begin(), faults_.end(), [](const Fault& a, const Fault& b) { return a.at < b.at; });
    faults_.resize(std::min(faults_.size(), kMostFaults));
    std::size_t line = 1;
    std::size_t lineStart = 0;
    for (Fault& fault : faults_) {
      for (std::size_t end = text_.find('\n', lineStart); end < fault.at; end = text_.find('\n', lineStart)) {
        ++line;
        lineStart = end + 1;
      }
      placed.push_back({line, fault.at - lineStart + 1, std::move(fault.text)});
    }
    return placed;
  }

  std::shared_ptr<const ClassSet> finished() {
    set_.byName_.resize(set_.attributes_.size());
    for (std::size_t place = 0; place < set_.size(); ++place) {
      const auto begin = set_.byName_.begin() + static_cast<std::ptrdiff_t>(set_.classes_[place].attribute);
      const auto end = begin + static_cast<std::ptrdiff_t>(set_.attributeCount(place));
      std::iota(begin, end, 0U);
      std::sort(begin, end, [this, place](std::uint32_t a, std::uint32_t b) {
        return set_.attribute(place, a) < set_.attribute(place, b);
      });
    }
    set_.byId_.resize(set_.size());
    std::iota(set_.byId_.begin(), set_.byId_.end(), 0U);
    std::sort(set_.byId_.begin(), set_.byId_.end(),
              [this](std::uint32_t a, std::uint32_t b) { return set_.eventId(a) < set_.eventId(b); });
    return std::make_shared<const ClassSet>(std::move(set_));
  }

  const std::string_view text_;
  nxl_cs* const codeset_;  ///< Null when nothing changes.
  ClassSet set_;
  std::size_t at_ = 0;
  std::vector<Fault> faults_;
  std::unordered_set<std::uint32_t> ids_;

  // Of the class that is being read.
  std::vector<Fault> found_;
  std::vector<bool> choices_;  ///< For each text that could end earlier: whether it goes on.
  std::size_t choice_ = 0;     ///< The next of them.
  std::size_t readAgain_ = 0;  ///< Bytes, of all classes.
  std::uint32_t lines_ = 0;    ///< Of its SELECT.
  Names names_;

  // Of the slot.
  std::string pending_;  ///< Text of the next piece.
  std::vector<Print> open_;
  std::string format_;            ///< Of the outermost PRINTF, without its quotes.
  std::size_t format_begin_ = 0;  ///< Where the text of the PRINTF begins that was opened last.
};

CdsReading readCds(std::string_view text, nxl_cs* codeset) { return ClassSetBuilder(text, codeset).read(); }

}  // namespace quillon
