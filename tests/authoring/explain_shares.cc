// How well explanations hit: explain_shares FOLDER... takes each NAME.fmt with the lines of NAME.log that its blocks
// bind, damages a line in one known way so that its block binds it no more, and looks whether the explanation names
// that block first and marks the damaged place. Exit status 1 when less than the shares asked for are right.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "authoring/explain/Explanation.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/log_lines.h"

namespace quillon {
namespace {

enum class Damage { kByte, kWord, kAppended, kTab };
constexpr const char* kDamageNames[] = {"a byte of a constant changed", "a word dropped", "text appended",
                                        "a tab for a blank"};

/// The formats of a file in the order in which an adapter tries them.
struct Formats {
  explicit Formats(const std::string& text) {
    CollectedReports reports;
    FormatReader reader(reports);
    if (!reader.readText(text, "formats", driver)) std::exit(EXIT_FAILURE);
    const ReportScope quiet(&reports);
    driver.orderFmts();
  }
  LogDriver driver;
};

struct Damaged {
  std::string line;
  std::size_t from;  ///< The damaged bytes; of what was dropped, where it was.
  std::size_t to;
};

/// The bytes of the line that constants of the block stand for.
std::vector<std::size_t> constantBytes(const BoundBlock& bound) {
  std::vector<std::size_t> bytes;
  for (const AlignedPiece& piece : bound.pieces) {
    if (!bound.parts[piece.part].isConstant()) continue;
    for (std::size_t i = piece.from; i < piece.to; ++i) bytes.push_back(i);
  }
  return bytes;
}

std::optional<Damaged> damage(const std::string& line, const BoundBlock& bound, Damage kind, Random& random) {
  if (kind == Damage::kByte) {
    const std::vector<std::size_t> bytes = constantBytes(bound);
    if (bytes.empty()) return std::nullopt;
    const std::size_t at = random.pick(bytes);
    std::string changed = line;
    while (changed == line) changed[at] = static_cast<char>(random.between('!', '~'));
    return Damaged{changed, at, at + 1};
  }
  if (kind == Damage::kAppended) {
    static const std::string kTexts[] = {" again", " (repeated)", " (3 times)", ", see above", ": No such file"};
    const std::string& text = random.pick(kTexts);
    const std::size_t end = line.find_last_not_of(" \t\r") + 1;
    return Damaged{line.substr(0, end) + text, end, end + text.size()};
  }
  std::vector<std::pair<std::size_t, std::size_t>> words;
  for (std::size_t at = 0; (at = line.find_first_not_of(' ', at)) != std::string::npos;) {
    const std::size_t end = std::min(line.find(' ', at), line.size());
    words.emplace_back(at, end);
    at = end;
  }
  if (words.size() < 2) return std::nullopt;
  const auto [from, to] = random.pick(words);
  // The blank before it could have gone as well as the one behind: the place is all white space there.
  const std::size_t before = from == 0 ? 0 : line.find_last_not_of(' ', from - 1) + 1;
  const std::size_t behind = std::min(line.find_first_not_of(' ', to), line.size());
  return Damaged{line.substr(0, from) + line.substr(behind), before, from};
}

struct Shares {
  std::size_t pairs = 0;
  std::size_t first = 0;          ///< The block was named first.
  std::size_t listed = 0;         ///< Or at all.
  std::size_t marked = 0;         ///< The mark touches the damaged place.
  std::size_t markedOneWord = 0;  ///< It lies in the same word, or in the one beside it.
  std::size_t markBytes = 0;
  double milliseconds = 0;

  Shares& operator+=(const Shares& other) {
    pairs += other.pairs, first += other.first, listed += other.listed, marked += other.marked;
    markedOneWord += other.markedOneWord, markBytes += other.markBytes, milliseconds += other.milliseconds;
    return *this;
  }
  void print(const char* what) const {
    const double all = static_cast<double>(std::max<std::size_t>(pairs, 1)) / 100;
    std::printf(
        "%-30s %6zu pairs, first %5.1f %%, among three %5.1f %%, marked %5.1f %% (within a word %5.1f %%), "
        "mark of %4.1f bytes, %.2f ms\n",
        what, pairs, static_cast<double>(first) / all, static_cast<double>(listed) / all,
        static_cast<double>(marked) / all, static_cast<double>(markedOneWord) / all,
        static_cast<double>(markBytes) / all / 100, milliseconds / all / 100);
  }
};

class Measurement {
 public:
  Measurement(std::size_t linesOfBlock, bool tells) : linesOfBlock_(linesOfBlock), tells_(tells) {}

  void add(const System& system) {
    std::ifstream file(system.formats);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Formats formats(text);
    Explainer explainer(formats.driver);
    Matcher matcher(FormatSet::make(formats.driver));
    std::map<std::uint32_t, std::size_t> taken;
    for (const std::string& line : system.lines) {
      const Match* const match = matcher.bind(line);
      if (!match || ++taken[match->place] > linesOfBlock_) continue;
      Explainer::Options options;
      const Explanation whole = explainer.explain(line, options);
      for (const Damage kind : {Damage::kByte, Damage::kWord, Damage::kAppended}) {
        const std::optional<Damaged> pair = damage(line, *whole.bound, kind, random_);
        if (!pair || matcher.bindOne(whole.bound->place, pair->line)) continue;
        look(explainer, *pair, whole.bound->name, kind);
      }
      if (taken[whole.bound->place] == 1) addTab(text, line, *whole.bound);
    }
  }

  Shares of(Damage kind) const { return shares_[static_cast<std::size_t>(kind)]; }

 private:
  /// The block with a tab for one of its blanks. The scanner of format files reads tabs as blanks, so this is for those
  /// who make format strings in other ways.
  void addTab(const std::string& text, const std::string& line, const BoundBlock& bound) {
    std::vector<const AlignedPiece*> blanks;
    for (const AlignedPiece& piece : bound.pieces) {
      if (bound.parts[piece.part].kind == ComponentKind::kBlank) blanks.push_back(&piece);
    }
    if (blanks.empty()) return;
    const AlignedPiece& blank = *random_.pick(blanks);
    std::string format;
    for (std::size_t i = 0; i < bound.parts.size(); ++i) format += i == blank.part ? "\t" : bound.parts[i].text;
    Formats formats(text);
    formats.driver.getFormatSpec(bound.name.c_str())->setFmtStr(format.c_str());
    Explainer explainer(formats.driver);
    if (explainer.explainBlock(*explainer.find(bound.name), line).binds) return;
    look(explainer, {line, blank.from, blank.to}, bound.name, Damage::kTab);
  }

  void look(Explainer& explainer, const Damaged& pair, const std::string& block, Damage kind) {
    Shares& shares = shares_[static_cast<std::size_t>(kind)];
    ++shares.pairs;
    const auto start = std::chrono::steady_clock::now();
    const Explanation explanation = explainer.explain(pair.line, Explainer::Options());
    const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
    shares.milliseconds += passed.count();
    const auto found = std::find_if(explanation.nearest.begin(), explanation.nearest.end(),
                                    [&block](const NearBlock& near) { return near.name == block; });
    const bool isFirst = found == explanation.nearest.begin() && found != explanation.nearest.end();
    shares.first += isFirst;
    shares.listed += found != explanation.nearest.end();
    const NearBlock near = explainer.explainBlock(*explainer.find(block), pair.line);
    const bool isMarked = near.markFrom <= pair.to && pair.from <= near.markTo;
    shares.marked += isMarked;
    shares.markBytes += near.markTo - near.markFrom;
    const std::size_t wordBegin = pair.line.find_last_of(' ', pair.from == 0 ? 0 : pair.from - 1);
    const std::size_t wordEnd = std::min(pair.line.find(' ', pair.to + 1), pair.line.size());
    shares.markedOneWord += near.markFrom <= wordEnd && (wordBegin == std::string::npos || wordBegin <= near.markTo);
    if (!tells_ || (isFirst && isMarked)) return;
    std::printf("-- %s, %s%s%s\n%s\n%*s^\n%*s%s mark\n", block.c_str(), kDamageNames[static_cast<std::size_t>(kind)],
                isFirst ? "" : ", not first: ",
                isFirst                       ? ""
                : explanation.nearest.empty() ? "none"
                                              : explanation.nearest[0].name.c_str(),
                pair.line.c_str(), static_cast<int>(pair.from), "", static_cast<int>(near.markFrom), "",
                std::string(std::max<std::size_t>(1, near.markTo - near.markFrom), '~').c_str());
    std::string format;
    for (const Part& part : near.parts) format += part.text;
    std::printf("%s\nbound by %s\n", format.c_str(), explanation.bound ? explanation.bound->name.c_str() : "none");
  }

  const std::size_t linesOfBlock_;
  const bool tells_;
  Random random_{1};
  Shares shares_[4];
};

}  // namespace
}  // namespace quillon

int main(int argc, char* argv[]) {
  std::vector<std::string> folders;
  std::size_t lines = 10;
  double first = 0;
  double marked = 0;
  bool tells = false;
  CLI::App app("Measures how often explanations name the right block and mark the right place.", "explain_shares");
  app.add_option("FOLDER", folders, "Folders of NAME.fmt and NAME.log")->required();
  app.add_option("--lines", lines, "At most so many lines of one block");
  app.add_option("--first", first, "Fail when less than so many percent name the right block first");
  app.add_option("--marked", marked, "Fail when less than so many percent mark the place");
  app.add_flag("--misses", tells, "Show each pair that misses");
  CLI11_PARSE(app, argc, argv);
  quillon::Measurement measurement(lines, tells);
  for (const std::string& folder : folders) {
    for (const quillon::System& system : quillon::systemsIn(folder)) measurement.add(system);
  }
  quillon::Shares all;
  for (std::size_t kind = 0; kind < 4; ++kind) {
    const quillon::Shares shares = measurement.of(static_cast<quillon::Damage>(kind));
    shares.print(quillon::kDamageNames[kind]);
    all += shares;
  }
  all.print("all");
  const auto reaches = [&all](std::size_t part, double percent) {
    return static_cast<double>(part) * 100 >= percent * static_cast<double>(all.pairs);
  };
  return all.pairs > 0 && reaches(all.first, first) && reaches(all.marked, marked) ? EXIT_SUCCESS : EXIT_FAILURE;
}
