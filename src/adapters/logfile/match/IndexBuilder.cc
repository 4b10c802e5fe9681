#include "src/adapters/logfile/match/IndexBuilder.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>
#include <utility>

namespace quillon {

namespace {

constexpr double kUseless = 1e9;

/// What it costs to go on with so many formats.
double costOfFormats(double formats) {
  return formats <= 2 ? formats : std::min(formats, 2 + 2 * std::log2(formats / 2));
}

}  // namespace

Index IndexBuilder::build() {
  Ids rest(facts_.formats().size());
  for (std::uint32_t i = 0; i < rest.size(); ++i) rest[i] = i;
  addRoot(rest);
  makeGates();
  made_.nodes_.shrink_to_fit();
  made_.children_.shrink_to_fit();
  made_.candidates_.shrink_to_fit();
  return std::move(made_);
}

/// Adds roots until all `formats` are below one. Each but the last is a node whose question suits many of them.
void IndexBuilder::addRoot(const Ids& formats) {
  Ids rest = formats;
  while (!rest.empty()) {
    Ranked probes = allProbes(sampleOf(rest, kSample));
    std::vector<Probe> asked;
    const Choice choice = choose(rest, probes);
    Ids silent;
    if (rest.size() <= kLeaf || choice.count == 0 || made_.roots_.size() + 1 == Index::kMostRoots) {
      rootFormats_.push_back(rest);
      made_.roots_.push_back(build(rest, probes, asked));
      break;
    }
    rootFormats_.emplace_back();
    const Index::Ref root = makeNode(choice, rest, probes, asked, &silent);
    made_.roots_.push_back(root);
    std::set_difference(rest.begin(), rest.end(), silent.begin(), silent.end(),
                        std::back_inserter(rootFormats_.back()));
    rest = std::move(silent);
  }
}

Index::Ref IndexBuilder::build(const Ids& formats, const Ranked& probes, std::vector<Probe>& asked) {
  if (formats.empty()) return {};
  if (formats.size() <= kLeaf) return makeLeaf(formats, asked);
  Ranked ranked = formats.size() > kSmallSample ? allProbes(sampleOf(formats, kSample)) : probes;
  const Choice choice = choose(formats, ranked);
  if (choice.count == 0) return makeLeaf(formats, asked);
  return makeNode(choice, formats, ranked, asked, nullptr);
}

/// Formats without an answer go into `silentOut` if that is given and they are many.
Index::Ref IndexBuilder::makeNode(const Choice& choice, const Ids& formats, const Ranked& probes,
                                  std::vector<Probe>& asked, Ids* silentOut) {
  std::vector<Answered> answered;
  Ids silent;
  for (const std::uint32_t id : formats) {
    std::uint32_t print = 0;
    if (answerOf(choice, id, print)) {
      answered.push_back({print, id});
    } else {
      silent.push_back(id);
    }
  }
  std::stable_sort(answered.begin(), answered.end(),
                   [](const Answered& a, const Answered& b) { return a.print < b.print; });
  std::size_t classes = 0;
  for (std::size_t i = 0; i < answered.size(); ++i) classes += i == 0 || answered[i].print != answered[i - 1].print;

  const bool few = silent.size() <= kFewSilent;
  if (classes < 2 && few) return makeLeaf(formats, asked);  // the sample was misleading

  const auto at = static_cast<std::uint32_t>(made_.nodes_.size());
  const auto size = static_cast<std::uint32_t>(std::bit_ceil(2 * classes));
  const auto children = static_cast<std::uint32_t>(made_.children_.size());
  made_.nodes_.emplace_back();
  made_.children_.resize(children + size, Index::Child{0, {}});

  const std::size_t askedBefore = asked.size();
  asked.insert(asked.end(), choice.probes.begin(), choice.probes.begin() + static_cast<std::ptrdiff_t>(choice.count));
  for (std::size_t i = 0; i < answered.size();) {
    const std::uint32_t print = answered[i].print;
    Ids below;
    for (; i < answered.size() && answered[i].print == print; ++i) below.push_back(answered[i].id);
    if (few) below.insert(below.end(), silent.begin(), silent.end());
    const Index::Ref child = build(below, probes, asked);
    std::uint32_t place = print & (size - 1);
    while (made_.children_[children + place].ref) place = (place + 1) & (size - 1);
    made_.children_[children + place] = {print, child};
  }
  asked.resize(askedBefore);

  Index::Node node{};
  node.probes = choice.probes;
  node.children = children;
  node.mask = size - 1;
  if (few) {
    node.other = build(silent, probes, asked);
  } else if (silentOut) {
    *silentOut = std::move(silent);
  } else {
    node.besides = build(silent, probes, asked);
  }
  made_.nodes_[at] = node;
  return Index::Ref::node(at);
}

Index::Ref IndexBuilder::makeLeaf(Ids formats, const std::vector<Probe>& asked) {
  const auto at = static_cast<std::uint32_t>(made_.candidates_.size());
  std::sort(formats.begin(), formats.end(),
            [this](std::uint32_t a, std::uint32_t b) { return facts_.formats()[a].place < facts_.formats()[b].place; });
  for (const std::uint32_t id : formats) {
    const FormatFacts& format = facts_.formats()[id];
    Index::Candidate candidate{format.place, programs_.program(format.place), {}, 0};
    if (formats.size() > 1 || asked.empty()) candidate.check = checkOf(id, formats);
    if (candidate.check.part != Probe::Part::kNone) facts_.answer(format, candidate.check, candidate.print);
    made_.candidates_.push_back(candidate);
  }
  made_.candidates_.back().check.last = true;
  return Index::Ref::leaf(at);
}

/// What tells the messages of `id` from those of the most others in its leaf: the number of words, one of them, or how
/// one begins. Alone in a leaf it has no check but the longest word that was not asked for on the way.
Probe IndexBuilder::checkOf(std::uint32_t id, const Ids& leaf) const {
  constexpr std::size_t kOthers = 8;
  constexpr int kFront = 32;
  constexpr int kBack = 8;
  const FormatFacts& format = facts_.formats()[id];
  const std::size_t others = std::min(leaf.size(), kOthers);
  const auto differ = [&](const auto& differs) {
    return std::count_if(leaf.begin(), leaf.begin() + static_cast<std::ptrdiff_t>(others),
                         [&](std::uint32_t other) { return differs(facts_.formats()[other]); });
  };
  Probe best;
  std::ptrdiff_t most = 0;
  if (format.exactCount) {
    most = differ([&](const FormatFacts& other) {
      return other.exactCount ? other.leastWords != format.leastWords : other.leastWords > format.leastWords;
    });
    if (most > 0) best.part = Probe::Part::kCount;
  }
  const auto consider = [&](int position) {
    const WordFact* const fact = facts_.word(format, position);
    if (!fact || fact->head == 0) return;
    const std::ptrdiff_t count = differ([&](const FormatFacts& other) {
      const WordFact* const theirs = facts_.word(other, position);
      return theirs && facts_.differ(*fact, *theirs);
    });
    if (count < most || (count == most && best.part != Probe::Part::kNone)) return;
    most = count;
    best = facts_.checkOf(*fact, position);
  };
  for (int i = std::min<int>(format.frontCount, kFront) - 1; i >= 0; --i) consider(i);
  if (!format.exactCount) {
    for (int i = 1; i <= std::min<int>(format.backCount, kBack); ++i) consider(-i);
  }
  return best;
}

IndexBuilder::Ids IndexBuilder::sampleOf(const Ids& formats, std::size_t most) const {
  if (formats.size() <= most) return formats;
  Ids sample;
  // An odd stride that is no multiple of what a file may repeat.
  std::uint64_t at = 0;
  for (std::size_t i = 0; i < most; ++i) {
    at = (at + 0x9e3779b97f4a7c15);
    sample.push_back(formats[static_cast<std::size_t>((at >> 32) * formats.size() >> 32)]);
  }
  std::sort(sample.begin(), sample.end());
  sample.erase(std::unique(sample.begin(), sample.end()), sample.end());
  return sample;
}

/// Every probe that some format of the sample may answer.
IndexBuilder::Ranked IndexBuilder::allProbes(const Ids& sample) const {
  constexpr int kFront = 24;
  constexpr int kBack = 8;
  Ranked probes;
  probes.push_back({Probe::Part::kCount, 0, 0, false});
  for (int position = -kBack; position < kFront; ++position) {
    bool whole = false;
    bool head = false;
    bool tail = false;
    std::string stops;
    for (const std::uint32_t id : sample) {
      const WordFact* const fact = facts_.word(facts_.formats()[id], position);
      if (!fact) continue;
      whole |= fact->exact;
      head |= fact->head > 0;
      tail |= fact->tail > 0;
      if (fact->exact || fact->head == 0) continue;
      const char stop = facts_.head(*fact).back();
      if (stops.size() < 4 && stops.find(stop) == std::string::npos) stops += stop;
    }
    const auto add = [&](Probe::Part part, int parameter) {
      probes.push_back({part, static_cast<std::int8_t>(position), static_cast<std::uint8_t>(parameter), false});
    };
    if (whole) add(Probe::Part::kWhole, 0);
    for (const int size : {1, 3, 8}) {
      if (head) add(Probe::Part::kHead, size);
      if (tail) add(Probe::Part::kTail, size);
    }
    for (const char stop : stops) add(Probe::Part::kUpTo, static_cast<unsigned char>(stop));
  }
  return probes;
}

/// The best question for `formats`, none when there is no good one. Leaves the best probes in `probes`, best first.
IndexBuilder::Choice IndexBuilder::choose(const Ids& formats, Ranked& probes) const {
  const Ids sample = sampleOf(formats, probes.size() > kInherited ? kSample : kSmallSample);
  std::vector<std::pair<double, Probe>> ranked;
  for (const Probe& probe : probes) {
    Choice choice;
    choice.probes[0] = probe;
    choice.count = 1;
    ranked.emplace_back(costOf(choice, sample, formats.size()), probe);
  }
  std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  if (ranked.size() > kInherited) ranked.resize(kInherited);
  probes.clear();
  for (const auto& entry : ranked) probes.push_back(entry.second);

  Choice best;
  best.cost = 0.5 * static_cast<double>(formats.size());  // of a leaf
  for (std::size_t count = 1; count <= Index::kMostProbes; ++count) {
    Choice longer = best;
    for (const Probe& probe : probes) {
      Choice choice = best;
      if (choice.count + 1 != count) break;
      choice.probes[choice.count++] = probe;
      choice.cost = costOf(choice, sample, formats.size());
      if (choice.cost < longer.cost - (count > 1 ? 0.3 : 0)) longer = choice;
    }
    if (longer.count == best.count) break;
    best = longer;
  }
  return best;
}

/// What a message is expected to cost below a node that asks this: the formats that share its answer, by how often two
/// formats of the sample do, and those without an answer.
double IndexBuilder::costOf(const Choice& choice, const Ids& sample, std::size_t formats) const {
  std::vector<std::uint32_t> prints;
  prints.reserve(sample.size());
  for (const std::uint32_t id : sample) {
    std::uint32_t print = 0;
    if (answerOf(choice, id, print)) prints.push_back(print);
  }
  if (prints.empty()) return kUseless;
  std::sort(prints.begin(), prints.end());
  double pairs = 0;
  for (std::size_t i = 0, run = 0; i < prints.size(); ++i) {
    run = i > 0 && prints[i] == prints[i - 1] ? run + 1 : 0;
    pairs += static_cast<double>(run);
  }
  const auto count = static_cast<double>(prints.size());
  const double scale = static_cast<double>(formats) / static_cast<double>(sample.size());
  const double speaking = count * scale;
  const double silent = static_cast<double>(formats) - speaking;
  if (silent < 1 && pairs * 2 >= count * (count - 1)) return kUseless;  // one answer for all
  const double shared = count < 2 ? 1 : 1 + pairs * 2 / (count * (count - 1)) * (speaking - 1);
  const double probes = 0.5 * static_cast<double>(choice.count);
  const double share = speaking / static_cast<double>(formats);
  if (silent <= kFewSilent) return probes + costOfFormats(shared + silent);
  return probes + share * costOfFormats(shared) + 1 + costOfFormats(silent);
}

bool IndexBuilder::answerOf(const Choice& choice, std::uint32_t id, std::uint32_t& print) const {
  print = 0;
  for (std::size_t i = 0; i < choice.count; ++i) {
    std::uint32_t next = 0;
    if (!facts_.answer(facts_.formats()[id], choice.probes[i], next)) return false;
    print = joinPrints(print, next);
  }
  return true;
}

/// Of all bytes that could tell roots apart, the first and last ones of the first words, those are asked for that
/// exclude the most.
void IndexBuilder::makeGates() {
  constexpr int kPositions = 8;
  constexpr std::size_t kMostGates = 8;
  const std::uint64_t all = made_.roots_.size() == 64 ? ~0ULL : (1ULL << made_.roots_.size()) - 1;
  if (made_.roots_.size() < 2) {
    made_.byCount_.fill(all);
    return;
  }
  std::vector<std::pair<double, Index::Gate>> gates;
  for (int position = 0; position < kPositions; ++position) {
    for (const bool lastByte : {false, true}) {
      Index::Gate gate{static_cast<std::int8_t>(position), lastByte, 0, {}};
      double excluded = 0;
      for (std::size_t root = 0; root < made_.roots_.size(); ++root) {
        const std::uint64_t bit = 1ULL << root;
        std::array<bool, 256> allowed{};
        bool any = false;
        for (const std::uint32_t id : rootFormats_[root]) {
          const FormatFacts& format = facts_.formats()[id];
          if (format.leastWords <= position) gate.missing |= bit;
          const WordFact* const fact = facts_.word(format, position);
          const std::string_view known = !fact      ? std::string_view()
                                         : lastByte ? facts_.tail(*fact)
                                                    : facts_.head(*fact);
          if (known.empty()) {
            any = true;
          } else {
            allowed[static_cast<unsigned char>(lastByte ? known.back() : known.front())] = true;
          }
        }
        for (std::size_t byte = 0; byte < 256; ++byte) {
          if (any || allowed[byte]) gate.roots[byte] |= bit;
        }
        if (!any) excluded += static_cast<double>(256 - std::count(allowed.begin(), allowed.end(), true)) / 256;
      }
      if (excluded > 0) gates.emplace_back(excluded, gate);
    }
  }
  std::stable_sort(gates.begin(), gates.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  for (std::size_t i = 0; i < std::min(gates.size(), kMostGates); ++i) made_.gates_.push_back(gates[i].second);
  for (std::size_t root = 0; root < made_.roots_.size(); ++root) {
    for (const std::uint32_t id : rootFormats_[root]) {
      const FormatFacts& format = facts_.formats()[id];
      for (std::size_t count = 0; count < made_.byCount_.size(); ++count) {
        const bool many = count + 1 == made_.byCount_.size();  // stands for all numbers from here on
        const bool fits = format.leastWords <= count ? !format.exactCount || format.leastWords == count : many;
        if (fits) made_.byCount_[count] |= 1ULL << root;
      }
    }
  }
}

}  // namespace quillon
