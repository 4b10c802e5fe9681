#include "src/adapters/logfile/source/LockFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

namespace quillon {
namespace {

constexpr int kTries = 2000;  ///< A millisecond each.

/// The number in the file; 0 when there is none.
pid_t numberIn(int file) {
  char text[24];
  const ssize_t count = pread(file, text, sizeof text, 0);
  pid_t number = 0;
  if (count > 0) std::from_chars(text, text + count, number);
  return number;
}

bool isAlive(pid_t process) { return process > 0 && (kill(process, 0) == 0 || errno == EPERM); }

/// False when the file was removed, or another one made in its place, before the lock was there.
bool isStillAt(int file, const char* path) {
  struct stat held;
  struct stat there;
  return fstat(file, &held) == 0 && stat(path, &there) == 0 && held.st_dev == there.st_dev &&
         held.st_ino == there.st_ino;
}

bool writeNumber(int file) {
  const std::string text = std::to_string(getpid()) + '\n';
  const auto size = static_cast<ssize_t>(text.size());
  return pwrite(file, text.data(), text.size(), 0) == size && ftruncate(file, size) == 0;
}

}  // namespace

LockFile::LockFile(std::string path, Descriptor file) : path_(std::move(path)), file_(std::move(file)) {}

LockFile::~LockFile() {
  unlink(path_.c_str());  // before the lock ends: whoever gets it next looks whether its file is still there
}

std::unique_ptr<LockFile> LockFile::take(const std::string& path, std::string& error) {
  for (int tries = 0;;) {
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!file) {
      error = "cannot open the lock file " + path + ": " + std::strerror(errno);
      return nullptr;
    }
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      const int failure = errno;
      if (failure == EINTR) continue;
      // Who has just got the lock writes its number now, and who is about to give it up has removed its file.
      const pid_t holder = numberIn(file.get());
      const bool isKnown = isAlive(holder) && isStillAt(file.get(), path.c_str());
      if (failure == EWOULDBLOCK && !isKnown && ++tries < kTries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      error = failure != EWOULDBLOCK ? "cannot lock " + path + ": " + std::strerror(failure)
              : isKnown              ? "in use by process " + std::to_string(holder) + " (" + path + ")"
                                     : "in use by a process that does not say which (" + path + ")";
      return nullptr;
    }
    if (!isStillAt(file.get(), path.c_str())) continue;
    if (!writeNumber(file.get())) {
      error = "cannot write to the lock file " + path + ": " + std::strerror(errno);
      return nullptr;
    }
    return std::unique_ptr<LockFile>(new LockFile(path, std::move(file)));
  }
}

}  // namespace quillon
