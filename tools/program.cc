#include "tools/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "src/adapters/logfile/common/diagnostics.h"

namespace quillon {

void prepareProcess() {
  for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) == -1) open("/dev/null", O_RDONLY);
  }
  std::signal(SIGPIPE, SIG_IGN);
  exitWhenMemoryIsExhausted();
}

}  // namespace quillon
