#include "foundation/descriptor.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quillon {
namespace {

bool isOpenOn(int descriptor, const struct stat& other) {
  struct stat file {};
  return fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode) && file.st_dev == other.st_dev &&
         file.st_ino == other.st_ino;
}

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

int writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
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
