#include "foundation/descriptor.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace quillon {
namespace {

bool isOpenOn(int descriptor, const struct stat& other) {
  struct stat file {};
  return fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode) && file.st_dev == other.st_dev &&
         file.st_ino == other.st_ino;
}

/// The first of `parts`, without the first bytes of the very first, as one write takes them.
class Batch {
 public:
  Batch(std::span<const std::string_view> parts, std::size_t begun) : size_(std::min(parts.size(), pieces_.size())) {
    for (std::size_t i = 0; i < size_; ++i) {
      pieces_[i] = {const_cast<char*>(parts[i].data()) + begun, parts[i].size() - begun};
      begun = 0;
    }
  }
  const iovec* begin() const { return pieces_.data(); }
  int size() const { return static_cast<int>(size_); }

 private:
  std::array<iovec, 1024> pieces_;  // what Linux takes at once
  std::size_t size_;
};

}  // namespace

bool Descriptor::close() {
  const int descriptor = std::exchange(descriptor_, -1);
  return descriptor < 0 || ::close(descriptor) == 0;
}

bool areOneFile(int descriptor, int other) {
  struct stat file {};
  return fstat(other, &file) == 0 && isOpenOn(descriptor, file);
}

bool areOneFile(int descriptor, const char* other) {
  struct stat file {};
  return stat(other, &file) == 0 && isOpenOn(descriptor, file);
}

int writeAll(int descriptor, std::string_view text) { return writeAll(descriptor, {&text, 1}); }

int writeAll(int descriptor, std::span<const std::string_view> parts) {
  std::size_t begun = 0;  // bytes of the first part that are written
  while (!parts.empty()) {
    const Batch batch(parts, begun);
    const ssize_t written = writev(descriptor, batch.begin(), batch.size());
    if (written >= 0) {
      begun += static_cast<std::size_t>(written);
      for (; !parts.empty() && begun >= parts.front().size(); parts = parts.subspan(1)) begun -= parts.front().size();
    } else if (errno == EAGAIN) {
      pollfd room{.fd = descriptor, .events = POLLOUT, .revents = 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace quillon
