#ifndef QUILLON_ADAPTER_FORMATFILE_H_
#define QUILLON_ADAPTER_FORMATFILE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cds/ClassSet.h"
#include "delivery/Record.h"
#include "src/adapters/logfile/common/Report.h"
#include "src/adapters/logfile/event/Attributes.h"
#include "src/adapters/logfile/event/EventForms.h"
#include "src/adapters/logfile/match/FormatSet.h"

class LogDriver;

namespace quillon {

/// In which order the formats of a file are tried.
enum class FormatOrder {
  kLastFirst,  ///< As an event server does: the block that stands last in the file first.
  kOfFile,
};

/// A format file, read and made ready for binding and writing. Immutable and self-contained, so that a reload makes new
/// ones aside, in another thread, and swaps pointers.
class FormatFile {
 public:
  /// The formats whose messages have a certain number of lines, in the order of trying.
  struct Group {
    unsigned lines;
    std::shared_ptr<const FormatSet> formats;
    std::vector<std::uint32_t> places;  ///< Of each among all formats of the file, in the order of trying; ascending.
  };

  /// What events are sent by: the class definitions of the file as an event server has them.
  struct Sent {
    std::shared_ptr<const Attributes> attributes;
    std::shared_ptr<const ClassSet> classes;
    delivery::SetId set;
  };

  /// Reads `path`; null after an error. `reports` gets what there is to say in any case.
  static std::shared_ptr<const FormatFile> load(const std::string& path, FormatOrder order, EventForm form,
                                                bool forDelivery, ReportSink& reports);

  /// With the fewest lines first.
  const std::vector<Group>& groups() const { return groups_; }
  /// The most lines of any format; at least 1.
  unsigned mostLines() const { return groups_.empty() ? 1 : groups_.back().lines; }
  const std::shared_ptr<const EventForms>& forms() const { return forms_; }
  /// The class of each format, in the order of trying.
  const std::vector<std::string>& classes() const { return classes_; }
  /// Only when it was loaded `forDelivery` and an event server would understand the class definitions that quillon
  /// writes for the file; otherwise unsendable() says what it would not.
  const std::optional<Sent>& sent() const { return sent_; }
  const std::string& unsendable() const { return unsendable_; }

 private:
  FormatFile() = default;
  void prepareSending(const LogDriver& driver);

  std::vector<Group> groups_;
  std::shared_ptr<const EventForms> forms_;
  std::vector<std::string> classes_;
  std::optional<Sent> sent_;
  std::string unsendable_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_FORMATFILE_H_
