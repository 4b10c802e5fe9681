#include "src/adapters/logfile/common/diagnostics.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>

ParseReporter* cefcn = nullptr;
ParseReporter* cwfcn = nullptr;
Reporter* pefcn = nullptr;
Reporter* ptfcn = nullptr;
bool reporting_always = false;

int ZORAD_Error(int level, const char* srcfile, int srcline, int code1, int code2, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  ZORAD_Error_va(level, srcfile, srcline, code1, code2, fmt, args);
  va_end(args);
  return 0;
}

int ZORAD_Error_va(int /*level*/, const char* /*srcfile*/, int /*srcline*/, int /*code1*/, int /*code2*/,
                   const char* fmt, va_list args) {
  if (!reporting_always && !isatty(STDOUT_FILENO) && !isatty(STDERR_FILENO)) return 0;
  std::vfprintf(stderr, fmt, args);
  std::fputc('\n', stderr);
  std::fflush(stderr);
  return 0;
}

namespace quillon {

void exitWhenMemoryIsExhausted() {
  std::set_new_handler([] { exitWithoutMemory("out of memory"); });
}

/// The site of the report.
constexpr int kMemorySite = 39;

void exitWithoutMemory(const char* message) {
  ZORAD_Error(kDriverLevel, "src/adapters/logfile/common/diagnostics", kMemorySite, 1, -1, "%s", message);
  std::exit(EXIT_FAILURE);
}

}  // namespace quillon
