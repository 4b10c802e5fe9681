#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_LOGDRIVER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_LOGDRIVER_H_

#include <cstdio>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/list.h"

class FormatSpec;

/// Owns what one format file defines: the ordered formats, each with one reference, and the stream for messages that
/// no format matches.
///
/// Threads: a driver and its formats belong to one at a time. Those that read files themselves, by a constructor or
/// reloadFmts(), do so one at a time in the process, and install the hooks; others are filled by a FormatReader.
class LogDriver {
 public:
  /// Reads `fmtfile` and prepares its formats for use. Messages that no format matches are appended to `outfile`;
  /// null, or a file that cannot be opened (which is reported), means that they are dropped. When the file cannot be
  /// read, a `fatal` above 0 ends the process with status 1; otherwise the formats before the fault are kept.
  LogDriver(const char* fmtfile, const char* outfile, int fatal);

  /// A driver without formats, for a quillon::FormatReader to fill. Leaves the hooks as they are.
  LogDriver();

  /// Checks `fmtfile` as the other constructor reads it, and keeps nothing: this driver has no formats.
  LogDriver(const char* fmtfile, int fatal);

  LogDriver(const LogDriver&) = delete;
  LogDriver& operator=(const LogDriver&) = delete;
  virtual ~LogDriver();

  /// Drops all formats and reads again, as the constructor does.
  void reloadFmts(const char* fmtfile, const char* outfile, int fatal);

  /// Appends `spec`.
  void addFormatSpec(const FormatSpec* spec);
  /// Puts `spec` in the place of the format of its name, whose own maps and parent it takes over, or in front of all
  /// formats when there is none.
  void editorAdd(const FormatSpec* spec);
  /// Makes `made`, a format of this driver that has just been read, ready for use: its texts become UTF-8.
  void prepare(FormatSpec& made);
  /// Turns the reading order into matching order, so that a later block is tried first, and reports variables that no
  /// map or more than one names.
  void orderFmts();
  /// The first format of that name; null when there is none. Does not walk the list.
  FormatSpec* getFormatSpec(const char* name);
  void removeFormatSpec(const char* name);

  /// Binds `message` to the first format that it matches and returns that, or null. `index` is the format's place
  /// counted from the end of the list as it was at the first call in this process: after orderFmts() that is its place
  /// in the file. It is fixed then because events carry it: a format keeps its number while others come and go, even if
  /// after a reload the numbers say nothing any more. `fromEventLog` makes newlines white space. A message without a
  /// format goes to the unmatched output, with one newline behind it, and that is flushed.
  FormatSpec* bind(const char* message, int& index, int fromEventLog = 0);

  /// Write the class definitions of all formats, or the format file that makes them, to the file `path`, or to standard
  /// output when it is null. 1 when all was written; 0 otherwise, with the reason in errno.
  [[nodiscard]] int write_cds(const char* path);
  [[nodiscard]] int write_fmt(const char* path);

  /// Writes all formats for debugging, if standard output is a terminal.
  void dbgdump();

  const qlList<FormatSpec*>& getFormats() const { return formats; }
  /// The same, for those who want to go through them otherwise than from first to last.
  std::vector<FormatSpec*> listed() const;
  /// True while the formats stand in the order of their blocks, which orderFmts() turns.
  bool isInFileOrder() const { return inFileOrder_; }
  /// The stream for messages that no format matches; null when there is none.
  std::FILE* getUnmatched() const { return unmatched; }

 private:
  void read(const char* fmtfile, const char* outfile, int fatal);
  void close();

  int parseResult = 0;  ///< What ReadFmt() returned last: 0 or 1.
  int maxVars = 1;      ///< The most variables of any format, at least 1.
  std::vector<char*> variables =
      std::vector<char*>(1);  ///< `maxVars` places for a log adapter to put values into; all null here.
  qlList<FormatSpec*> formats;
  std::FILE* unmatched = nullptr;
  bool inFileOrder_ = true;

  std::unordered_map<std::string_view, FormatSpec*> byName_;  ///< The first format of each name.
  bool indexed_ = true;                                       ///< False when `byName_` must be made anew.
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_LOGDRIVER_H_
