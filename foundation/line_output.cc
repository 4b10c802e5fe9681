#include "foundation/line_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <vector>

#include "foundation/checkpoint.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// "2026-11-21", in local time.
std::string dayOf(LineOutput::Clock::time_point time) {
  const std::time_t seconds = LineOutput::Clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[16];
  std::strftime(text, sizeof text, "%Y-%m-%d", &local);
  return text;
}

bool isDay(std::string_view text) {
  return text.size() >= 10 && text[4] == '-' && text[7] == '-' &&
         std::ranges::all_of(text.substr(0, 4), [](char c) { return c >= '0' && c <= '9'; });
}

bool isNumber(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

/// Standard output, in a way that never blocks. What shares it with others must not be changed for them, so a pipe or a
/// terminal is opened anew; a file is not, because it has a place where writing goes on.
Descriptor openStandardOutput() {
  struct stat status {};
  if (fstat(STDOUT_FILENO, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode))) {
    Descriptor anew(::open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (anew) return anew;
  }
  return Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
}

/// The last of the `size` bytes of a file; a newline when it cannot be read.
char lastByte(const std::string& path, std::uint64_t size) {
  char last = '\n';
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return pread(file.get(), &last, 1, static_cast<off_t>(size - 1)) == 1 ? last : '\n';
}

std::string numbered(const std::string& path, unsigned number) { return path + "." + std::to_string(number); }

}  // namespace

std::string LineOutput::open(const LineOutputOptions& options, Clock::time_point now) {
  options_ = options;
  day_ = dayOf(now);
  if (options_.path.empty()) {
    file_ = openStandardOutput();
    return file_ ? "" : std::string("cannot write standard output: ") + std::strerror(errno);
  }
  if (const int error = openFile()) return "cannot open " + options_.path + ": " + std::strerror(error);
  return "";
}

/// Goes on with the file that is there; what it holds of an earlier day is rotated away at the next flush. A line that
/// a process was killed in the middle of is ended, so that the next one does not become a part of it.
int LineOutput::openFile() {
  Descriptor file(::open(options_.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0640));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return errno;
  size_ = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
  if (size_ > 0 && lastByte(options_.path, size_) != '\n') {
    if (const int error = writeAll(file.get(), "\n")) return error;
    ++size_;
  }
  if (size_ > 0) day_ = dayOf(Clock::from_time_t(status.st_mtime));
  file_ = std::move(file);
  return 0;
}

int LineOutput::flush(Clock::time_point now) {
  const std::string_view text = lines_.text();
  if (text.empty()) return 0;
  const bool full = options_.rotation == Rotation::kSize && size_ > 0 && size_ + text.size() > options_.maxSize;
  const bool old = options_.rotation == Rotation::kDaily && dayOf(now) != day_;
  if (done_ == 0 && (full || old)) {
    if (const int error = rotate(now)) return error;
  }
  checkpoint("output-begun");
  while (done_ < text.size()) {
    const ssize_t count = ::write(descriptor(), text.data() + done_, text.size() - done_);
    if (count >= 0) {
      done_ += static_cast<std::size_t>(count);
      size_ += static_cast<std::uint64_t>(count);
      bytes_ += static_cast<std::uint64_t>(count);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  checkpoint("output-written");
  lines_.clear();
  done_ = 0;
  return 0;
}

int LineOutput::reopen() { return options_.path.empty() ? 0 : openFile(); }

int LineOutput::reopenIfMoved() {
  struct stat status {};
  const bool isFile = !options_.path.empty() && fstat(file_.get(), &status) == 0 && S_ISREG(status.st_mode);
  return isFile && !areOneFile(file_.get(), options_.path.c_str()) ? openFile() : 0;
}

void LineOutput::takeOver(LineOutput& other) {
  const std::string_view text = other.lines_.text();
  const std::size_t whole = other.done_ == 0 ? 0 : text.rfind('\n', other.done_ - 1) + 1;  // npos + 1 is 0
  lines_.append(text.substr(whole));
  bytes_ = other.bytes_;
  other.lines_.clear();
  other.done_ = 0;
}

int LineOutput::sync() { return fdatasync(file_.get()) == 0 || errno == EINVAL ? 0 : errno; }

int LineOutput::rotate(Clock::time_point now) {
  std::error_code error;
  if (size_ > 0 && options_.rotation == Rotation::kDaily) {
    std::string aside = options_.path + "." + day_;
    for (unsigned n = 2; fs::exists(fs::symlink_status(aside)); ++n) aside = numbered(options_.path + "." + day_, n);
    fs::rename(options_.path, aside, error);
  } else if (size_ > 0) {
    for (unsigned n = options_.keep; n > 1; --n)
      fs::rename(numbered(options_.path, n - 1), numbered(options_.path, n), error);
    error.clear();
    fs::rename(options_.path, numbered(options_.path, 1), error);
  }
  if (error && error != std::errc::no_such_file_or_directory) return error.value();
  checkpoint("output-renamed");
  const int failed = openFile();
  if (failed == 0) day_ = dayOf(now);
  removeOld();
  return failed;
}

/// Removes the oldest of the files that were rotated away, beyond as many as are to be kept.
void LineOutput::removeOld() const {
  const fs::path path(options_.path);
  const std::string prefix = path.filename().string() + ".";
  std::vector<fs::path> days;
  std::error_code ignored;  // what cannot be looked at stays
  for (const fs::directory_entry& entry :
       fs::directory_iterator(path.has_parent_path() ? path.parent_path() : ".", ignored)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with(prefix)) continue;
    const std::string suffix = name.substr(prefix.size());
    if (options_.rotation == Rotation::kDaily && isDay(suffix)) days.push_back(entry.path());
    if (options_.rotation == Rotation::kSize && isNumber(suffix) && suffix.size() < 9 &&
        std::stoul(suffix) > options_.keep) {
      fs::remove(entry.path(), ignored);
    }
  }
  std::sort(days.begin(), days.end());
  for (std::size_t i = 0; i + options_.keep < days.size(); ++i) fs::remove(days[i], ignored);
}

}  // namespace quillon
