#include "authoring/explain/Explanation.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <span>
#include <utility>

#include "authoring/explain/Likeness.h"
#include "authoring/explain/Trace.h"
#include "authoring/explain/reasons.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "src/adapters/logfile/match/MessageText.h"

namespace quillon {
namespace {

constexpr std::size_t kAligned = 32;  ///< Formats that are laid along a message; the others look less like it.

struct Block {
  const FormatSpec* format;
  std::vector<Part> parts;
};

std::vector<Part> partsOf(const FormatSpec& format) {
  std::vector<Part> parts;
  int variable = 0;
  for (FormatComponent* component : format.getComponents()) {
    const std::string_view text = component->view();
    parts.push_back({component->kind(), std::string(text), component->variable() ? ++variable : 0});
  }
  return parts;
}

/// The bytes that `text` and `other` have in common at their beginning.
std::uint32_t commonStart(std::string_view text, std::string_view other) {
  const auto end = std::mismatch(text.begin(), text.end(), other.begin(), other.end()).first;
  return static_cast<std::uint32_t>(end - text.begin());
}

std::string_view wordAt(std::string_view message, std::size_t at) {
  message.remove_prefix(std::min(at, message.size()));
  return message.substr(
      0, static_cast<std::size_t>(std::find_if(message.begin(), message.end(), endsWord) - message.begin()));
}

/// What the variables of `chain` took; its values when the matcher has told them.
std::vector<Taken> takenIn(const std::vector<Trial>& chain, std::string_view message,
                           std::span<const std::string_view> values = {}) {
  std::vector<Taken> taken;
  for (const Trial& trial : chain) {
    if (trial.variable == 0) continue;
    const auto n = static_cast<std::size_t>(trial.variable);
    std::string text(n <= values.size() ? values[n - 1] : message.substr(trial.from, trial.to - trial.from));
    taken.push_back({trial.variable, trial.from, trial.to, std::move(text)});
  }
  return taken;
}

void fillTried(TriedBlock& block, const Trace::Tried& tried, const std::vector<Part>& parts, std::string_view message) {
  block.place = tried.place;
  block.outcome = tried.outcome;
  block.attempts = tried.attempts;
  block.part = tried.leftOver ? parts.size() : tried.stop.component;
  block.at = tried.stop.from;
  if (tried.leftOver) {
    while (block.at < message.size() && endsWord(message[block.at])) ++block.at;
  } else if (parts[block.part].isConstant()) {
    block.at += commonStart(parts[block.part].text, message.substr(block.at));
  }
  block.expected = expectedText(parts, block.part);
}

}  // namespace

class Explainer::State {
 public:
  State(const LogDriver& driver, std::shared_ptr<const FormatSet> formats)
      : matcher_(formats ? std::move(formats) : FormatSet::make(driver)) {
    for (const FormatSpec* format : driver.getFormats()) {
      blocks_.push_back({format, partsOf(*format)});
      likeness_.add(blocks_.back().parts);
    }
  }

  Explanation explain(std::string_view message, const Options& options) {
    message = message.substr(0, message.find('\0'));
    Explanation explanation;
    explanation.message = message;
    Trace trace([&](const Trace::Tried& tried) {
      if (tried.outcome == Outcome::kBound) {
        explanation.bound = boundBlock(tried, message);
      } else {
        identify(explanation.tried.emplace_back(), tried.place);
        fillTried(explanation.tried.back(), tried, blocks_[tried.place].parts, message);
      }
    });
    if (const Match* const match = matcher_.bind(message, options.fromEventLog, trace)) {
      for (Taken& taken : explanation.bound->taken) taken.text = valueOf(*match, taken.variable);
      explanation.bound->slots = slotValues(*blocks_[match->place].format, match->values);
    }
    for (const std::uint32_t place : nearest(explanation, options.nearest)) {
      explanation.nearest.push_back(explainBlock(place, message, options.fromEventLog));
    }
    return explanation;
  }

  NearBlock explainBlock(std::uint32_t place, std::string_view message, bool fromEventLog) {
    message = message.substr(0, message.find('\0'));
    NearBlock block;
    identify(block, place);
    block.parts = blocks_[place].parts;
    Trace trace([&](const Trace::Tried& tried) {
      block.taken = takenIn(tried.chain, message);
      if (tried.outcome == Outcome::kBound) return;
      fillTried(block, tried, block.parts, message);
      block.found = wordAt(message, tried.leftOver ? block.at : tried.stop.from);
    });
    if (const Match* const match = matcher_.bindOne(place, message, fromEventLog, trace)) {
      block.binds = true;
      block.outcome = Outcome::kBound;
      for (Taken& taken : block.taken) taken.text = valueOf(*match, taken.variable);
    }
    if (std::optional<Alignment> alignment = align(block.parts, message)) block.alignment = std::move(*alignment);
    if (block.binds) return block;
    if (!block.alignment.pieces.empty() && !block.alignment.fits()) {
      std::string changed = repaired(block.alignment, message);
      block.bindsWhenRepaired = matcher_.bindOne(place, changed, fromEventLog) != nullptr;
      if (block.bindsWhenRepaired) block.repairedMessage = std::move(changed);
    }
    giveReason(block, message);
    return block;
  }

  std::optional<std::uint32_t> find(std::string_view name) const {
    for (std::uint32_t place = 0; place < blocks_.size(); ++place) {
      if (blocks_[place].format->getName().view() == name) return place;
    }
    return std::nullopt;
  }

 private:
  static std::string valueOf(const Match& match, int variable) {
    const auto n = static_cast<std::size_t>(variable);
    return n <= match.values.size() ? std::string(match.values[n - 1]) : std::string();
  }

  void identify(TriedBlock& block, std::uint32_t place) const {
    block.place = place;
    block.eventId = matcher_.formats().eventId(place);
    block.name = blocks_[place].format->getName().view();
  }

  BoundBlock boundBlock(const Trace::Tried& tried, std::string_view message) const {
    BoundBlock bound;
    TriedBlock named;
    identify(named, tried.place);
    bound.place = named.place;
    bound.eventId = named.eventId;
    bound.name = named.name;
    bound.parts = blocks_[tried.place].parts;
    bound.taken = takenIn(tried.chain, message);
    for (const Trial& trial : tried.chain) {
      const Part& part = bound.parts[trial.component];
      bound.pieces.push_back({AlignedPiece::State::kFits, trial.component, trial.from, trial.to,
                              part.isConstant() ? part.text : std::string()});
    }
    return bound;
  }

  /// The places of the blocks that look most like the message, the best first. When a block binds it, only such as look
  /// more like it than that one.
  std::vector<std::uint32_t> nearest(const Explanation& explanation, std::size_t most) const {
    struct Ranked {
      int likeness;
      std::uint32_t place;
    };
    int least = INT_MIN;
    if (explanation.bound) {
      const std::optional<Alignment> alignment = align(explanation.bound->parts, explanation.message);
      if (!alignment) return {};
      least = alignment->likeness;
    }
    std::vector<Ranked> ranked;
    for (const std::uint32_t place : likeness_.likest(explanation.message, kAligned)) {
      if (explanation.bound && explanation.bound->place == place) continue;
      const std::optional<Alignment> alignment = align(blocks_[place].parts, explanation.message);
      // Too long for that: the quick look, which has them in order, must do.
      const int likeness = alignment ? alignment->likeness : 0;
      const bool hasCommonText = !alignment || alignment->hasConstantText(blocks_[place].parts);
      if (likeness > least && hasCommonText) ranked.push_back({likeness, place});
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const Ranked& a, const Ranked& b) { return a.likeness > b.likeness; });
    std::vector<std::uint32_t> places;
    for (const Ranked& one : ranked) {
      const int best = ranked.front().likeness;
      const bool isNear = one.likeness == best || 3 * one.likeness >= 2 * std::abs(best);
      if (places.size() < most && isNear) places.push_back(one.place);
    }
    return places;
  }

  std::vector<Block> blocks_;
  Likeness likeness_;
  Matcher matcher_;
};

Explainer::Explainer(const LogDriver& driver, std::shared_ptr<const FormatSet> formats)
    : state_(std::make_unique<State>(driver, std::move(formats))) {}

Explainer::~Explainer() = default;

Explanation Explainer::explain(std::string_view message, const Options& options) {
  return state_->explain(message, options);
}

NearBlock Explainer::explainBlock(std::uint32_t place, std::string_view message, bool fromEventLog) {
  return state_->explainBlock(place, message, fromEventLog);
}

std::optional<std::uint32_t> Explainer::find(std::string_view name) const { return state_->find(name); }

}  // namespace quillon
