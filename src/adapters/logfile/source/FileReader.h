#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILEREADER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILEREADER_H_

#include <cstddef>
#include <cstdint>

#include "src/adapters/logfile/source/FileTracker.h"
#include "src/adapters/logfile/source/FollowedFile.h"
#include "src/adapters/logfile/source/LineSplitter.h"

namespace quillon {

/// Reads one file at a time, a turn long, and takes it apart into lines. All files share one buffer: an unfinished line
/// is read again when there is more of it; of a long one only when its end has been found. Each read takes the bytes
/// just before it along, and so sees when a file has got another text in the meantime.
class FileReader {
 public:
  FileReader(FileTracker& tracker, ReadAllowance& allowance, std::size_t longest);

  /// Begins a turn with a file that is open. False when no line of it has ended, as far as was read; `more` tells
  /// whether there was more. With `final` an unfinished line is one.
  bool begin(FollowedFile& file, bool final, TimePoint now, bool& more);
  /// The next line. False when the allowance is used up; the turn goes on with another one. Else the turn is over, and
  /// `more` tells whether there was more to be read. The file may be gone then, or have another text.
  bool next(Frame& line, TimePoint now, bool& more);

  /// Ends the turn; lines that were not given out are read again.
  void stop() { file_ = nullptr; }

  FollowedFile* file() const { return file_; }

 private:
  enum class Read { kBytes, kEnd, kFailed, kChanged };

  Read fill();
  bool scanAhead(bool& more);
  bool leaveOut();
  void end(Read why);

  FileTracker& tracker_;
  ReadAllowance& allowance_;
  const std::size_t longest_;
  LineSplitter splitter_;
  FollowedFile* file_ = nullptr;
  bool final_ = false;
  bool started_ = false;  ///< Something was read in this turn.
  bool atEnd_ = false;
  std::size_t budget_ = 0;  ///< Bytes that are still to be read in this turn.
  TimePoint now_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILEREADER_H_
