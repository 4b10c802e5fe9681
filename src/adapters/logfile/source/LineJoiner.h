#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LINEJOINER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LINEJOINER_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// How the lines of a stream become messages.
struct Joining {
  /// A line and those behind it that begin with a blank or a tab are one message, joined by newlines: a stack trace.
  bool indented = false;
  /// How long the last message of a stream waits for more lines when none come.
  Duration wait = std::chrono::milliseconds(500);

  bool operator==(const Joining&) const = default;
};

/// A message, made of lines.
struct JoinedLines {
  std::string text;
  Position position;        ///< Behind its last line.
  std::uint64_t bytes = 0;  ///< That its lines took.
  bool cut = false;
};

/// Makes one message of a line and the indented ones behind it. A message is known to be whole when the next one
/// begins; until then it is held.
class LineJoiner {
 public:
  explicit LineJoiner(std::size_t longest) : longest_(longest) {}

  static bool isIndented(std::string_view line) { return !line.empty() && (line[0] == ' ' || line[0] == '\t'); }

  /// Adds the next line. True when that begins a message and so completes the one before it, which is then in
  /// `complete`. What makes a message longer than `longest` bytes is dropped, and the message marked.
  bool add(const Message& line, std::uint64_t bytes, TimePoint now, JoinedLines& complete);

  bool holds() const { return holds_; }
  /// Behind the last line of the message that is held.
  const Position& position() const { return held_.position; }
  /// When the last line of the message that is held came.
  TimePoint since() const { return since_; }
  /// Gives up the message that is held; there must be one.
  JoinedLines release();
  /// Goes on with what another one holds: a stream continues in the next file.
  void takeOver(LineJoiner& other, TimePoint now);

 private:
  std::size_t longest_;
  JoinedLines held_;
  bool holds_ = false;
  TimePoint since_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LINEJOINER_H_
