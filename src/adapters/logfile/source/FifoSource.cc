#include "src/adapters/logfile/source/FifoSource.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include "src/adapters/logfile/source/LineSplitter.h"

namespace quillon {
namespace {

constexpr Duration kCheckEvery = std::chrono::seconds(2);
constexpr int kPipeBytes = 1 << 20;

/// What the FIFO holds at present, in bytes.
std::uint64_t waitingIn(int fifo) {
  int bytes = 0;
  return ioctl(fifo, FIONREAD, &bytes) == 0 && bytes > 0 ? static_cast<std::uint64_t>(bytes) : 0;
}

}  // namespace

FifoSource::FifoSource(FifoOptions options, std::unique_ptr<LockFile> lock, SourceObserver& observer)
    : options_(std::move(options)),
      lock_(std::move(lock)),
      observer_(observer),
      stream_(std::make_unique<LineSplitter>(options_.longest), options_.longest, options_.joining, options_.path, 1) {
  counters_.watching = 1;
}

std::unique_ptr<FifoSource> FifoSource::open(const FifoOptions& options, SourceObserver& observer, std::string& error) {
  std::unique_ptr<LockFile> lock = LockFile::take(options.path + ".lock", error);
  if (!lock) {
    error = options.path + ": " + error;
    return nullptr;
  }
  std::unique_ptr<FifoSource> source(new FifoSource(options, std::move(lock), observer));
  if (!source->openFifo(error)) return nullptr;
  return source;
}

/// Opens what stands at the path, or makes it. False leaves the FIFO that was open before.
bool FifoSource::openFifo(std::string& error) {
  const char* const path = options_.path.c_str();
  const bool made = mkfifo(path, options_.mode) == 0;
  struct stat status;
  // Looked at before it is opened: opening a device can have effects.
  if (stat(path, &status) != 0) {
    error = options_.path + ": " + std::strerror(errno);
    return false;
  }
  Descriptor fifo;
  if (S_ISFIFO(status.st_mode)) fifo = Descriptor(::open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (fifo && fstat(fifo.get(), &status) != 0) status.st_mode = 0;
  if (!S_ISFIFO(status.st_mode)) {
    error = options_.path + ": is not a FIFO";
    return false;
  }
  if (!fifo || (made && fchmod(fifo.get(), options_.mode) != 0)) {
    error = options_.path + ": " + std::strerror(errno);
    return false;
  }
  fcntl(fifo.get(), F_SETPIPE_SZ, kPipeBytes);  // fewer writers wait; that it may be refused does no harm
  fifo_ = std::move(fifo);
  return true;
}

bool FifoSource::next(TimePoint now, Message& message) {
  std::uint64_t bytes = 0;
  allowance_.begin();
  while (!ended_) {
    if (stream_.next(now, message, bytes)) {
      count(message, bytes);
      return true;
    }
    if (allowed_ == 0) {
      stream_.end();
      ended_ = !stream_.next(now, message, bytes);
      if (!ended_) count(message, bytes);
      return !ended_;
    }
    if (allowance_.isUsedUp(now)) return false;
    if (fill()) continue;
    if (stream_.expire(now, message, bytes)) {
      count(message, bytes);
      return true;
    }
    if (now < nextCheck_) return false;
    checkPath(now);
  }
  return false;
}

/// Reads what is there. False when nothing is.
bool FifoSource::fill() {
  const std::span<char> room = stream_.room();
  const ssize_t count = read(fifo_.get(), room.data(), std::min<std::uint64_t>(room.size(), allowed_));
  if (count <= 0) {
    if (allowed_ != UINT64_MAX && !(count < 0 && errno == EINTR)) allowed_ = 0;
    return allowed_ == 0;
  }
  stream_.filled(static_cast<std::size_t>(count));
  allowance_.took(static_cast<std::size_t>(count));
  if (allowed_ != UINT64_MAX) allowed_ -= static_cast<std::uint64_t>(count);
  return true;
}

/// Turns to the FIFO at the path when it is not the one that is open. That one is empty now.
void FifoSource::checkPath(TimePoint now) {
  nextCheck_ = now + kCheckEvery;
  struct stat held;
  struct stat there;
  if (fstat(fifo_.get(), &held) == 0 && stat(options_.path.c_str(), &there) == 0 && held.st_dev == there.st_dev &&
      held.st_ino == there.st_ino) {
    return;
  }
  std::string error;
  const bool opened = openFifo(error);
  if (opened) {
    observer_.notice(SourceObserver::Level::kWarning, options_.path + ": was removed or replaced; reading the new one");
  } else if (!told_) {
    observer_.notice(SourceObserver::Level::kError, "was removed or replaced; " + error);
  }
  told_ = !opened;
}

void FifoSource::finish(Finish /*how*/) { allowed_ = std::min(allowed_, waitingIn(fifo_.get())); }

}  // namespace quillon
