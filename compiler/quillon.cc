#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "program/program.h"
#include "src/adapters/logfile/common/SysLogDriver.h"

/// quillon <format file>: compiles the file to class definitions on standard output.
int main(int argc, char* argv[]) {
  quillon::prepareProcess();
  if (argc != 2) {
    std::fputs("Usage: quillon <format file>\n", stderr);
    return EXIT_FAILURE;
  }
  if (quillon::isStandardOutput(argv[1])) {  // the class definitions would come behind the blocks
    if (isatty(STDERR_FILENO)) quillon::complainOfWritten("quillon", argv[1]);
    return EXIT_FAILURE;
  }
  // Never destroyed: the process ends here, and taking a large model apart first would cost it a tenth of its time.
  [[maybe_unused]] static const SysLogDriver* const driver = new SysLogDriver(argv[1]);
  return EXIT_SUCCESS;
}
