#include "src/adapters/logfile/common/diagnostics.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "foundation/visible.h"

ParseReporter* cefcn = nullptr;
ParseReporter* cwfcn = nullptr;
Reporter* pefcn = nullptr;
Reporter* ptfcn = nullptr;
bool reporting_always = false;

namespace {

/// Names come from a format file, which may come from anywhere: a program that talks to people anyway shows them
/// without what a terminal would obey.
[[gnu::format(printf, 1, 0)]] void showLines(const char* fmt, va_list args) {
  va_list counted;
  va_copy(counted, args);
  std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, fmt, counted)) + 1, '\0');
  va_end(counted);
  std::vsnprintf(text.data(), text.size(), fmt, args);
  text.pop_back();
  for (std::size_t begin = 0, end; begin < text.size(); begin = end) {
    end = std::min(text.find('\n', begin), text.size());
    std::fputs(quillon::visible(std::string_view(text).substr(begin, end - begin)).c_str(), stderr);
    if (end < text.size()) std::fputc(text[end++], stderr);
  }
}

}  // namespace

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
  if (reporting_always) {
    showLines(fmt, args);
  } else {
    std::vfprintf(stderr, fmt, args);
  }
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
