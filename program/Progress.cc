#include "program/Progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace quillon {
namespace {

constexpr std::chrono::milliseconds kInterval(250);

}  // namespace

Progress::Progress(int descriptor) {
  struct stat file {};  // stays so when nothing can be known, and is then no regular one
  fstat(descriptor, &file);
  if (!isatty(STDERR_FILENO) || isatty(STDOUT_FILENO) || !S_ISREG(file.st_mode)) return;
  const off_t left = file.st_size - std::max<off_t>(lseek(descriptor, 0, SEEK_CUR), 0);
  if (left > 0) total_ = static_cast<std::uint64_t>(left);
}

Progress::~Progress() { hide(); }

void Progress::hide() {
  if (width_ > 0) replaceLine("");
}

std::string Progress::text(std::uint64_t done, std::uint64_t total, double seconds) {
  done = std::min(done, total);  // the file may have grown
  const double share = static_cast<double>(done) / static_cast<double>(total);
  std::string left = "?";
  if (done > 0) {
    const auto rest = std::llround(seconds * (1 - share) / share);
    char digits[40];
    std::snprintf(digits, sizeof digits, "%lld:%02lld", rest / 60, rest % 60);
    left = digits;
  }
  char line[100];
  std::snprintf(line, sizeof line, "%d %%, %.1f MB/s, %s left", static_cast<int>(share * 100),
                seconds > 0 ? static_cast<double>(done) / seconds / 1e6 : 0, left.c_str());
  return line;
}

void Progress::showNow(std::uint64_t done) {
  const Clock::time_point now = Clock::now();
  if (now - shown_ < kInterval) return;
  shown_ = now;
  replaceLine(text(done, total_, std::chrono::duration<double>(now - start_).count()));
}

/// Blanks, which every terminal knows, cover what is left of a longer line.
void Progress::replaceLine(const std::string& line) {
  std::fprintf(stderr, "\r%-*s\r%s", static_cast<int>(width_), line.c_str(), line.c_str());
  std::fflush(stderr);
  width_ = line.size();
}

}  // namespace quillon
