#ifndef QUILLON_ADAPTER_ADAPTER_H_
#define QUILLON_ADAPTER_ADAPTER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "adapter/Metrics.h"
#include "adapter/Positions.h"
#include "adapter/Reloader.h"
#include "adapter/Setup.h"
#include "adapter/SourceRunner.h"
#include "daemon/Log.h"
#include "daemon/Supervisor.h"
#include "foundation/descriptor.h"
#include "foundation/line_output.h"

namespace quillon {

/// The running adapter: one loop in one thread that lets each source work in turn, writes what came of it, and only
/// then keeps the positions, so that a process that is killed repeats the last events and loses none.
///
/// While the output cannot be written nothing is read: files are their own buffer.
///
/// SIGTERM and SIGINT end it in good order; SIGHUP opens the output files anew and reads the configuration again, in
/// another thread. These signals must be blocked in every thread before one is made (blockSignals()).
class Adapter {
 public:
  /// `path` is the configuration that `setup` was loaded from.
  Adapter(std::string path, std::shared_ptr<const Setup> setup);
  ~Adapter();

  static void blockSignals();

  /// Runs until it is told to end or, with `once`, until all sources have been read to their present end. Returns the
  /// exit status.
  int run(bool once);

 private:
  bool start();
  void tellReady();
  void loop();
  bool work(TimePoint now);
  bool hasEnded() const;
  bool isFull() const;
  void wait(TimePoint now, bool busy);
  TimePoint nextDeadline() const;
  void receiveSignals();
  void stop();

  bool writeOut(TimePoint now);
  int flushOutputs();
  void acknowledge();
  void keepPositions();
  void giveUp();
  void publish(TimePoint now);

  void reload();
  void reopenOutputs();
  bool apply(const std::shared_ptr<const Setup>& setup);
  SourceRunner* sameInput(const SourceConfig& source) const;
  void openWaiting(TimePoint now);
  std::unique_ptr<SourceRunner> openSource(const Setup& setup, std::size_t index, std::string& error) const;
  const Config& config() const { return setup_->config; }
  /// It is to end: no reload counts any more, and what is kept must be on the disk.
  bool ending() const { return stopping_ || once_; }

  const std::string path_;
  std::shared_ptr<const Setup> setup_;
  Log log_{"quillon-adapter"};
  Supervisor supervisor_;
  Descriptor signals_;
  std::unique_ptr<Positions> positions_;
  std::unique_ptr<LineOutput> events_;
  std::unique_ptr<Metrics> metrics_;
  std::unique_ptr<Reloader> reloader_;
  std::vector<std::unique_ptr<SourceRunner>> runners_;  ///< Also those that a reload has told to end.
  std::vector<std::size_t> waiting_;  ///< Sources of the configuration that are to be opened when others have ended.

  enum class Output {
    kGood,
    kBlocked,  ///< A reader has to read first. Nothing is read until then,
    kFailing,  ///< or until it can be written again.
  };

  bool once_ = false;
  bool ready_ = false;
  bool stopping_ = false;
  bool fresh_ = false;  ///< Sources were opened and what there is of them is not kept yet.
  int status_ = 0;
  Output output_ = Output::kGood;
  TimePoint retryAt_ = TimePoint::min();  ///< When outputs are tried again.
  TimePoint stopBy_ = TimePoint::max();   ///< For how long a reader is waited for at the end.
  bool positionsFailing_ = false;
  TimePoint keptAt_{};
  TimePoint publishAt_ = TimePoint::min();
  TimePoint openAt_ = TimePoint::min();
  AdapterFigures figures_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_ADAPTER_H_
