#ifndef QUILLON_ADAPTER_FORMATFILE_H_
#define QUILLON_ADAPTER_FORMATFILE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "src/adapters/logfile/common/Report.h"
#include "src/adapters/logfile/event/EventForms.h"
#include "src/adapters/logfile/match/FormatSet.h"

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

  /// Reads `path`; null after an error. `reports` gets what there is to say in any case.
  static std::shared_ptr<const FormatFile> load(const std::string& path, FormatOrder order, EventForm form,
                                                ReportSink& reports);

  /// With the fewest lines first.
  const std::vector<Group>& groups() const { return groups_; }
  /// The most lines of any format; at least 1.
  unsigned mostLines() const { return groups_.empty() ? 1 : groups_.back().lines; }
  const std::shared_ptr<const EventForms>& forms() const { return forms_; }
  /// The class of each format, in the order of trying.
  const std::vector<std::string>& classes() const { return classes_; }

 private:
  FormatFile() = default;

  std::vector<Group> groups_;
  std::shared_ptr<const EventForms> forms_;
  std::vector<std::string> classes_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_FORMATFILE_H_
