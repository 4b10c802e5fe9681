#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGMSG_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGMSG_H_

#include <string_view>

#include "foundation/characters.h"
#include "foundation/strobj.h"
#include "src/adapters/logfile/common/ConstComponent.h"

/// A log message under match: its text and a cursor that the components of a format move forward. All lengths and
/// offsets are bytes. White space is blank, tab, vertical tab, form feed, carriage return and, only in a message from
/// an event log, newline. A byte of 0x80 or above never is, so that no multibyte character is split.
///
/// Threads: one at a time, constant members too: they remember what they found.
class SysLogMsg : public qlStrobj {
 public:
  /// Copies `text`; null counts as empty. The cursor stands behind leading white space.
  explicit SysLogMsg(const char* text);

  /// Puts the cursor behind leading white space and returns how much of that there is.
  int reset();

  /// What a search for the occurrence `n` of a constant can go on from. The first ones have a memory of their own: a
  /// star field looks for them.
  quillon::FoundText& latestFound(int n) { return found_[n < 0 ? 0 : 1]; }
  /// Begins anew with that, because a format begins.
  void forgetFound() { found_[0].word = found_[1].word = {}; }

  /// Puts the cursor `to` bytes behind the start of the text.
  void seek(int to) { cursor = start() + to; }

  /// Where the cursor stood when the message was made. A leading newline is behind that also in a message from an event
  /// log, which it became later.
  int beginning() const { return beginning_; }

  /// True when only white space remains.
  int end() const { return cursor >= contentEnd_; }

  /// From now on a newline is white space.
  void setEventFromEventLog();

  /// Move the cursor by `n`, unchecked.
  void operator+=(int n) { cursor += n; }
  void operator-=(int n) { cursor -= n; }

  /// The cursor's distance from the start of the text.
  int offset() const { return static_cast<int>(cursor - start()); }

  /// The length of the white space at the cursor, which does not move.
  int whitesp() const {
    const char* p = cursor;
    while (p < textEnd_ && isSpace(*p)) ++p;
    return static_cast<int>(p - cursor);
  }

  /// The word at the cursor, up to white space or the end of the text; empty at the end. A newline counts as belonging
  /// to it, even in a message from an event log, so that a %n field can match it. The cursor does not move.
  qlStrobj peek() const { return qlStrobj(word()); }

  /// The same, in place: valid as long as the message. Asking again within one word costs nothing.
  std::string_view word() const {
    if (cursor < wordStart_ || cursor >= wordEnd_) findWord();
    return {cursor, static_cast<std::size_t>(wordEnd_ - cursor)};
  }

 private:
  const char* start() const { return view().data(); }
  bool isSpace(char c) const { return quillon::isWhiteSpace(c) && (c != '\n' || fromEventLog); }
  void findWord() const;
  void findContentEnd();

  int length;
  const char* cursor;
  int fromEventLog = 0;

  const char* textEnd_;
  int beginning_;
  const char* contentEnd_;                   ///< Behind the last character that is not white space.
  mutable const char* wordStart_ = nullptr;  ///< From here to wordEnd_ there is no end of a word: the last one found.
  mutable const char* wordEnd_ = nullptr;
  quillon::FoundText found_[2];
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGMSG_H_
