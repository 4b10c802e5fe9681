#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEXBUILDER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEXBUILDER_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "src/adapters/logfile/match/Facts.h"
#include "src/adapters/logfile/match/FirstPass.h"
#include "src/adapters/logfile/match/Index.h"

namespace quillon {

/// Makes the index of formats with variables. What a node asks is chosen greedily: of all probes about which the
/// formats below it have something to say, the one that leaves the fewest formats to be expected, then perhaps a second
/// and a third to join to it; judged on a sample when there are many formats. 10,000 formats take some 10 ms.
class IndexBuilder {
 public:
  IndexBuilder(const Facts& facts, const FirstPass& programs) : facts_(facts), programs_(programs) {}

  Index build();

 private:
  using Ids = std::vector<std::uint32_t>;  ///< Of formats, as places in Facts::formats().

  /// How a question divides formats, as far as a sample tells.
  struct Choice {
    std::array<Probe, Index::kMostProbes> probes{};
    std::size_t count = 0;
    double cost = 0;
  };

  struct Answered {
    std::uint32_t print;
    std::uint32_t id;
  };

  static constexpr std::size_t kLeaf = 4;
  static constexpr std::size_t kSample = 128;
  static constexpr std::size_t kSmallSample = 64;
  static constexpr std::size_t kFewSilent = 2;
  static constexpr std::size_t kInherited = 24;

  using Ranked = std::vector<Probe>;
  using Prints = std::vector<std::uint32_t>;
  using Answers = std::vector<std::optional<std::uint32_t>>;  ///< Of the formats of a sample, in its order.

  std::vector<Ids> groupsByHeader() const;
  void addRoots(const Ids& formats, std::size_t most);
  bool addRootByWord(Ids& formats);
  bool saysHowItBegins(std::uint32_t id) const;
  void makeGates();
  Index::Ref build(const Ids& formats, const Ranked& probes, std::vector<Probe>& asked);
  Index::Ref makeNode(const Choice& choice, const Ids& formats, const Ranked& probes, std::vector<Probe>& asked,
                      Ids* silentOut);
  Index::Ref makeByAnyWord(const Ids& formats, const std::vector<Probe>& asked, const Prints& had);
  void addChildTable(Index::Node& node, std::size_t children);
  void setChild(const Index::Node& node, std::uint32_t print, Index::Ref child);
  Index::Ref makeLeaf(Ids formats, const std::vector<Probe>& asked);
  Probe checkOf(std::uint32_t id, const Ids& leaf) const;
  Ids sampleOf(const Ids& formats, std::size_t most) const;
  Ranked allProbes(const Ids& sample) const;
  Choice choose(const Ids& formats, Ranked& probes) const;
  Answers answersOf(Probe probe, const Ids& sample) const;
  static double costOf(const Answers& answers, std::size_t probes, std::size_t formats);
  bool answerOf(const Choice& choice, std::uint32_t id, std::uint32_t& print) const;

  const Facts& facts_;
  const FirstPass& programs_;
  Index made_;
  std::vector<Ids> rootFormats_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEXBUILDER_H_
