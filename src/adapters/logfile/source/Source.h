#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_SOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_SOURCE_H_

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

using TimePoint = std::chrono::steady_clock::time_point;
using Duration = std::chrono::steady_clock::duration;

/// Where a message ends in the file that it came from. A plain value: it may be copied, kept and given back to
/// Source::acknowledge() in any order.
struct Position {
  std::uint64_t file = 0;    ///< The source's number for the file; 0 where a source has nothing to go back to.
  std::uint64_t offset = 0;  ///< Bytes from the beginning of the file to the end of the message and its newline.
  std::uint64_t tail = 0;    ///< tailHash() of the bytes just before `offset`: they tell the file from another one.
};

/// One message as it stood in its source, without the newline that ended it. The views last until the source is used
/// again.
struct Message {
  std::string_view text;
  std::string_view path;     ///< The file as it was followed, whatever it was renamed to; for sockets who sent it.
  std::uint64_t stream = 0;  ///< Messages of one number follow each other: a path across rotations, a connection.
  Position position;
  bool cut = false;    ///< `text` is the beginning of something longer than a message may be.
  bool roomy = false;  ///< kSlack bytes behind `text` can be read, whatever they are.

  /// For those who copy in strides.
  static constexpr std::size_t kSlack = 32;
};

/// Where a message was taken in, when somebody else did that.
struct Origin {
  std::string_view source;    ///< "web1/auth".
  std::string_view position;  ///< In that source.
};

/// Text of a file that was there and cannot be read any more, or that may have been there.
struct Gap {
  std::string_view path;   ///< The file as it was followed.
  std::uint64_t from = 0;  ///< The first byte that is missing.
  std::uint64_t to = 0;    ///< Behind the last byte that is known to be missing; `from` when none is known to be.
  bool open = false;       ///< There may have been more behind `to`; how much nobody knows.
  std::string_view cause;  ///< For the operator: "overwritten", "deleted" ...
};

/// What a source has to tell besides messages. Called from within the source's functions, on their thread; must not
/// call the source back. The views last for the call.
class SourceObserver {
 public:
  enum class Level { kInfo, kWarning, kError };

  virtual ~SourceObserver() = default;
  virtual void gap(const Gap& gap) = 0;
  virtual void notice(Level level, std::string_view text) = 0;
};

/// What is to be kept of a source's state, by key; it replaces what was kept under this key. An empty value: nothing
/// is to be kept any more. Values are text with a version and a checksum of their own.
struct StateRecord {
  std::string key;
  std::string value;
};

struct SourceCounters {
  std::uint64_t messages = 0;
  std::uint64_t bytes = 0;     ///< Of messages, with what ended them and what was cut off.
  std::uint64_t cut = 0;       ///< Messages that were longer than a message may be.
  std::uint64_t gaps = 0;      ///< Told to the observer.
  std::uint64_t refused = 0;   ///< Connections, for the limit or for what they sent.
  std::uint64_t overrun = 0;   ///< Datagrams that the kernel dropped because nobody read in time.
  std::uint64_t lag = 0;       ///< Bytes that are known to wait in files.
  std::uint64_t watching = 0;  ///< Files followed or connections open.
};

/// How a source ends.
enum class Finish {
  kStop,   ///< At the next occasion. What would be lost is read first; files are left as they are and go on later.
  kDrain,  ///< When all that is there has been read; then a last line without newline is a line too.
};

/// What one call of Source::next() may read. Without a bound a message that never ends would keep all else from its
/// turn.
class ReadAllowance {
 public:
  static constexpr std::size_t kBytes = 1 << 20;

  /// Another call begins.
  void begin() {
    left_ = kBytes;
    resumeAt_ = TimePoint::max();
  }
  void took(std::size_t bytes) { left_ -= std::min(left_, bytes); }
  /// True when it is used up: then it is `now` that the source wants to be called again.
  bool isUsedUp(TimePoint now) {
    if (left_ == 0) resumeAt_ = now;
    return left_ == 0;
  }
  TimePoint resumeAt() const { return resumeAt_; }

 private:
  std::size_t left_ = kBytes;
  TimePoint resumeAt_ = TimePoint::max();
};

/// Where messages come from. A source has no thread and never blocks: next() is called until it gives nothing, then
/// again when descriptor() is readable or deadline() has come. All functions of one source are for one thread at a
/// time.
///
/// A call of next() reads ReadAllowance::kBytes, or a little more, and then gives nothing even though there may be
/// more: deadline() is not later than `now` then, so the source is called again when others have had their turn.
///
/// Time comes in from outside, so that a test can step through hours.
class Source {
 public:
  Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  virtual ~Source() = default;

  /// Puts the next message into `message`. False when there is none at present, or when it has read enough for one
  /// call and deadline() says that it is not at the end.
  virtual bool next(TimePoint now, Message& message) = 0;

  /// Readable, in the sense of poll(2), when next() is worth a call; -1 when only the deadline tells.
  virtual int descriptor() const = 0;
  /// When next() is to be called at the latest; TimePoint::max() when there is no hurry at all.
  virtual TimePoint deadline() const = 0;

  /// False when all that stood behind the message that ends at `last` by the time `due` was delivered, and nothing is
  /// known to stand there now. To be asked while others of the source's streams keep it busy.
  virtual bool mayFollow(const Position& /*last*/, TimePoint /*due*/) const { return true; }

  /// Begins to end; next() goes on to be called until ended().
  virtual void finish(Finish how) = 0;
  /// Nothing will come any more.
  virtual bool ended() const = 0;

  /// Everything up to this position has been taken care of, and takeChanges() may say so. What was delivered and never
  /// acknowledged is delivered again after a restart.
  virtual void acknowledge(const Position& /*position*/) {}
  /// Everything up to this position is stored for good, as far as the outputs promise that, so whoever keeps it for
  /// this source may forget it. Comes some time after acknowledge(), in order, and not for every position.
  virtual void stored(const Position& /*position*/) {}
  /// Of the message that ends here and is not stored yet; nothing where this source is its origin. The views last until
  /// the message is stored.
  virtual std::optional<Origin> origin(const Position& /*position*/) const { return std::nullopt; }
  /// True when a message that ends here and was not acknowledged is delivered again after a restart.
  virtual bool comesAgain(const Position& /*position*/) const { return false; }
  /// What has changed in the state to be kept since the last call. Kept in one write with what came of the acknowledged
  /// messages, a restart neither loses nor repeats one.
  virtual std::vector<StateRecord> takeChanges() { return {}; }

  virtual SourceCounters counters() const { return counters_; }

 protected:
  /// Counts a message that is about to be delivered, with the `bytes` that it took.
  void count(const Message& message, std::uint64_t bytes) {
    ++counters_.messages;
    counters_.bytes += bytes;
    if (message.cut) ++counters_.cut;
  }

  SourceCounters counters_;
  ReadAllowance allowance_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_SOURCE_H_
