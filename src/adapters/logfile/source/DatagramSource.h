#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DATAGRAMSOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DATAGRAMSOURCE_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "foundation/descriptor.h"
#include "src/adapters/logfile/source/LockFile.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

struct DatagramOptions {
  std::string address;            ///< "HOST:PORT" for UDP, or the path of a Unix socket, such as /dev/log.
  bool local = false;             ///< It is a path.
  mode_t mode = 0666;             ///< Of the Unix socket, whatever the umask.
  std::size_t longest = 1 << 20;  ///< Of a message, in bytes.
  int receiveBuffer = 4 << 20;    ///< What the kernel shall keep while nobody reads, in bytes; it may give less.

  bool operator==(const DatagramOptions&) const = default;
};

/// Syslog by UDP or a Unix datagram socket: a datagram is a message as it stands, but for one newline or NUL at its
/// end. An empty one is none. The path of a message is the sender's address, or that of the Unix socket. Each sender is
/// a stream of its own: told by address and port, or by the process, since those who send to a Unix socket seldom have
/// an address.
///
/// A Unix socket is guarded by a lock file, PATH.lock; one that a dead process left is made anew, one that somebody
/// listens to is refused. It is removed at the end.
class DatagramSource : public Source {
 public:
  /// Null when the socket cannot be had, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<DatagramSource> open(const DatagramOptions& options, SourceObserver& observer,
                                                            std::string& error);
  ~DatagramSource() override;

  bool next(TimePoint now, Message& message) override;
  int descriptor() const override { return socket_.get(); }
  TimePoint deadline() const override { return allowance_.resumeAt(); }
  /// Either way what the kernel holds is read before the end, for a second at most.
  void finish(Finish how) override;
  bool ended() const override { return ended_; }

  /// Where it listens: "127.0.0.1:514", or the path of the Unix socket.
  const std::string& address() const { return address_; }

 private:
  DatagramSource(const DatagramOptions& options, Descriptor socket);

  static Descriptor openUnixSocket(const DatagramOptions& options, std::string& error);

  std::unique_ptr<LockFile> lock_;  ///< Null for UDP, and while nothing of the Unix socket is ours.
  Descriptor socket_;
  std::string address_;
  std::size_t longest_;
  std::size_t room_;  ///< For the longest and what is taken off its end.
  std::unique_ptr<char[]> buffer_;
  std::string sender_;
  std::uint32_t lastOverrun_ = 0;
  bool finishing_ = false;
  std::optional<TimePoint> stopBy_;
  bool ended_ = false;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DATAGRAMSOURCE_H_
