#ifndef QUILLON_PROGRAM_PROGRESS_H_
#define QUILLON_PROGRAM_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <string>

namespace quillon {

/// A line on the terminal of standard error that tells how far the reading of one file has come. Gone with this object.
/// Silent when standard error is no terminal, when standard output is one, and for what has no size, such as a pipe.
/// For the thread that reads.
class Progress {
 public:
  explicit Progress(int descriptor);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// `done` bytes have been read. Writes a few times a second, however often it is called.
  void show(std::uint64_t done) {
    if (total_ > 0) showNow(done);
  }

  /// Takes the line away until the next show(), to make place for a message.
  void hide();

  /// "42 %, 5.3 MB/s, 1:07 left" when `done` of `total` bytes took `seconds`.
  static std::string text(std::uint64_t done, std::uint64_t total, double seconds);

 private:
  using Clock = std::chrono::steady_clock;

  void showNow(std::uint64_t done);
  void replaceLine(const std::string& line);

  std::uint64_t total_ = 0;  ///< Bytes that there are to read; 0 when nothing is to be shown.
  const Clock::time_point start_ = Clock::now();
  Clock::time_point shown_ = start_;
  std::size_t width_ = 0;  ///< Of the line that stands there.
};

}  // namespace quillon

#endif  // QUILLON_PROGRAM_PROGRESS_H_
