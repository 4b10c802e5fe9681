#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_EVENTFORMS_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_EVENTFORMS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class LogDriver;

namespace quillon {

enum class EventForm {
  /// "EVENT ", the class, " `slot=value'" for each slot, " END": what FormatSpec::aevent() gives, byte for byte; but
  /// where the platform's codeset is not UTF-8, constants are converted to it as values are.
  kText,
  /// An object: the class, the index of the block in its file, the slots in their order, and the variables. Bytes that
  /// are not UTF-8 become U+FFFD. Slots whose names would be equal for that reason are told apart by "#2" and so on.
  kJson,
};

enum class EventSlots {
  kAll,
  /// Those that the class definition maps. A slot that was written with "-" is there for PRINTF, and to be selected by;
  /// the event that is delivered does not have it.
  kMapped,
};

/// How the events of all formats of a driver are written in one form. All that is known before a message comes is
/// prepared: texts are escaped, constants inserted, each PRINTF is taken apart. Never changes, refers to nothing of the
/// driver, and is shared by threads; EventWriter writes with it.
class EventForms {
 public:
  /// Of the driver's formats, in the order of its list.
  static std::shared_ptr<const EventForms> make(const LogDriver& driver, EventForm form,
                                                EventSlots slots = EventSlots::kAll);

  EventForm form() const { return form_; }
  /// The number of formats.
  std::size_t size() const { return formats_.size() - 1; }

 private:
  friend class EventWriter;
  class Builder;

  /// What stands in the place of a value that comes with the message.
  enum Value : std::uint8_t { kNothing = 0, kDefault = 65, kLabel, kFileName, kValues };  // 1 to 64 are variables

  /// A text and the value behind it.
  struct Piece {
    std::uint32_t text;  ///< Its place in `texts_`,
    std::uint16_t size;  ///< and its bytes.
    std::uint8_t value;
  };

  struct Format {
    std::uint32_t piece;  ///< The first of its pieces; they end with the first one of the next format.
    std::uint32_t fixed;  ///< Bytes of its texts.
    std::uint32_t uses;   ///< How often a value is used.
  };

  explicit EventForms(EventForm form) : form_(form) {}

  std::string_view view(std::uint32_t text, std::size_t size) const { return {texts_.data() + text, size}; }

  const EventForm form_;
  std::string texts_;  ///< Most equal texts share a place. EventWriter::kStride bytes behind the last can be read.
  std::vector<Piece> pieces_;
  std::vector<Format> formats_;  ///< In the driver's order, and one that marks the end.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_EVENTFORMS_H_
