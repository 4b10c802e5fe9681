#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_ATTRIBUTES_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_ATTRIBUTES_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/named_value.h"
#include "src/adapters/logfile/event/EventWriter.h"

class LogDriver;

namespace quillon {

/// What is sent of a bound message to a server that has the class definitions (cds/): the number of the class and what
/// the class selects, so every slot whose value comes with the message, also one that was written with "-". Constants
/// and PRINTFs are the server's. Never changes, refers to nothing of the driver, and is shared by threads.
class Attributes {
 public:
  /// Of the driver's formats, in the order of its list.
  static std::shared_ptr<const Attributes> make(const LogDriver& driver);

  /// The number of formats.
  std::size_t size() const { return formats_.size() - 1; }

  /// The `_event_id` of the format number `format` of the driver's list.
  std::uint32_t eventId(std::size_t format) const { return formats_[format].eventId; }

  /// Puts into `out` the attributes of a message that this format has bound with `values`, in the order of SELECT. They
  /// are valid as long as the values, the source's texts and this object are. Names are as in the format file, whatever
  /// its codeset; values are UTF-8.
  void list(std::size_t format, std::span<const std::string_view> values, const EventSource& source,
            std::vector<NamedValue>& out) const;

 private:
  struct Attribute {
    std::string name;
    long kind;     ///< Of the slot's entry.
    int position;  ///< The N of $N.
  };

  struct Format {
    std::uint32_t eventId;
    std::size_t attribute;  ///< The first of its attributes; they end with the first one of the next format.
  };

  Attributes() = default;

  std::vector<Attribute> attributes_;
  std::vector<Format> formats_;  ///< In the driver's order, and one that marks the end.
};

/// What quillon writes for the driver's formats: the class definitions in the order of the file, whatever that of the
/// list is. Nothing when a PRINTF cannot be expanded, which is reported.
std::optional<std::string> classDefinitions(const LogDriver& driver);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_ATTRIBUTES_H_
