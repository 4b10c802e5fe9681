#ifndef QUILLON_TOOLS_QUILLON_MATCH_MATCHWORKER_H_
#define QUILLON_TOOLS_QUILLON_MATCH_MATCHWORKER_H_

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "authoring/compare/Coverage.h"
#include "authoring/compare/MessageShapes.h"
#include "foundation/line_buffer.h"
#include "foundation/ordered_blocks.h"
#include "src/adapters/logfile/event/EventWriter.h"
#include "src/adapters/logfile/source/MessageBlock.h"
#include "tools/LogInput.h"
#include "tools/Statistics.h"
#include "tools/quillon-match/Binder.h"
#include "tools/quillon-match/Output.h"

namespace quillon {

/// What the workers of one run have in common.
struct MatchRun {
  LogInput& input;
  Output& events;
  Output* unmatched;  ///< Null when messages that no format binds are not kept.
  Statistics& statistics;
  Coverage* coverage;  ///< Null when nobody asks for it.
  std::shared_ptr<const EventForms> forms;
  std::function<std::unique_ptr<Binder>()> makeBinder;
  char delimiter;
  bool writesEachLine;    ///< As soon as it is there.
  bool showsControls;     ///< For a terminal: control characters are made visible.
  bool survivesNoMemory;  ///< The binder does: a large message that there is no memory for can be passed over.

  std::mutex ending{};                  ///< While a worker that goes adds to the coverage.
  std::atomic<bool> exhausted = false;  ///< Set when the run has ended for want of memory.
};

/// Binds the messages of one block after the other and writes what comes of them: first the events of a block, then the
/// messages that no format has bound. Adds its counts to the statistics when it goes.
class MatchWorker : public BlockWorker {
 public:
  explicit MatchWorker(MatchRun& run);
  ~MatchWorker() override;

  bool take() override;
  void work(Turn& turn) override;
  void give() override;

 private:
  void bindMessages();
  void bind(std::string_view message);
  void writeEvent(const Bound& bound);
  void writeLargeEvent();
  void keepUnmatched(std::string_view message);
  void keepPiece();
  void passOver(std::string_view message);
  void flush();
  void writeLines(LineBuffer& lines, Output* output);

  MatchRun& run_;
  const std::unique_ptr<Binder> binder_;
  EventWriter writer_;
  MessageBlock block_;
  MatchCounts counts_;
  MessageShapes shapes_;  ///< Of unmatched messages of the block at hand, for the coverage.
  Turn* turn_ = nullptr;  ///< Of the block at hand.
  LineBuffer events_;
  LineBuffer unmatched_;
  std::vector<std::string_view> parts_;  ///< Of a large event.
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_MATCH_MATCHWORKER_H_
