#include "program/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "src/adapters/logfile/common/diagnostics.h"

namespace quillon {

void prepareProcess() {
  // In the wrong direction, so that using them still fails.
  for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) == -1) open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
  for (int signal : {SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_IGN);
  exitWhenMemoryIsExhausted();
}

int outputFailed(const char* program) {
  if (errno != EPIPE) std::fprintf(stderr, "%s: cannot write standard output: %s\n", program, std::strerror(errno));
  return EXIT_FAILURE;
}

}  // namespace quillon
