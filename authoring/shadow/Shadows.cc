#include "authoring/shadow/Shadows.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "authoring/shadow/CommonMessages.h"
#include "authoring/shadow/Examples.h"
#include "authoring/shadow/PossiblePairs.h"
#include "authoring/shadow/Proofs.h"
#include "foundation/characters.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/Report.h"
#include "src/adapters/logfile/match/Engine.h"
#include "src/adapters/logfile/match/Facts.h"
#include "src/adapters/logfile/match/Matcher.h"

namespace quillon {

namespace {

using Loss = Shadow::Loss;

bool beginsOrdinarily(const std::string& value) {
  const char c = value.empty() ? 'x' : value[0];
  return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c & 0x80) != 0;
}

class ShadowSearch {
 public:
  ShadowSearch(const std::shared_ptr<const FormatSet>& formats, const ShadowBudget& budget)
      : literal_(formats->engine().literal),
        matcher_(formats),
        examples_(literal_),
        budget_(budget),
        typical_(formats->size()),
        never_(formats->size()) {}

  Shadows run() {
    for (std::uint32_t place = 0; place < typical_.size(); ++place) makeTypical(place);
    for (std::uint32_t place = 0; place < typical_.size(); ++place) {
      for (const std::string& message : typical_[place]) sort(place, message);
    }
    lookAtPairs();
    for (auto& [key, shadow] : found_) {
      if (never_[shadow.block]) shadow.loss = Loss::kAll;
      if (shadow.loss != Loss::kDetail) makeReadable(shadow);
      result_.found.push_back(std::move(shadow));
    }
    std::sort(result_.found.begin(), result_.found.end(),
              [](const Shadow& a, const Shadow& b) { return a.block != b.block ? a.block < b.block : a.by < b.by; });
    return std::move(result_);
  }

 private:
  static std::uint64_t key(std::uint32_t block, std::uint32_t by) {
    return static_cast<std::uint64_t>(block) << 32 | by;
  }

  bool binds(std::uint32_t place, std::string_view message) { return matcher_.bindOne(place, message) != nullptr; }

  bool bindsEach(std::uint32_t place, const std::vector<std::string>& messages) {
    return std::all_of(messages.begin(), messages.end(), [&](const std::string& m) { return binds(place, m); });
  }

  bool charge(std::uint64_t cells) {
    if (budget_.cells < cells) return false;
    budget_.cells -= cells;
    return true;
  }

  void makeTypical(std::uint32_t place) {
    if (const int component = impassable(literal_, place); component >= 0) {
      result_.impassable.push_back({place, static_cast<std::uint32_t>(component)});
      return;
    }
    std::vector<std::string> messages = examples_.typical(place);
    for (const std::string& message : messages) {
      if (binds(place, message)) typical_[place].push_back(message);
    }
    if (!typical_[place].empty()) return;
    const MessageShape shape(literal_, place);
    CommonMessages others(shape, shape, examples_.ordinary());
    const auto visit = [&](std::string_view message) {
      if (!binds(place, message)) return false;
      typical_[place].emplace_back(message);
      result_.odd.push_back({place, readable(place, messages[0], false), readable(place, message, true)});
      return true;
    };
    if (!charge(others.cells()) || !search(others, visit)) ++result_.undecidedBlocks;
  }

  template <class Visit>
  bool search(CommonMessages& messages, const Visit& visit) {
    constexpr std::size_t kSmall = 1000;
    constexpr std::size_t kLonger = 5;
    constexpr std::size_t kMessages = 20;       // each takes at least a step for each byte.
    constexpr std::uint64_t kCellsOfStep = 30;  // that take as much time
    const bool rich = messages.cells() <= kSmall;
    const std::uint64_t steps = rich ? budget_.steps * 10 : budget_.steps + kMessages * messages.length();
    const bool found = messages.find(visit, steps, kLonger, rich);
    budget_.cells -= std::min(budget_.cells, messages.steps() * kCellsOfStep);
    return found;
  }

  /// Notes who takes `message`, which `block` binds, if it is another one. Returns who it is.
  std::uint32_t sort(std::uint32_t block, std::string_view message) {
    const std::uint32_t by = matcher_.bind(message)->place;
    if (by != block && !found_.contains(key(block, by))) {
      found_[key(block, by)] = {block, by, lossOf(block, by), std::string(message), false};
    }
    return by;
  }

  Loss lossOf(std::uint32_t block, std::uint32_t by) {
    if (bindsEach(by, typical_[block])) {
      if (!never_[block] && bindsAllOf(literal_, by, block)) never_[block] = true;
      return Loss::kTypical;
    }
    return bindsEach(block, typical_[by]) || weight(by) >= weight(block) ? Loss::kDetail : Loss::kOverlap;
  }

  /// How much a format says: the bytes of its constants.
  std::size_t weight(std::uint32_t place) const {
    std::size_t bytes = 0;
    for (const Operation* operation = literal_.begin(place); operation != literal_.end(place); ++operation) {
      if (operation->kind() == ComponentKind::kConstant) bytes += operation->size;
    }
    return bytes;
  }

  void lookAtPairs() {
    Facts facts(literal_);
    std::vector<std::uint32_t> fixed;
    for (std::uint32_t place = 0; place < typical_.size(); ++place) {
      if (typical_[place].empty()) continue;
      if (literal_.variables(place) == 0) {
        fixed.push_back(place);
      } else {
        facts.add(place);
      }
    }
    facts.finish();
    const auto visit = [this](std::uint32_t by, std::uint32_t block) { look(by, block); };
    result_.undecidedPairs += PossiblePairs::find(facts, budget_.pairs, visit);
    // Of formats without variables no word is known.
    for (const std::uint32_t place : fixed) {
      for (const FormatFacts& other : facts.formats()) lookAtFixed(place, other.place);
      for (const std::uint32_t other : fixed) {
        if (other > place) lookAtFixed(place, other);
      }
    }
  }

  void lookAtFixed(std::uint32_t one, std::uint32_t other) {
    if (budget_.pairs == 0) {
      ++result_.undecidedPairs;
      return;
    }
    --budget_.pairs;
    look(std::min(one, other), std::max(one, other));
  }

  /// Looks for a message of `block` that goes to `by`, which is tried before.
  void look(std::uint32_t by, std::uint32_t block) {
    if (found_.contains(key(block, by)) || never_[by]) return;
    if (!never_[block] && bindsEach(by, typical_[block]) && bindsAllOf(literal_, by, block)) never_[block] = true;
    bool common = false;
    const auto visit = [&](std::string_view message) {
      if (!binds(block, message) || !binds(by, message)) return false;
      common = true;
      return sort(block, message) == by;
    };
    for (const std::string& message : typical_[block]) {
      if (visit(message)) return;
    }
    for (const std::string& message : typical_[by]) {
      if (visit(message)) return;
    }
    const MessageShape one(literal_, by);
    const MessageShape other(literal_, block);
    const std::uint64_t cells = (one.items().size() + 1) * (other.items().size() + 1);
    if (!charge(cells)) {
      ++result_.undecidedPairs;
      return;
    }
    CommonMessages messages(one, other, examples_.ordinary());
    if (messages.none()) return;
    if (!search(messages, visit)) ++result_.undecidedPairs;
  }

  /// `message` with words that a reader takes for examples, if the format still binds it or does not.
  std::string readable(std::uint32_t place, std::string_view message, bool bound) {
    std::string words = examples_.readable(message, false);
    return binds(place, words) == bound ? words : std::string(message);
  }

  /// Words that a reader takes for examples, in place of the ordinary ones, if the message still does what it shows.
  void makeReadable(Shadow& shadow) {
    const Match* const match = matcher_.bindOne(shadow.block, shadow.witness);
    std::vector<std::string> values(match->values.begin(), match->values.end());
    shadow.plausible = std::all_of(values.begin(), values.end(), beginsOrdinarily);
    const Operation* field = literal_.begin(shadow.block);
    for (std::string& value : values) {
      while (!field->isField()) ++field;
      value = examples_.readable(value, (field++)->kind() == ComponentKind::kTime);
    }
    std::string message = examples_.message(shadow.block, values);
    const bool shows = binds(shadow.block, message) && binds(shadow.by, message);
    if (shows && matcher_.bind(message)->place == shadow.by) shadow.witness = std::move(message);
  }

  const Literal& literal_;
  Matcher matcher_;
  Examples examples_;
  ShadowBudget budget_;
  std::vector<std::vector<std::string>>
      typical_;              ///< By place: messages that the format binds; empty when none is known.
  std::vector<bool> never_;  ///< By place: proven that others bind all of it.
  std::unordered_map<std::uint64_t, Shadow> found_;
  Shadows result_;
};

}  // namespace

std::shared_ptr<const FormatSet> formatsInOrder(const LogDriver& driver, TryOrder order) {
  if (driver.isInFileOrder() == (order == TryOrder::kFileOrder)) return FormatSet::make(driver);
  std::vector<FormatSpec*> formats = driver.listed();
  if (!driver.isInFileOrder()) std::reverse(formats.begin(), formats.end());
  LogDriver turned;
  for (const FormatSpec* format : formats) turned.addFormatSpec(format);
  if (order == TryOrder::kLastFirst) {
    CollectedReports told;  // what it reports was reported when the formats were read, or is for who orders them
    const ReportScope scope(&told);
    turned.orderFmts();
  }
  return FormatSet::make(turned);
}

Shadows findShadows(const std::shared_ptr<const FormatSet>& formats, const ShadowBudget& budget) {
  return ShadowSearch(formats, budget).run();
}

}  // namespace quillon
