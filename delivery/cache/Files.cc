#include "delivery/cache/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "foundation/descriptor.h"

namespace quillon::delivery {
namespace {

int openAgain(const std::string& path, int flags) {
  for (;;) {
    const int file = ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file >= 0 || errno != EINTR) return file >= 0 ? file : -errno;
  }
}

int errorOf(int result) { return result == 0 ? 0 : errno; }

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

Files& Files::real() {
  static Files files;
  return files;
}

int Files::makeDirectory(const std::string& path) { return errorOf(mkdir(path.c_str(), 0700)); }

int Files::openToRead(const std::string& path) { return openAgain(path, O_RDONLY); }

int Files::create(const std::string& path) { return openAgain(path, O_WRONLY | O_CREAT | O_EXCL | O_APPEND); }

int Files::lock(const std::string& path) {
  const int opened = openAgain(path, O_RDWR | O_CREAT);
  if (opened < 0) return opened;
  Descriptor file(opened);
  while (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) return -errno;
  }
  const std::string number = std::to_string(getpid()) + '\n';
  // For people alone: a disk that is full locks nobody out.
  if (ftruncate(file.get(), 0) == 0) static_cast<void>(pwrite(file.get(), number.data(), number.size(), 0));
  return file.release();
}

void Files::close(int file) { ::close(file); }

ssize_t Files::write(int file, std::span<const iovec> parts) {
  const ssize_t written = writev(file, parts.data(), static_cast<int>(parts.size()));
  return written >= 0 ? written : -errno;
}

ssize_t Files::read(int file, char* to, std::size_t size, std::uint64_t offset) {
  const ssize_t count = pread(file, to, size, static_cast<off_t>(offset));
  return count >= 0 ? count : -errno;
}

std::int64_t Files::size(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 ? status.st_size : -errno;
}

int Files::truncate(int file, std::uint64_t size) { return errorOf(ftruncate(file, static_cast<off_t>(size))); }

int Files::sync(int file) { return errorOf(fdatasync(file)); }

int Files::syncDirectory(const std::string& path) {
  const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory ? errorOf(fsync(directory.get())) : errno;
}

int Files::rename(const std::string& from, const std::string& to) {
  return errorOf(::rename(from.c_str(), to.c_str()));
}

int Files::remove(const std::string& path) { return errorOf(unlink(path.c_str())); }

int Files::list(const std::string& path, std::vector<std::string>& names) {
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
  if (!directory) return errno;
  names.clear();
  errno = 0;
  while (const dirent* entry = readdir(directory.get())) names.emplace_back(entry->d_name);
  return errno;
}

int writeAll(Files& files, const File& file, std::span<const std::string_view> parts) {
  std::vector<iovec> pieces;
  pieces.reserve(parts.size());
  for (const std::string_view part : parts) {
    if (!part.empty()) pieces.push_back({const_cast<char*>(part.data()), part.size()});
  }
  std::span<iovec> left(pieces);
  while (!left.empty()) {
    const ssize_t result = files.write(file.get(), left);
    if (result == -EINTR) continue;
    if (result <= 0) return result < 0 ? static_cast<int>(-result) : EIO;
    auto written = static_cast<std::size_t>(result);
    for (; !left.empty() && written >= left.front().iov_len; left = left.subspan(1)) written -= left.front().iov_len;
    if (!left.empty()) {
      left.front().iov_base = static_cast<char*>(left.front().iov_base) + written;
      left.front().iov_len -= written;
    }
  }
  return 0;
}

int readSome(Files& files, const File& file, std::uint64_t offset, std::span<char> room, std::size_t& done) {
  while (!room.empty()) {
    const ssize_t result = files.read(file.get(), room.data(), room.size(), offset);
    if (result == -EINTR) continue;
    if (result <= 0) return static_cast<int>(-result);
    const auto count = static_cast<std::size_t>(result);
    done += count;
    offset += count;
    room = room.subspan(count);
  }
  return 0;
}

int readWhole(Files& files, const std::string& path, std::string& text) {
  const File file(files, files.openToRead(path));
  if (!file) return file.error();
  const std::int64_t size = files.size(file.get());
  if (size < 0) return static_cast<int>(-size);
  text.resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  const int error = readSome(files, file, 0, text, done);
  text.resize(done);
  return error;
}

}  // namespace quillon::delivery
