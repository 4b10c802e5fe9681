#include "src/adapters/logfile/match/IndexBuilder.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <numeric>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>

namespace quillon {

namespace {

constexpr double kUseless = 1e9;
constexpr int kHeaderWords = 8;

/// What it costs to go on with so many formats.
double costOfFormats(double formats) {
  return formats <= 2 ? formats : std::min(formats, 2 + 2 * std::log2(formats / 2));
}

/// Puts the answers to one more question behind those to others.
void join(std::vector<std::optional<std::uint32_t>>& answers, const std::vector<std::optional<std::uint32_t>>& next) {
  for (std::size_t i = 0; i < answers.size(); ++i) {
    answers[i] = answers[i] && next[i] ? std::optional(joinPrints(*answers[i], *next[i])) : std::nullopt;
  }
}

}  // namespace

Index IndexBuilder::build() {
  const std::vector<Ids> groups = groupsByHeader();
  for (std::size_t i = 0; i < groups.size(); ++i) addRoots(groups[i], Index::kMostRoots - (groups.size() - 1 - i));
  makeGates();
  made_.nodes_.shrink_to_fit();
  made_.children_.shrink_to_fit();
  made_.candidates_.shrink_to_fit();
  return std::move(made_);
}

/// Formats with the same header: the same words at the beginning, as long as many formats have each of them there.
/// Formats of headers of their own make a group, and so do those that say nothing of any word counted from the front.
std::vector<IndexBuilder::Ids> IndexBuilder::groupsByHeader() const {
  constexpr std::uint32_t kNothing = 0;
  constexpr std::uint32_t kOwn = 1;
  const auto formats = static_cast<std::uint32_t>(facts_.formats().size());
  const std::size_t many = std::max<std::size_t>(formats / 64, 16);
  const auto keyOf = [this](std::uint32_t id, int position) {
    const WordFact* const fact = facts_.word(facts_.formats()[id], position);
    if (!fact || fact->head == 0) return kNothing;
    return joinPrints(static_cast<std::uint32_t>(2 * position) + (fact->exact ? 1 : 0), facts_.print(*fact));
  };
  std::unordered_map<std::uint32_t, std::size_t> users;
  for (std::uint32_t id = 0; id < formats; ++id) {
    for (int position = 0; position < kHeaderWords; ++position) ++users[keyOf(id, position)];
  }
  std::map<std::uint32_t, Ids> byHeader;
  for (std::uint32_t id = 0; id < formats; ++id) {
    std::uint32_t header = kNothing;
    for (int position = 0; position < kHeaderWords; ++position) {
      const std::uint32_t key = keyOf(id, position);
      if (key == kNothing) continue;
      if (users[key] < many) {
        if (header == kNothing) header = kOwn;
        break;
      }
      header = joinPrints(header, key);
    }
    byHeader[header].push_back(id);
  }
  std::vector<Ids> groups;
  for (const auto& [header, ids] : byHeader) {
    if (2 * ids.size() < formats) continue;  // most have one header
    groups.emplace_back(formats);
    std::iota(groups[0].begin(), groups[0].end(), 0U);
    return groups;
  }
  Ids own = std::move(byHeader[kOwn]);
  Ids nothing = std::move(byHeader[kNothing]);
  for (auto& [header, ids] : byHeader) {
    if (ids.size() >= many && groups.size() < Index::kMostRoots / 2) {
      groups.push_back(std::move(ids));
    } else {
      own.insert(own.end(), ids.begin(), ids.end());
    }
  }
  std::sort(own.begin(), own.end());
  groups.push_back(std::move(own));
  groups.push_back(std::move(nothing));
  return groups;
}

/// Adds roots until all `formats` are below one, up to `most` roots in all. Each but the last is a node whose question
/// suits many of them.
void IndexBuilder::addRoots(const Ids& formats, std::size_t most) {
  Ids rest = formats;
  while (made_.roots_.size() + 1 < most && addRootByWord(rest)) continue;
  while (!rest.empty()) {
    Ranked probes = allProbes(sampleOf(rest, kSample));
    std::vector<Probe> asked;
    const Choice choice = choose(rest, probes);
    Ids silent;
    if (rest.size() <= kLeaf || choice.count == 0 || made_.roots_.size() + 1 >= most) {
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

/// Moves formats that say nothing of their first words, but have one word in common behind a star, below a root of
/// their own, if they are most of `formats`. What else they say is counted from the back, and takes many questions to
/// reach them all; the word spares those to messages that do not have it.
bool IndexBuilder::addRootByWord(Ids& formats) {
  if (formats.size() <= kLeaf) return false;
  std::unordered_map<std::uint32_t, std::size_t> users;
  const WordFact* common = nullptr;
  const auto has = [this](std::uint32_t id, const auto& visit) {
    if (saysHowItBegins(id)) return false;
    const std::span<const WordFact> words = facts_.wordsBehindStar(facts_.formats()[id]);
    return std::any_of(words.begin(), words.end(), [&](const WordFact& word) { return word.exact && visit(word); });
  };
  for (const std::uint32_t id : formats) {
    has(id, [&](const WordFact& word) {
      if (2 * ++users[facts_.print(word)] >= formats.size() && !common) common = &word;
      return false;
    });
  }
  if (!common) return false;

  const std::uint32_t print = facts_.print(*common);
  const auto middle = std::stable_partition(formats.begin(), formats.end(), [&](std::uint32_t id) {
    return !has(id, [&](const WordFact& word) { return facts_.print(word) == print; });
  });
  const Ids below(middle, formats.end());
  formats.erase(middle, formats.end());
  std::vector<Probe> asked;
  Index::Node node{};
  node.probes[0].part = Probe::Part::kAny;
  node.likely = Index::wordBit(facts_.head(*common).front(), common->head);
  addChildTable(node, 1);
  setChild(node, print, build(below, allProbes(sampleOf(below, kSample)), asked));
  made_.nodes_.push_back(node);
  made_.roots_.push_back(Index::Ref::node(static_cast<std::uint32_t>(made_.nodes_.size()) - 1));
  rootFormats_.push_back(below);
  return true;
}

/// Of the words by which groups are told apart.
bool IndexBuilder::saysHowItBegins(std::uint32_t id) const {
  for (int position = 0; position < kHeaderWords; ++position) {
    const WordFact* const fact = facts_.word(facts_.formats()[id], position);
    if (fact && fact->head > 0) return true;
  }
  return false;
}

Index::Ref IndexBuilder::build(const Ids& formats, const Ranked& probes, std::vector<Probe>& asked) {
  if (formats.empty()) return {};
  if (formats.size() <= kLeaf) return makeLeaf(formats, asked);
  Ranked ranked = formats.size() > kSmallSample ? allProbes(sampleOf(formats, kSample)) : probes;
  const Choice choice = choose(formats, ranked);
  if (choice.count == 0) return makeByAnyWord(formats, asked, {});
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
  if (classes < 2 && few) return makeByAnyWord(formats, asked, {});  // the sample was misleading

  const auto at = static_cast<std::uint32_t>(made_.nodes_.size());
  made_.nodes_.emplace_back();
  Index::Node node{};
  node.probes = choice.probes;
  addChildTable(node, classes);

  const std::size_t askedBefore = asked.size();
  asked.insert(asked.end(), choice.probes.begin(), choice.probes.begin() + static_cast<std::ptrdiff_t>(choice.count));
  for (std::size_t i = 0; i < answered.size();) {
    const std::uint32_t print = answered[i].print;
    Ids below;
    for (; i < answered.size() && answered[i].print == print; ++i) below.push_back(answered[i].id);
    if (few) below.insert(below.end(), silent.begin(), silent.end());
    setChild(node, print, build(below, probes, asked));
  }
  asked.resize(askedBefore);

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

/// For formats about which there is nothing more to ask but the words between their stars, wherever these are. `had`
/// are the prints of those that all of them have and that were asked for before.
///
/// A word that most of them have comes first, since it keeps the messages away that none of them binds. Others stand
/// below the one of their words that the fewest have, since a message may have them all.
Index::Ref IndexBuilder::makeByAnyWord(const Ids& formats, const std::vector<Probe>& asked, const Prints& had) {
  if (formats.size() <= kLeaf) return makeLeaf(formats, asked);
  std::map<std::uint32_t, std::size_t> users;
  const auto forWords = [&](std::uint32_t id, const auto& visit) {
    for (const WordFact& word : facts_.wordsBetween(facts_.formats()[id])) {
      const std::uint32_t print = facts_.print(word);
      if (std::find(had.begin(), had.end(), print) == had.end()) visit(print, word);
    }
  };
  for (const std::uint32_t id : formats) {
    forWords(id, [&users](std::uint32_t print, const WordFact&) { ++users[print]; });
  }
  if (users.empty()) return makeLeaf(formats, asked);

  std::map<std::uint32_t, Ids> below;
  Ids silent;
  Index::Node node{};
  for (const std::uint32_t id : formats) {
    const auto rank = [&](std::uint32_t print) { return 2 * users[print] > formats.size() ? 0 : users[print]; };
    const WordFact* chosen = nullptr;
    std::uint32_t answer = 0;
    forWords(id, [&](std::uint32_t print, const WordFact& word) {
      if (!chosen || rank(print) < rank(answer)) chosen = &word, answer = print;
    });
    if (chosen) {
      below[answer].push_back(id);
      node.likely |= Index::wordBit(facts_.head(*chosen).front(), chosen->head);
    } else {
      silent.push_back(id);
    }
  }
  node.probes[0].part = Probe::Part::kAny;
  addChildTable(node, below.size());
  for (const auto& [print, ids] : below) {
    Prints all = had;
    all.push_back(print);
    setChild(node, print, makeByAnyWord(ids, asked, all));
  }
  if (!silent.empty()) node.besides = makeLeaf(silent, asked);
  made_.nodes_.push_back(node);
  return Index::Ref::node(static_cast<std::uint32_t>(made_.nodes_.size()) - 1);
}

void IndexBuilder::addChildTable(Index::Node& node, std::size_t children) {
  const auto size = static_cast<std::uint32_t>(std::bit_ceil(2 * children));
  node.children = static_cast<std::uint32_t>(made_.children_.size());
  node.mask = size - 1;
  made_.children_.resize(node.children + size, Index::Child{0, {}});
}

void IndexBuilder::setChild(const Index::Node& node, std::uint32_t print, Index::Ref child) {
  std::uint32_t i = print & node.mask;
  while (made_.children_[node.children + i].ref) i = (i + 1) & node.mask;
  made_.children_[node.children + i] = {print, child};
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
    best = Facts::checkOf(*fact, position);
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
  struct Entry {
    Probe probe;
    Answers answers;
    double cost;
  };
  std::vector<Entry> entries;
  const auto rank = [&](const Ranked& candidates, const Ids& sample) {
    entries.clear();
    entries.reserve(candidates.size());
    for (const Probe& probe : candidates) {
      Answers answers = answersOf(probe, sample);
      const double cost = costOf(answers, 1, formats.size());
      entries.push_back({probe, std::move(answers), cost});
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.cost < b.cost; });
    if (entries.size() > kInherited) entries.erase(entries.begin() + kInherited, entries.end());
    probes.clear();
    for (const Entry& entry : entries) probes.push_back(entry.probe);
  };
  const bool narrowed = probes.size() <= kInherited;
  Ids sample = sampleOf(formats, kSmallSample);
  rank(Ranked(probes), sample);
  if (!narrowed && formats.size() > kSmallSample) {  // a few good ones are left, and worth a closer look
    sample = sampleOf(formats, kSample);
    rank(Ranked(probes), sample);
  }

  Choice best;
  best.cost = 0.5 * static_cast<double>(formats.size());  // of a leaf
  Answers joined(sample.size(), 0);
  Answers tried;
  while (best.count < Index::kMostProbes) {
    const double gain = best.count > 0 ? 0.3 : 0;
    const Entry* next = nullptr;
    for (const Entry& entry : entries) {
      tried = joined;
      join(tried, entry.answers);
      const double cost = costOf(tried, best.count + 1, formats.size());
      if (cost < best.cost - gain) best.cost = cost, next = &entry;
    }
    if (!next) break;
    best.probes[best.count++] = next->probe;
    join(joined, next->answers);
  }
  return best;
}

IndexBuilder::Answers IndexBuilder::answersOf(Probe probe, const Ids& sample) const {
  Answers answers;
  answers.reserve(sample.size());
  for (const std::uint32_t id : sample) {
    std::uint32_t print = 0;
    const bool known = facts_.answer(facts_.formats()[id], probe, print);
    answers.push_back(known ? std::optional(print) : std::nullopt);
  }
  return answers;
}

/// What a message is expected to cost below a node that asks `probes` probes: the formats that share its answer, by how
/// often two formats of the sample do, and those without an answer.
double IndexBuilder::costOf(const Answers& answers, std::size_t probes, std::size_t formats) {
  std::vector<std::uint32_t> prints;
  prints.reserve(answers.size());
  for (const std::optional<std::uint32_t>& print : answers) {
    if (print) prints.push_back(*print);
  }
  if (prints.empty()) return kUseless;
  std::sort(prints.begin(), prints.end());
  double pairs = 0;
  for (std::size_t i = 0, run = 0; i < prints.size(); ++i) {
    run = i > 0 && prints[i] == prints[i - 1] ? run + 1 : 0;
    pairs += static_cast<double>(run);
  }
  const auto count = static_cast<double>(prints.size());
  const double scale = static_cast<double>(formats) / static_cast<double>(answers.size());
  const double speaking = count * scale;
  const double silent = static_cast<double>(formats) - speaking;
  if (silent < 1 && pairs * 2 >= count * (count - 1)) return kUseless;  // one answer for all
  const double shared = count < 2 ? 1 : 1 + pairs * 2 / (count * (count - 1)) * (speaking - 1);
  const double asking = 0.5 * static_cast<double>(probes);
  const double share = speaking / static_cast<double>(formats);
  if (silent <= kFewSilent) return asking + costOfFormats(shared + silent);
  return asking + share * costOfFormats(shared) + 1 + costOfFormats(silent);
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
