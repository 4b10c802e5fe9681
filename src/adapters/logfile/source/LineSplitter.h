#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LINESPLITTER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LINESPLITTER_H_

#include "src/adapters/logfile/source/Splitter.h"

namespace quillon {

/// Lines, each ended by a newline; all other bytes are as they stand. Serves the sources, which never wait and follow
/// many streams at once; who reads one stream to its end and may wait for it has MessageReader.
class LineSplitter : public Splitter {
 public:
  explicit LineSplitter(std::size_t longest, std::size_t firstRoom = 65536, std::size_t before = 0)
      : Splitter(longest, firstRoom, before) {}

  bool next(Frame& line) override;
  bool finish(Frame& line) override;

  /// Begins with another stream, or elsewhere in this one.
  void reset() {
    restart();
    searched_ = 0;
  }
  /// The next `count` bytes belong to no line; they only stand before the first one.
  void skip(std::size_t count) { begin_ += count; }
  /// The line at hand holds more than is kept of it: its next `count` bytes, none of them a newline, will not be read.
  void leaveOut(std::uint64_t count) { dropped_ += count; }
  bool isTooLong() const { return end_ - begin_ > longest_; }
  /// The last bytes that were read, as many as Frame::before has.
  std::string_view lastRead() const { return last(end_); }

 private:
  void take(Frame& line, std::size_t end, std::size_t delimiter);

  std::size_t searched_ = 0;  ///< So many bytes of the line at hand hold no newline.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LINESPLITTER_H_
