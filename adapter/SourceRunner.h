#ifndef QUILLON_ADAPTER_SOURCERUNNER_H_
#define QUILLON_ADAPTER_SOURCERUNNER_H_

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "adapter/Config.h"
#include "adapter/FormatFile.h"
#include "adapter/MessageBinder.h"
#include "adapter/Positions.h"
#include "adapter/RecordMaker.h"
#include "adapter/Sender.h"
#include "daemon/Log.h"
#include "foundation/line_output.h"
#include "src/adapters/logfile/event/EventWriter.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// What a source has done since the adapter began.
struct SourceFigures {
  std::string name;
  SourceCounters counters;
  std::uint64_t unmatched = 0;
  std::uint64_t givenUp = 0;                    ///< Formats that ended at 100 failures.
  double lagSeconds = 0;                        ///< For how long bytes have been waiting without a break.
  std::map<std::string, std::uint64_t> events;  ///< By class.
};

/// One source of a configuration at work: takes its messages, binds them, and writes what comes of them into the
/// outputs' buffers. What was written for sure is acknowledged later, by written(). For one thread.
class SourceRunner : private SourceObserver {
 public:
  /// Where events go: lines, or with a sender to that.
  struct Outputs {
    LineOutput& lines;
    Sender* sender;
  };
  /// Opens the source, which goes on from `state`. Without `formats` there must be a sender, to which messages go as
  /// they are. Null when that cannot be, with the reason in `error`. Refers to
  /// what `outputs` does and `log`.
  static std::unique_ptr<SourceRunner> open(const SourceConfig& config, std::shared_ptr<const FormatFile> formats,
                                            const KeptState& state, const Outputs& outputs, const Log& log,
                                            std::string& error);
  ~SourceRunner() override;

  const SourceConfig& config() const { return config_; }

  /// Handles up to `most` messages. True when there may be more at once.
  bool work(TimePoint now, std::size_t most);

  /// What poll(2) is to wait for, -1 for nothing, and until when.
  int descriptor() const { return source_->descriptor(); }
  TimePoint deadline() const;

  void finish(Finish how);
  /// finish() was called.
  bool finishing() const { return finishing_.has_value(); }
  /// Nothing will come any more, and everything that came was handled.
  bool ended() const { return ended_; }
  /// The source has told of something that could not be read.
  bool hasFailed() const { return failed_; }

  /// So many unmatched messages are gathered that they should be written.
  bool isFull() const { return unmatched_ && unmatched_->isFull(); }
  /// Writes the unmatched messages. 0, or the errno of what failed.
  [[nodiscard]] int flushUnmatched(LineOutput::Clock::time_point now);
  /// All events up to here are where they belong, or travel with what takeChanges() says of them.
  void written();
  /// What was written() since the last call went with this ticket.
  void sent(delivery::Client::Ticket ticket);
  /// All up to this ticket is safe.
  void stored(delivery::Client::Ticket safe);
  /// There is something that was sent, and is not known to be safe.
  bool awaitsStorage() const { return !sent_.empty(); }
  /// What has changed since the last call in the state to be kept.
  std::vector<StateRecord> takeChanges() { return source_->takeChanges(); }

  /// Opens the file for unmatched messages that a configuration names, if it is another one than this has; with the
  /// reason in `error` when that cannot be.
  std::optional<LineOutput> openUnmatched(const SourceConfig& config, std::string& error) const;
  /// Goes on with another configuration of the same input, from the next message on. `unmatched` is what
  /// openUnmatched() gave.
  void reconfigure(const SourceConfig& config, std::shared_ptr<const FormatFile> formats,
                   std::optional<LineOutput> unmatched);
  /// Opens the file of unmatched messages anew.
  [[nodiscard]] int reopen();

  SourceFigures figures(TimePoint now);

 private:
  SourceRunner(const SourceConfig& config, const Outputs& outputs, const Log& log);

  void setFormats(std::shared_ptr<const FormatFile> formats);
  void handle(const MessageBinder::Outcome& outcome);
  void write(const MessageBinder::Outcome& outcome);
  void writeLine(const MessageBinder::Outcome& outcome);
  void send(const MessageBinder::Outcome& outcome);
  void pass(const Message& message);
  void handled(const Position& position);
  std::string_view marked(const Message& message, TimePoint now);
  void collectCounts();

  void gap(const Gap& gap) override;
  void notice(Level level, std::string_view text) override;

  SourceConfig config_;
  const Outputs outputs_;
  const Log& log_;
  std::unique_ptr<Source> source_;
  std::shared_ptr<const FormatFile> formats_;  ///< Null: messages are passed on as they are,
  std::optional<MessageName> rawName_;         ///< under this name.
  std::optional<MessageBinder> binder_;        ///< With formats.
  std::optional<EventWriter> writer_;
  std::optional<RecordMaker> maker_;  ///< With a sender.
  std::string fileName_;              ///< Of the message before, for which `writer_` is set.
  std::optional<LineOutput> unmatched_;
  std::unordered_map<std::uint64_t, Position> handled_;  ///< By file: the last position, since the last written().
  Position* latest_ = nullptr;                           ///< The one of them that was set last.
  std::vector<Position> written_;                        ///< Since the last sent().
  struct Sent {
    delivery::Client::Ticket ticket;
    std::vector<Position> positions;
  };
  std::deque<Sent> sent_;
  std::vector<std::uint64_t> bound_;  ///< By format, of those at work now.
  std::map<std::string, std::uint64_t> eventsByClass_;
  std::uint64_t unmatchedCount_ = 0;
  std::uint64_t givenUp_ = 0;
  std::optional<TimePoint> behindSince_;
  std::string marked_;
  TimePoint cutToldAt_;
  std::optional<Finish> finishing_;
  bool ended_ = false;
  bool failed_ = false;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_SOURCERUNNER_H_
