#include "authoring/explain/Alignment.h"

#include <algorithm>
#include <climits>

#include "src/adapters/logfile/match/MessageText.h"

namespace quillon {
namespace {

// What an alignment gains and loses, for each byte if nothing else is said. A constant byte that fits is worth more
// than nothing, so that of two formats that fit, the one that says more is nearer. A departure costs more to begin than
// to go on with: a word that was dropped is one fault, not five.
constexpr int kByteFits = 4;
constexpr int kBlankFits = 2;  ///< For a run of white space.
constexpr int kByteDiffers = -6;
constexpr int kSpaceDiffers = -14;  ///< White space where there should be text, or the other way round.
constexpr int kLooksAlike = -3;     ///< A tab in the format string for white space, a newline for a blank.
constexpr int kBegins = -10;        ///< A stretch that is missing or extra.
constexpr int kInWord = -1;         ///< And does not begin between words, for each of the two sides.
constexpr int kByteMissing = -1;
constexpr int kFieldMissing = -2;
constexpr int kWordExtra = -1;  ///< For the white space before it; how long it is says nothing.
constexpr int kNever = INT_MIN / 2;

constexpr std::size_t kMostCells = 500'000;

/// A byte of a constant, or a field, or white space; "%t" is three words and what is between them.
struct Symbol {
  enum Kind : std::uint8_t { kByte, kBlank, kWord, kStar, kPlus } kind;
  char byte;
  std::uint32_t part;
};

/// A text that the part describes, of one byte for each of its symbols.
std::string_view example(const Part& part) {
  switch (part.kind) {
    case ComponentKind::kConstant:
      return part.text;
    case ComponentKind::kBlank:
      return " ";
    case ComponentKind::kNewline:
      return "\n";
    case ComponentKind::kTime:
      return "x x x";
    default:
      return "x";
  }
}

Symbol::Kind kindOf(ComponentKind kind, char byte) {
  switch (kind) {
    case ComponentKind::kConstant:
    case ComponentKind::kNewline:
      return Symbol::kByte;
    case ComponentKind::kStar:
      return Symbol::kStar;
    case ComponentKind::kPlus:
      return Symbol::kPlus;
    default:
      return byte == ' ' ? Symbol::kBlank : Symbol::kWord;
  }
}

std::vector<Symbol> symbolsOf(const std::vector<Part>& parts) {
  std::vector<Symbol> symbols;
  for (std::uint32_t i = 0; i < parts.size(); ++i) {
    for (const char c : example(parts[i])) symbols.push_back({kindOf(parts[i].kind, c), c, i});
  }
  return symbols;
}

/// The table of the alignment, filled row by row: row i column j is for the first i symbols and the first j bytes.
class Table {
 public:
  Table(const std::vector<Symbol>& symbols, std::string_view message)
      : symbols_(symbols),
        message_(message),
        width_(message.size() + 1),
        ways_((symbols.size() + 1) * width_),
        missing_(width_),
        extra_(width_),
        best_(width_),
        above_(width_) {}

  int fill() {
    firstRow();
    for (std::size_t i = 1; i <= symbols_.size(); ++i) {
      std::swap(best_, above_);
      row(i);
    }
    return best_.back();
  }

  /// What became of one symbol and one byte, from the last to the first.
  struct Step {
    enum Kind { kFits, kDiffers, kMissing, kExtra } kind;
    std::uint32_t symbol;
    std::uint32_t from;  ///< A byte, or with `to` none.
    std::uint32_t to;
  };

  std::vector<Step> trace() const;

 private:
  /// How a cell was reached: which of the three states is the best of it, and for each of them from where.
  enum Way : std::uint8_t {
    kStateMask = 3,  ///< Of the cell: fit, missing or extra.
    kIsFit = 0,
    kIsMissing = 1,
    kIsExtra = 2,
    kFitGoesOn = 4,   ///< A field or white space that has begun before.
    kFitIsEmpty = 8,  ///< A star without text.
    kMissingGoesOn = 16,
    kExtraGoesOn = 32,
    kFitDiffers = 64,
  };

  bool isInWord(std::size_t j) const {
    return j > 0 && j < message_.size() && !endsWord(message_[j - 1]) && !endsWord(message_[j]);
  }

  std::uint8_t& way(std::size_t i, std::size_t j) { return ways_[i * width_ + j]; }
  std::uint8_t way(std::size_t i, std::size_t j) const { return ways_[i * width_ + j]; }

  void firstRow() {
    best_[0] = 0;
    extra_[0] = missing_[0] = kNever;
    for (std::size_t j = 1; j < width_; ++j) {
      missing_[j] = kNever;
      extra_[j] = std::max(extra_[j - 1], best_[j - 1] + kBegins) + (endsWord(message_[j - 1]) ? kWordExtra : 0);
      best_[j] = extra_[j];
      way(0, j) = static_cast<std::uint8_t>(kIsExtra | (j > 1 ? kExtraGoesOn : 0));
    }
  }

  void row(std::size_t i) {
    const Symbol& symbol = symbols_[i - 1];
    const bool isField = symbol.kind == Symbol::kWord || symbol.kind == Symbol::kPlus;
    const int lost = isField ? kFieldMissing : kByteMissing;
    const int begins = kBegins + (i == 1 || symbols_[i - 2].kind == Symbol::kBlank ? 0 : kInWord);
    int fit = kNever;
    int extra = kNever;
    for (std::size_t j = 0; j < width_; ++j) {
      std::uint8_t from = 0;
      fit = fits(symbol, j, fit, from);
      const int begun = above_[j] + begins + (isInWord(j) ? kInWord : 0);
      if (missing_[j] >= begun) from |= kMissingGoesOn;
      missing_[j] = std::max(missing_[j], begun) + lost;
      const int behind = j == 0 ? kNever : best_[j - 1] + kBegins;
      if (extra > behind) from |= kExtraGoesOn;
      extra = std::max(extra, behind) + (j > 0 && endsWord(message_[j - 1]) ? kWordExtra : 0);
      best_[j] = fit;
      if (missing_[j] > best_[j]) best_[j] = missing_[j], from |= kIsMissing;
      if (extra >= best_[j]) best_[j] = extra, from = static_cast<std::uint8_t>((from & ~kStateMask) | kIsExtra);
      way(i, j) = from;
    }
  }

  /// The most that `symbol` gives when it ends before byte `j` by taking what stands there; `before` is the same for
  /// the byte before. Fields go on rather than begin later, so that those before them are short, as the matcher's are.
  int fits(const Symbol& symbol, std::size_t j, int before, std::uint8_t& from) const {
    const int begun = j == 0 ? kNever : above_[j - 1];
    const char byte = j == 0 ? '\0' : message_[j - 1];
    const auto goOn = [&](int worth) {
      if (before >= begun + worth && before > kNever) {
        from |= kFitGoesOn;
        return before;
      }
      return begun + worth;
    };
    switch (symbol.kind) {
      case Symbol::kByte: {
        if (j == 0) return kNever;
        if (symbol.byte == byte && byte != '\t') return begun + kByteFits;
        from |= kFitDiffers;
        if (symbol.byte == '\t' && endsWord(byte)) return begun + kLooksAlike;
        return begun + (endsWord(byte) != endsWord(symbol.byte) ? kSpaceDiffers : kByteDiffers);
      }
      case Symbol::kBlank:
        if (j > 0 && byte == '\n') {
          from |= kFitDiffers;
          return begun + kLooksAlike;
        }
        return j > 0 && endsWord(byte) ? goOn(kBlankFits) : kNever;
      case Symbol::kWord:
        return j > 0 && !endsWord(byte) ? goOn(0) : kNever;
      case Symbol::kPlus:
        return j > 0 ? goOn(0) : kNever;
      case Symbol::kStar:
        if (before > kNever && before >= begun && before >= above_[j]) {
          from |= kFitGoesOn;
          return before;
        }
        if (begun >= above_[j]) return begun;
        from |= kFitIsEmpty;
        return above_[j];
    }
    return kNever;
  }

  const std::vector<Symbol>& symbols_;
  const std::string_view message_;
  const std::size_t width_;
  std::vector<std::uint8_t> ways_;
  std::vector<int> missing_;
  std::vector<int> extra_;
  std::vector<int> best_;
  std::vector<int> above_;
};

std::vector<Table::Step> Table::trace() const {
  std::vector<Step> steps;
  std::size_t i = symbols_.size();
  std::size_t j = width_ - 1;
  int state = way(i, j) & kStateMask;
  while (i > 0 || j > 0) {
    const std::uint8_t from = way(i, j);
    const auto symbol = static_cast<std::uint32_t>(i > 0 ? i - 1 : 0);
    const auto at = static_cast<std::uint32_t>(j);
    if (state == kIsExtra) {
      steps.push_back({Step::kExtra, static_cast<std::uint32_t>(i), at - 1, at});
      --j;
      if (!(from & kExtraGoesOn)) state = way(i, j) & kStateMask;
    } else if (state == kIsMissing) {
      steps.push_back({Step::kMissing, symbol, at, at});
      --i;
      if (!(from & kMissingGoesOn)) state = way(i, j) & kStateMask;
    } else if (from & kFitIsEmpty) {
      steps.push_back({Step::kFits, symbol, at, at});
      --i;
      state = way(i, j) & kStateMask;
    } else {
      steps.push_back({from & kFitDiffers ? Step::kDiffers : Step::kFits, symbol, at - 1, at});
      --j;
      if (!(from & kFitGoesOn)) {
        --i;
        state = way(i, j) & kStateMask;
      }
    }
  }
  std::reverse(steps.begin(), steps.end());
  return steps;
}

/// Steps side by side become pieces. A constant may be in several of them.
void addPieces(Alignment& alignment, const std::vector<Table::Step>& steps, const std::vector<Symbol>& symbols,
               const std::vector<Part>& parts, std::uint32_t offset) {
  static constexpr AlignedPiece::State kStates[] = {AlignedPiece::State::kFits, AlignedPiece::State::kDiffers,
                                                    AlignedPiece::State::kMissing, AlignedPiece::State::kExtra};
  std::uint32_t symbolInPart = 0;
  std::uint32_t lastSymbol = UINT32_MAX;
  for (const Table::Step& step : steps) {
    const AlignedPiece::State state = kStates[step.kind];
    const bool isExtra = state == AlignedPiece::State::kExtra;
    const std::size_t part = step.symbol < symbols.size() ? symbols[step.symbol].part : parts.size();
    if (!isExtra && step.symbol != lastSymbol) {
      const bool isFirst = step.symbol == 0 || symbols[step.symbol - 1].part != part;
      symbolInPart = isFirst ? 0 : symbolInPart + 1;
    }
    const bool isText = !isExtra && (state != AlignedPiece::State::kFits || parts[part].isConstant());
    AlignedPiece* const last = alignment.pieces.empty() ? nullptr : &alignment.pieces.back();
    if (last && last->state == state && last->part == part) {
      last->to = step.to + offset;
      if (isText) last->text += example(parts[part])[symbolInPart];
    } else {
      const std::string_view text = isText ? example(parts[part]).substr(symbolInPart, 1) : std::string_view();
      alignment.pieces.push_back({state, part, step.from + offset, step.to + offset, std::string(text)});
    }
    if (!isExtra) lastSymbol = step.symbol;
  }
}

}  // namespace

bool Alignment::fits() const {
  return std::all_of(pieces.begin(), pieces.end(),
                     [](const AlignedPiece& piece) { return piece.state == AlignedPiece::State::kFits; });
}

bool Alignment::hasConstantText(const std::vector<Part>& parts) const {
  return std::any_of(pieces.begin(), pieces.end(), [&parts](const AlignedPiece& piece) {
    return piece.state == AlignedPiece::State::kFits && parts[piece.part].isConstant();
  });
}

std::optional<Alignment> align(const std::vector<Part>& parts, std::string_view message) {
  std::size_t end = message.size();
  while (end > 0 && endsWord(message[end - 1])) --end;
  std::size_t start = 0;
  while (start < end && endsWord(message[start])) ++start;
  message = message.substr(start, end - start);
  const std::vector<Symbol> symbols = symbolsOf(parts);
  if ((symbols.size() + 1) > kMostCells / (message.size() + 1)) return std::nullopt;
  Table table(symbols, message);
  Alignment alignment;
  alignment.likeness = table.fill();
  addPieces(alignment, table.trace(), symbols, parts, static_cast<std::uint32_t>(start));
  return alignment;
}

std::string repaired(const Alignment& alignment, std::string_view message) {
  std::string text;
  for (const AlignedPiece& piece : alignment.pieces) {
    if (piece.state == AlignedPiece::State::kExtra) continue;
    text += piece.state == AlignedPiece::State::kFits ? message.substr(piece.from, piece.to - piece.from) : piece.text;
  }
  return text;
}

}  // namespace quillon
