#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEXBUILDER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEXBUILDER_H_

#include <cstdint>
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
  static constexpr std::size_t kSample = 256;
  static constexpr std::size_t kSmallSample = 64;
  static constexpr std::size_t kFewSilent = 2;
  static constexpr std::size_t kInherited = 24;

  using Ranked = std::vector<Probe>;

  void addRoot(const Ids& formats);
  void makeGates();
  Index::Ref build(const Ids& formats, const Ranked& probes, std::vector<Probe>& asked);
  Index::Ref makeNode(const Choice& choice, const Ids& formats, const Ranked& probes, std::vector<Probe>& asked,
                      Ids* silentOut);
  Index::Ref makeLeaf(Ids formats, const std::vector<Probe>& asked);
  Probe checkOf(std::uint32_t id, const Ids& leaf) const;
  Ids sampleOf(const Ids& formats, std::size_t most) const;
  Ranked allProbes(const Ids& sample) const;
  Choice choose(const Ids& formats, Ranked& probes) const;
  double costOf(const Choice& choice, const Ids& sample, std::size_t formats) const;
  bool answerOf(const Choice& choice, std::uint32_t id, std::uint32_t& print) const;

  const Facts& facts_;
  const FirstPass& programs_;
  Index made_;
  std::vector<Ids> rootFormats_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEXBUILDER_H_
