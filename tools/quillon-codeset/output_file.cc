#include "tools/quillon-codeset/output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace quillon {
namespace {

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// The file that is not complete, "" when there is none. OutputFile and the ends of the process write it.
char unfinished[PATH_MAX];

void removeUnfinished() {
  if (unfinished[0] != '\0') unlink(unfinished);
  unfinished[0] = '\0';
}

// The signal's own effect has been restored, and comes when this returns.
extern "C" void endBySignal(int signal) {
  removeUnfinished();
  std::raise(signal);
}

void removeAtEnd() {
  std::atexit(removeUnfinished);
  for (const int signal : kEndingSignals) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
    action.sa_handler = endBySignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(signal, &action, nullptr);
  }
}

// Makes `unfinished`; no signal comes between the file and its name.
int makeUnfinished(const std::string& path) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &before);
  const int length = std::snprintf(unfinished, sizeof unfinished, "%s.XXXXXX", path.c_str());
  int descriptor = -1;
  if (static_cast<std::size_t>(length) >= sizeof unfinished) {
    errno = ENAMETOOLONG;
  } else {
    descriptor = mkostemp(unfinished, O_CLOEXEC);
  }
  const int error = errno;
  if (descriptor < 0) unfinished[0] = '\0';
  sigprocmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return descriptor;
}

// Gives the file the permissions that open() would have given it.
bool makeReadable(int descriptor) {
  const mode_t mask = umask(0);
  umask(mask);
  return fchmod(descriptor, 0666 & ~mask) == 0;
}

// A device, a pipe: what there is to write into, but not to put another file in place of.
bool isSpecial(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)), temporary_(!isSpecial(path_)) {
  if (temporary_) {
    removeAtEnd();
    descriptor_ = Descriptor(makeUnfinished(path_));
  } else {
    descriptor_ = Descriptor(open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
  }
  if (!descriptor_) error_ = errno;
}

int OutputFile::finish() {
  if (temporary_ && !makeReadable(descriptor_.get())) error_ = errno;
  if (!descriptor_.close() && error_ == 0) error_ = errno;
  if (!temporary_ || error_ != 0) return error_;
  if (std::rename(unfinished, path_.c_str()) != 0) return error_ = errno;
  unfinished[0] = '\0';
  return 0;
}

}  // namespace quillon
