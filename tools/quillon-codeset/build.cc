#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "codeset/init.h"
#include "tools/quillon-codeset/charset.h"
#include "tools/quillon-codeset/commands.h"
#include "tools/quillon-codeset/table_builder.h"

namespace quillon {
namespace {

bool writeAll(int fd, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// Gives the file the permissions that open() would have given it.
bool makeReadable(int fd) {
  const mode_t mask = umask(0);
  umask(mask);
  return fchmod(fd, 0666 & ~mask) == 0;
}

// A device, a pipe: what there is to write into, but not to put another file in place of.
bool isSpecial(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

int writeInto(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  const bool written = fd >= 0 && writeAll(fd, bytes);
  const int error = errno;
  if (fd >= 0) close(fd);
  return written ? 0 : fail("cannot write %s: %s", path.c_str(), std::strerror(error));
}

// Writes a file that is either there as a whole or not at all.
int writeFile(const std::string& path, const std::string& bytes) {
  if (isSpecial(path)) return writeInto(path, bytes);
  std::string temporary = path + ".XXXXXX";
  const int fd = mkstemp(temporary.data());
  if (fd < 0) return fail("cannot write %s: %s", path.c_str(), std::strerror(errno));
  const bool written = writeAll(fd, bytes) && makeReadable(fd);
  int error = errno;
  const bool closed = close(fd) == 0;
  if (written && !closed) error = errno;
  if (written && closed) {
    if (std::rename(temporary.c_str(), path.c_str()) == 0) return 0;
    error = errno;
  }
  unlink(temporary.c_str());
  return fail("cannot write %s: %s", path.c_str(), std::strerror(error));
}

}  // namespace

int buildTable(const std::string& name, const std::string& charset, const std::string& file) {
  const Charset source(charset);
  if (!source.isOpen()) return fail("the C library has no charset %s; iconv -l lists them", charset.c_str());
  TableBuilder builder(source);
  const std::string problem = builder.build();
  if (!problem.empty()) return fail("no table for %s: it %s", charset.c_str(), problem.c_str());
  return writeFile(file.empty() ? name : file, builder.image(name));
}

}  // namespace quillon
