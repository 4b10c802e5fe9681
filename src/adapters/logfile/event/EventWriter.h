#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_EVENTWRITER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_EVENTWRITER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/event/EventForms.h"

namespace quillon {

/// What a source of messages gives to slots. Where nothing else is said these are the fixed words of an event.
struct EventSource {
  std::string_view defaultText = "default";
  std::string_view label = "label";
  std::string_view fileName = "filename";
};

/// Writes the events of bound messages: copies the pieces of a form and the values. Keeps its room from one event to
/// the next. One for each thread.
class EventWriter {
 public:
  /// Texts are copied in strides of so many bytes, so that up to as many behind them are read, and written.
  static constexpr std::size_t kStride = 32;

  explicit EventWriter(std::shared_ptr<const EventForms> forms, const EventSource& source = {});
  EventWriter(const EventWriter&) = delete;
  EventWriter& operator=(const EventWriter&) = delete;

  /// The source of the messages to come.
  void setSource(const EventSource& source);

  /// Takes the event of a message that the format number `format` of the driver's list has bound with `values`. Returns
  /// the most bytes that it has when it is written. `values` must be valid until then.
  std::size_t begin(std::size_t format, std::span<const std::string_view> values);

  /// The same, faster, for values that all are parts of `text` or consist of such parts and blanks. kStride bytes
  /// behind `text` must be readable.
  std::size_t begin(std::size_t format, std::span<const std::string_view> values, std::string_view text);

  /// Writes the event, without a newline, to `out`, which has room for what begin() returned and kStride bytes more.
  /// Returns its end.
  char* write(char* out) const;

  /// Appends the event to `parts`, for one that is too large to be copied. They are valid until the next begin().
  void append(std::vector<std::string_view>& parts) const;

 private:
  std::string_view ready(std::string& room, std::string_view value, bool isPlain, bool isReadable);
  std::span<const EventForms::Piece> pieces() const;

  const std::shared_ptr<const EventForms> forms_;
  std::size_t format_ = 0;
  std::size_t longestSource_ = 0;                             ///< Bytes of the longest value of the source.
  std::array<std::string_view, EventForms::kValues> values_;  ///< In their form; the first one is no value, and empty.
  std::array<std::string, EventForms::kValues> room_;         ///< For those that had to be changed.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_EVENTWRITER_H_
