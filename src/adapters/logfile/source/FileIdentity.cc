#include "src/adapters/logfile/source/FileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <ctime>

namespace quillon {
namespace {

template <typename Time>
std::int64_t nanoseconds(const Time& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

bool look(int directory, const char* path, int flags, FileStatus& status) {
  struct statx found;
  if (statx(directory, path, flags, STATX_BASIC_STATS | STATX_BTIME, &found) != 0) return false;
  if (!S_ISREG(found.stx_mode)) {
    errno = EINVAL;
    return false;
  }
  status.identity.device = makedev(found.stx_dev_major, found.stx_dev_minor);
  status.identity.inode = found.stx_ino;
  status.identity.born = (found.stx_mask & STATX_BTIME) != 0 ? nanoseconds(found.stx_btime) : 0;
  status.size = found.stx_size;
  status.modified = nanoseconds(found.stx_mtime);
  status.changed = nanoseconds(found.stx_ctime);
  status.linked = found.stx_nlink > 0;
  return true;
}

}  // namespace

bool lookAtFile(const std::string& path, FileStatus& status) { return look(AT_FDCWD, path.c_str(), 0, status); }

bool lookAtFile(int descriptor, FileStatus& status) { return look(descriptor, "", AT_EMPTY_PATH, status); }

std::int64_t fileClock() {
  timespec time = {};
  clock_gettime(CLOCK_REALTIME_COARSE, &time);
  return nanoseconds(time);
}

}  // namespace quillon
