#ifndef QUILLON_TOOLS_LOGINPUT_H_
#define QUILLON_TOOLS_LOGINPUT_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/descriptor.h"
#include "program/Progress.h"
#include "src/adapters/logfile/source/MessageReader.h"

namespace quillon {

/// The messages of several logs, one log after the other, in blocks. Tells of logs that it cannot read, and goes on
/// with the next. Ends when the process is asked to end.
class LogInput {
 public:
  struct Settings {
    const char* program;  ///< In whose name complaints are made.
    char delimiter;
    std::size_t longest;  ///< Message, in bytes; longer ones come in pieces and are told of.
    /// True for a log that the program writes to: reading it would never end.
    std::function<bool(int descriptor)> isWritten;
  };

  /// Standard input is the name "-".
  LogInput(Settings settings, std::vector<std::string> names);

  /// Gets what comes next; false when there is nothing more. One thread at a time.
  bool fill(MessageBlock& block);

  /// From now on nothing is read; logs that cannot be opened are still told of. For any thread.
  void stop() { stopped_ = true; }

  /// Once fill() is done: the bytes of all blocks and their delimiters, and whether a log could not be read.
  std::uint64_t bytes() const { return bytes_; }
  bool failed() const { return failed_; }

 private:
  /// One log, while it is read.
  struct Log {
    Log(int file, const Settings& settings, int wakeup)
        : reader(file, settings.delimiter, settings.longest, wakeup), progress(file) {}
    MessageReader reader;
    Progress progress;
    bool inPieces = false;  ///< The latest block was a piece of a message that goes on.
  };

  bool open(const std::string& name);
  void close();
  void tellOfPiece(const MessageBlock& block);
  void fail(const char* failed, int error);

  const Settings settings_;
  const std::vector<std::string> names_;
  std::size_t next_ = 0;  ///< The first of `names_` that was not opened yet.
  Descriptor file_;       ///< None when standard input is read.
  std::optional<Log> log_;
  std::atomic<bool> stopped_ = false;
  std::uint64_t bytes_ = 0;
  bool failed_ = false;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_LOGINPUT_H_
