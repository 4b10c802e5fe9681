#ifndef QUILLON_FOUNDATION_LINE_OUTPUT_H_
#define QUILLON_FOUNDATION_LINE_OUTPUT_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "foundation/descriptor.h"
#include "foundation/line_buffer.h"

namespace quillon {

enum class Rotation { kNone, kDaily, kSize };

struct LineOutputOptions {
  std::string path;  ///< Empty: standard output.
  Rotation rotation = Rotation::kNone;
  std::uint64_t maxSize = 100 << 20;  ///< Bytes, for Rotation::kSize.
  unsigned keep = 7;                  ///< Files that were rotated away.

  bool operator==(const LineOutputOptions&) const = default;
};

/// Where lines go: standard output, or a file that is appended to and rotated. Lines are gathered and written whole, so
/// that others who append to the file do not tear them. For one thread at a time.
///
/// A rotated file keeps its name with a suffix: daily ones the day that they are of, in local time
/// ("events.log.2026-11-21", and ".2" and so on behind that when it is taken), those rotated by size a number, 1 for
/// the latest. The oldest ones beyond `keep` are removed.
class LineOutput {
 public:
  using Clock = std::chrono::system_clock;

  /// Opens the output. Empty on success, otherwise what failed and why; then nothing may be written.
  [[nodiscard]] std::string open(const LineOutputOptions& options, Clock::time_point now);

  /// Where whole lines are added, newlines included.
  LineBuffer& lines() { return lines_; }

  /// True when so much is gathered that it should be written.
  bool isFull() const { return lines_.text().size() >= kBatch; }

  /// Writes what was gathered, and rotates when it is time. 0, or the errno of what failed; EAGAIN when a reader has to
  /// read first (see descriptor()). What was not written is kept for the next call.
  [[nodiscard]] int flush(Clock::time_point now);

  /// Opens the path anew: somebody has put the file away. 0 or an errno; then the old file goes on.
  [[nodiscard]] int reopen();

  /// The same when the path leads to another file by now, or to none. 0 or an errno.
  [[nodiscard]] int reopenIfMoved();

  /// Takes over what `other` could not write, whole lines, and what it has counted. Only for one that was just opened.
  void takeOver(LineOutput& other);

  /// Waits until all is on the disk, where that means anything. 0 or an errno.
  [[nodiscard]] int sync();

  std::uint64_t bytes() const { return bytes_; }
  /// What is written to: writable, in the sense of poll(2), when a flush that gave EAGAIN is worth another one.
  int descriptor() const { return file_.get(); }

 private:
  static constexpr std::size_t kBatch = 64 << 10;

  [[nodiscard]] int openFile();
  [[nodiscard]] int rotate(Clock::time_point now);
  void removeOld() const;

  LineOutputOptions options_;
  Descriptor file_;
  LineBuffer lines_;
  std::size_t done_ = 0;     ///< Bytes of `lines_` that have been written.
  std::uint64_t size_ = 0;   ///< Bytes in the file.
  std::uint64_t bytes_ = 0;  ///< Written in all.
  std::string day_;          ///< That the file is of.
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_LINE_OUTPUT_H_
