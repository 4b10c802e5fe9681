#include "program/program.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "codeset/tables.h"
#include "foundation/descriptor.h"
#include "foundation/visible.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace quillon {

void prepareProcess() {
  // In the wrong direction, so that using them still fails.
  for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) == -1) open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
  for (int signal : {SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_IGN);
  exitWhenMemoryIsExhausted();
}

void prepareTool() {
  prepareProcess();
  setTableSearch({.always_current_directory = false, .instead_of_nxldir = {}});
  holdCodeset();
  reporting_always = true;
  comments_must_close = true;
}

void complain(const char* program, const char* failed, std::string_view name, int error) {
  std::fprintf(stderr, "%s: cannot %s %s: %s\n", program, failed, visible(name).c_str(), std::strerror(error));
}

bool isStandardOutput(const char* path) { return areOneFile(STDOUT_FILENO, path); }

void complainOfWritten(const char* program, std::string_view name) {
  std::fprintf(stderr, "%s: %s is written to, so it cannot be read: name another output\n", program,
               visible(name).c_str());
}

bool canRead(const char* program, const char* path) {
  struct stat file {};
  if (isStandardOutput(path)) {
    complainOfWritten(program, path);
  } else if (stat(path, &file) != 0 || faccessat(AT_FDCWD, path, R_OK, AT_EACCESS) != 0) {
    complain(program, "open", path, errno);
  } else if (S_ISDIR(file.st_mode)) {
    complain(program, "read", path, EISDIR);
  } else {
    return true;
  }
  return false;
}

int outputFailed(const char* program) {
  if (errno != EPIPE) std::fprintf(stderr, "%s: cannot write standard output: %s\n", program, std::strerror(errno));
  return EXIT_FAILURE;
}

}  // namespace quillon
