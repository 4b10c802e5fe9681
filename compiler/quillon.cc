#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "src/adapters/logfile/common/SysLogDriver.h"
#include "src/adapters/logfile/common/diagnostics.h"

namespace {

/// Keeps the format file from being opened in the place of a standard stream that the caller has closed. What is
/// written there fails, as it would without this.
void occupyStandardDescriptors() {
  for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) == -1) open("/dev/null", O_RDONLY);
  }
}

}  // namespace

/// quillon <format file>: compiles the file to class definitions on standard output.
int main(int argc, char* argv[]) {
  occupyStandardDescriptors();
  if (argc != 2) {
    std::fputs("Usage: quillon <format file>\n", stderr);
    return EXIT_FAILURE;
  }
  std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away must end in status 1, as a full disk does
  quillon::exitWhenMemoryIsExhausted();
  const SysLogDriver driver(argv[1]);
  return EXIT_SUCCESS;
}
