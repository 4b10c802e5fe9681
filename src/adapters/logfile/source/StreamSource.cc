#include "src/adapters/logfile/source/StreamSource.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <span>

#include "src/adapters/logfile/source/LineSplitter.h"

namespace quillon {

StreamSource::StreamSource(int descriptor, const StreamOptions& options, SourceObserver& observer)
    : descriptor_(descriptor),
      observer_(observer),
      stream_(std::make_unique<LineSplitter>(options.longest), options.longest, options.joining, options.path, 1) {
  struct stat status;
  regular_ = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  counters_.watching = 1;
}

bool StreamSource::next(TimePoint now, Message& message) {
  std::uint64_t bytes = 0;
  allowance_.begin();
  while (!ended_) {
    bool found = stream_.next(now, message, bytes);
    if (!found) {
      ended_ = atEnd_;
      if (ended_ || allowance_.isUsedUp(now)) return false;
      if (fill()) continue;
      found = stream_.expire(now, message, bytes);
    }
    if (found) count(message, bytes);
    return found;
  }
  return false;
}

void StreamSource::finish(Finish how) {
  if (how == Finish::kDrain || atEnd_) return;
  int waiting = 0;
  if (regular_ || ioctl(descriptor_, FIONREAD, &waiting) != 0) waiting = 0;
  allowed_ = static_cast<std::uint64_t>(std::max(waiting, 0));
}

/// Reads what is there, or notes the end. False when nothing is there now.
bool StreamSource::fill() {
  pollfd ready{.fd = descriptor_, .events = POLLIN, .revents = 0};
  const std::span<char> room = stream_.room();
  ssize_t count = 0;
  if (allowed_ > 0) {
    if (poll(&ready, 1, 0) <= 0) return false;
    count = read(descriptor_, room.data(), std::min<std::uint64_t>(room.size(), allowed_));
    if (count < 0 && errno == EINTR) return true;
    if (count < 0 && errno == EAGAIN) return false;
    if (count < 0) observer_.notice(SourceObserver::Level::kError, stream_.path() + ": " + std::strerror(errno));
  }
  if (count <= 0) {
    atEnd_ = true;
    // Where it was stopped in a file, the rest of the line is only not read.
    regular_&& allowed_ == 0 ? stream_.endAtLine() : stream_.end();
    return true;
  }
  stream_.filled(static_cast<std::size_t>(count));
  allowance_.took(static_cast<std::size_t>(count));
  if (allowed_ != UINT64_MAX) allowed_ -= static_cast<std::uint64_t>(count);
  return true;
}

}  // namespace quillon
