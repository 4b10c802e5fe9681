#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_READING_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_READING_H_

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatPlaces.h"
#include "src/adapters/logfile/common/Report.h"

class FormatSpec;
class LogDriver;
class MsgMapEntry;

namespace quillon {

/// Reports of the scanner and the parser come from here. By the number a hook knows that the report is about a token.
constexpr ReportSite readerSite(ReportCode code, int flags = kWithPosition | kFailsRead, int number = 215) {
  return {code,  Severity::kError, ReportSite::Printer::kErrorHook,
          flags, kReaderLevel,     "src/adapters/logfile/common/eConfig",
          number};
}

inline constexpr ReportSite kSyntaxErrorSite = readerSite(ReportCode::kSyntaxError);
inline constexpr ReportSite kNestedTooDeepSite = readerSite(ReportCode::kNestedTooDeep);
inline constexpr ReportSite kCannotOpenSite = readerSite(ReportCode::kCannotOpen, 0, 241);

/// What the scanner, the parser and the readers need of each other, and nobody else: one reading of a format file, with
/// a scanner of its own. FormatReader is what a program uses; ReadFmt() in eConfig.h reads the way it always did.
///
/// Threads: a reading belongs to one thread at a time. Two of them share nothing but the global state that the one
/// behind ReadFmt() uses.
class Reading : private ReportSink {
 public:
  /// Where the reading keeps what others can see or set.
  struct State {
    std::FILE*& in;         ///< What the scanner reads; standard input when null.
    const char*& file;      ///< The name that reports give it; null before it is open.
    int& line;              ///< As reports print it: newlines within quoted texts are not counted.
    int& offset;            ///< Line within the block, 0 outside one. The scanner counts, the parser enters and leaves.
    LogDriver*& driver;     ///< Receives the formats.
    bool& mustEndComments;  ///< A comment without end is an error; otherwise its end is waited for.
  };

  /// Reports become values that go to `sink`. Null: they are printed through the hooks, and what the scanner cannot go
  /// on from ends the process.
  Reading(const State& state, ReportSink* sink);
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;
  ~Reading() override;

  /// Makes the scanner start over, outside any block, with what state().in is now.
  void start();
  /// Reads up to the end of the file or, unless it `recovers`, the first syntax error: 0, or 1 after one. After a
  /// syntax error, a reading that recovers goes on with the next line that begins with FORMAT.
  [[nodiscard]] int parse(bool recovers);
  /// Forgets the format and the PRINTF that were being read.
  void finish();

  /// What is to be read instead of a file, from the next start() on; null data: the file. Kept by the caller.
  void setText(std::string_view text) { text_ = text; }
  /// Fills in where the parts of formats stand; null: not wanted. Only with a sink.
  void setPlaces(FormatPlaces* places) { places_ = places; }

  /// True after an error since start(). Only with a sink; without one ReadFmt() knows.
  bool failed() const { return failed_; }
  /// The formats made since start().
  const std::vector<FormatSpec*>& formats() const { return formats_; }
  /// The text of the present token.
  const char* tokenText() const;

  // For the scanner.

  const State& state() const { return state_; }
  /// That of flex.
  void* scanner() const { return scanner_; }
  /// Reads at least a byte into the buffer, unless the file is at its end. A NUL byte becomes two bytes that stand for
  /// it, see the scanner.
  std::size_t fill(char* buffer, std::size_t size);
  /// Bytes that fill() has given so far.
  std::size_t filled() const { return filled_; }
  /// True when tokens must be remembered with their marks.
  bool marksTokens() const { return sink_ != nullptr; }
  bool keepsPlaces() const { return places_ != nullptr; }
  /// Keeps the text of the present token, `length` bytes at offset `at`, for the parser. Text that is too long is an
  /// error.
  const char* keep(char* text, std::size_t length, std::size_t at);
  /// Remembers where a run of blanks stands.
  void markBlank(std::size_t length, std::size_t at);
  /// The next line begins at `at`.
  void beginLine(std::size_t at) { previousLineStart_ = std::exchange(lineStart_, at); }
  /// The last `pairs` bytes before the next token's were half of a pair that stands for one byte of the file.
  void skipPairs(std::size_t pairs) { lineStart_ += pairs; }
  /// Remembers that the parser is given the present token, of this kind.
  void keepToken(int kind);
  /// The next token follows `text`, which has such pairs in it.
  void skipPairsOf(std::string_view text);
  void beginComment(std::size_t at);
  void addToComment(std::string_view text);
  /// The same for text that may have pairs in it.
  void addEscapedToComment(std::string_view text);
  void endComment(std::size_t at);
  /// At the end of the file: waits for ever unless comments must be closed, else reports that this one is not.
  void unclosedComment();
  /// Ends the process or, in a reading with a sink, throws std::bad_alloc: the scanner has no memory.
  [[noreturn]] void cannotGoOn(const char* message) const;

  // For the parser: what each production does. Texts are valid for the call.

  /// Reports `message` about the present token.
  void error(const ReportSite& site, const char* message);
  /// The format that a block follows; null, with a report, when there is none of that name so far.
  FormatSpec* findParent(const char* name);
  /// Begins a block. What follows, until the next call, goes to its format.
  void beginFormat(const char* name);
  void addComponent(const char* text);
  /// Ends the format string: the block inherits the maps of `parent`, if any, before it reads its own.
  void endFormatString(FormatSpec* parent);
  MsgMapEntry* makeSlot(const char* name, long kind, const char* value);
  /// A slot with a bare word: a variable when it is "$" and digits, or none; a constant otherwise.
  MsgMapEntry* makeWordSlot(const char* name, const char* value);
  void beginPrint(const char* name);
  /// Takes the format text, then each argument.
  void addPrintPart(const char* text);
  MsgMapEntry* endPrint();
  void addSlot(MsgMapEntry* entry);
  void endFormat();

 private:
  /// Where a token stands, in bytes that fill() has given.
  struct Mark {
    std::size_t at;
    std::size_t end;
    std::size_t lineStart;     ///< Of the line it begins in, moved on by the pairs before it.
    std::size_t endLineStart;  ///< Of the line it ends in, moved on by all its pairs.
    int line;
    int endLine;
    int length;  ///< In bytes of the file.
  };

  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
  static constexpr unsigned kTexts = 4;      ///< As many as the parser needs at a time, and one.
  static constexpr std::size_t kRoom = 256;  ///< For each, with its end.

  void take(Report report) override;
  std::size_t read(char* buffer, std::size_t size);
  void mark(std::string_view token, std::size_t at);
  const Mark& markOf(const char* text) const { return marks_[static_cast<std::size_t>(text - texts_[0]) / kRoom]; }
  static Place placeOf(const Mark& mark);
  Place presentPlace() const;
  std::size_t tokenOffset() const;
  int realLine() const { return state_.line + quotedLines_; }

  const State state_;
  ReportSink* const sink_;
  FormatPlaces* places_ = nullptr;
  void* scanner_ = nullptr;
  std::string_view text_;
  bool failed_ = false;

  bool hasPairs_ = false;  ///< There has been a NUL or a \1 byte.
  char pending_ = '\0';    ///< The second byte of a pair that did not fit into the buffer.
  std::size_t filled_ = 0;
  std::size_t lineStart_ = 0;  ///< Moved on by the pairs of the line so far.
  std::size_t previousLineStart_ = 0;
  int quotedLines_ = 0;  ///< Newlines within quoted texts so far.
  int commentLine_ = 0;  ///< Where the block comment opened that is being skipped, as reports print it.
  Mark comment_ = {};    ///< The same, for values.
  std::string commentText_;

  char texts_[kTexts][kRoom] = {};
  Mark marks_[kTexts] = {};
  unsigned latest_ = 0;  ///< The text that was kept last.

  std::vector<FormatSpec*> formats_;
  FormatSpec* format_ = nullptr;  ///< The block that is being read.
  /// The PRINTF that is being read or was last. Held here, because a syntax error can keep it out of its format.
  Ref<MsgMapEntry> print_;
  Mark parent_ = {};             ///< What stands behind FOLLOWS.
  const Mark* about_ = nullptr;  ///< What the model is being told; null: the present token.

  FormatPlaces::Block* block_ = nullptr;
  FormatPlaces::Slot printPlaces_;
  std::string parentName_;
};

/// The reading behind ReadFmt() and the globals of eConfig.h. Lives as long as the process.
Reading& establishedReading();

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_READING_H_
