#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_STREAMSOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_STREAMSOURCE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "src/adapters/logfile/source/MessageStream.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

struct StreamOptions {
  std::string path = "-";         ///< What messages give as the path they came from.
  std::size_t longest = 1 << 20;  ///< Of a message, in bytes.
  Joining joining;

  bool operator==(const StreamOptions&) const = default;
};

/// The lines of a descriptor that is open already, such as standard input. What was read cannot be read again, so there
/// are no positions.
class StreamSource : public Source {
 public:
  /// Reads from `descriptor`, which stays the caller's and as it is: nothing is changed that another process might
  /// share.
  StreamSource(int descriptor, const StreamOptions& options, SourceObserver& observer);

  bool next(TimePoint now, Message& message) override;
  /// -1 for a regular file, which can be read at any time.
  int descriptor() const override { return regular_ ? -1 : descriptor_; }
  TimePoint deadline() const override { return std::min(stream_.deadline(), allowance_.resumeAt()); }
  /// kDrain goes on to the end of the stream, kStop reads what waits in a pipe.
  void finish(Finish how) override;
  bool ended() const override { return ended_; }

 private:
  bool fill();

  const int descriptor_;
  SourceObserver& observer_;
  MessageStream stream_;
  bool regular_;
  bool atEnd_ = false;
  bool ended_ = false;
  std::uint64_t allowed_ = UINT64_MAX;  ///< Bytes that are still to be read before the end.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_STREAMSOURCE_H_
