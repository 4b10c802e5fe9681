#ifndef QUILLON_ADAPTER_MESSAGEBINDER_H_
#define QUILLON_ADAPTER_MESSAGEBINDER_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "adapter/FormatFile.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Binds the messages of one source, also to formats of several lines.
///
/// A format of k lines is tried on the k lines from the present one, joined by newlines; of the formats that bind the
/// first in the order of trying takes its lines. When none does, one line is unmatched, and the next one is tried. So
/// what becomes of a text does not depend on when its lines came. Only where the text ends for now is a line held, as
/// long as a format that needs more lines stands before the one that binds, until more come, `wait` is over, or the
/// stream has ended.
///
/// Each stream (Message::stream) has its own lines. For one thread.
class MessageBinder {
 public:
  /// What became of one or more lines. The views last until the next call of the binder.
  struct Outcome {
    const Match* match;  ///< Null: no format binds. `place` counts among all formats of the file.
    std::string_view text;
    std::string_view path;
    std::span<const Position> positions;  ///< Behind the last line of each file that the lines came from.
    bool roomy = false;                   ///< The values are of `text`, and it is as Message::roomy says.
  };
  struct Options {
    Duration wait = Duration::zero();
    bool fromEventLog = false;  ///< Newlines are white space.
    bool whole = false;         ///< Messages have all their lines: every format is tried on each by itself.
  };
  using Receiver = std::function<void(const Outcome&)>;

  MessageBinder(std::shared_ptr<const FormatFile> formats, const Options& options, Receiver receiver);

  /// The next message of its stream.
  void add(const Message& message, TimePoint now);

  /// Decides about lines that have waited long enough, or about all of them when their source `ended`. Not about those
  /// for which `mayFollow` is true: more lines may have come behind this position by this time.
  using MayFollow = std::function<bool(const Position& last, TimePoint due)>;
  void expire(TimePoint now, bool ended, const MayFollow& mayFollow = {});
  /// When expire() has something to do; TimePoint::max() when nothing waits.
  TimePoint deadline() const;
  bool holds() const { return !streams_.empty(); }
  /// Forgets lines that wait and will come again.
  void forget(const std::function<bool(const Position&)>& comesAgain);

  /// From here on messages are bound by these formats; lines that wait are decided by them too.
  void setFormats(std::shared_ptr<const FormatFile> formats, const Options& options);

  /// Messages bound, tried and given up, of a format, since it was set.
  FormatCounts counts(std::uint32_t place) const;

 private:
  struct Line {
    std::string text;
    std::string path;
    Position position;
    TimePoint since;
  };
  /// What binds to a group of formats. What it bound is valid until it binds the next text.
  struct GroupBinder {
    explicit GroupBinder(std::shared_ptr<const FormatSet> formats) : matcher(std::move(formats)) {}

    Matcher matcher;
    MessageDecoder decoder;
    std::string joined;  ///< Room for the lines of a text.
  };
  using Lines = std::deque<Line>;

  enum class Ended { kNo, kYes };

  bool decide(Lines& lines, Ended ended);
  void bindWhole(const Message& message);
  void deliver(Lines& lines, std::size_t count, const Match* match, std::string_view text);
  std::optional<Match> bind(std::size_t group, std::string_view text, std::uint32_t before);

  std::shared_ptr<const FormatFile> formats_;
  std::vector<std::unique_ptr<GroupBinder>> groups_;  ///< One for each of the file's.
  Options options_;
  const Receiver receiver_;
  std::unordered_map<std::uint64_t, Lines> streams_;  ///< Lines that wait, by stream; never empty ones.
  std::vector<Position> positions_;                   ///< Room for an outcome's.
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_MESSAGEBINDER_H_
