#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FIFOSOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FIFOSOURCE_H_

#include <sys/types.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "foundation/descriptor.h"
#include "src/adapters/logfile/source/LockFile.h"
#include "src/adapters/logfile/source/MessageStream.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

struct FifoOptions {
  std::string path;
  mode_t mode = 0600;             ///< Of a FIFO that is made, whatever the umask.
  std::size_t longest = 1 << 20;  ///< Of a message, in bytes.
  Joining joining;

  bool operator==(const FifoOptions&) const = default;
};

/// The lines that others write into a FIFO, such as the system logger. One process at a time reads it: the lock file
/// beside it, PATH.lock, sees to that. The reading end stays open whoever comes and goes, and with it a writing end, so
/// that there is no end of file while it runs and no writer gets SIGPIPE. When the FIFO is removed or replaced, the new
/// one is read; writers of the old one are heard until then.
class FifoSource : public Source {
 public:
  /// Makes the FIFO when it is not there and takes the lock. Null when that cannot be, with the reason in `error`:
  /// another process reads it, or what stands at the path is something else.
  [[nodiscard]] static std::unique_ptr<FifoSource> open(const FifoOptions& options, SourceObserver& observer,
                                                        std::string& error);

  bool next(TimePoint now, Message& message) override;
  int descriptor() const override { return fifo_.get(); }
  TimePoint deadline() const override { return std::min({stream_.deadline(), nextCheck_, allowance_.resumeAt()}); }
  /// Either way what stands in the FIFO at this moment is read before the end; a line that is not whole then never will
  /// be.
  void finish(Finish how) override;
  bool ended() const override { return ended_; }

 private:
  FifoSource(FifoOptions options, std::unique_ptr<LockFile> lock, SourceObserver& observer);

  bool openFifo(std::string& error);
  bool fill();
  void checkPath(TimePoint now);

  const FifoOptions options_;
  std::unique_ptr<LockFile> lock_;
  SourceObserver& observer_;
  Descriptor fifo_;
  MessageStream stream_;
  TimePoint nextCheck_ = TimePoint::min();
  std::uint64_t allowed_ = UINT64_MAX;  ///< Bytes that are still to be read before the end.
  bool ended_ = false;
  bool told_ = false;  ///< That the FIFO is gone and cannot be made.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FIFOSOURCE_H_
