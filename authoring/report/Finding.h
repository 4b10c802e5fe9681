#ifndef QUILLON_AUTHORING_REPORT_FINDING_H_
#define QUILLON_AUTHORING_REPORT_FINDING_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "authoring/report/codes.h"
#include "src/adapters/logfile/common/Report.h"

namespace quillon {

/// One replacement in a file. Ranges of one fix do not overlap.
struct Edit {
  Place range;       ///< Of length 0 where text is only inserted.
  std::string text;  ///< What stands there afterwards.
};

/// A change that takes the cause of a finding away and nothing else: the file says what its author meant, and a file
/// that compiled compiles still. What is not that safe is a hint.
struct Fix {
  std::string title;  ///< "quote the value"
  std::vector<Edit> edits;
};

/// What is wrong with a format file in one place, or likely to be. A value: it refers to nothing.
struct Finding {
  /// Of the severity that the code has in the table.
  Finding(FindingCode found, std::string in, const Place& at, std::string says)
      : code(found), severity(codeEntry(found).severity), file(std::move(in)), place(at), text(std::move(says)) {}

  FindingCode code;
  Severity severity;
  std::string file;         ///< As it was named.
  Place place;              ///< No place: the file as a whole.
  std::string text;         ///< What is wrong, in one line without a full stop. May hold any bytes of the file.
  std::vector<Note> notes;  ///< Other places, or further lines where a note has no place.
  std::string hint;         ///< What to do, in words; empty when there is nothing to say.
  std::optional<Fix> fix;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_REPORT_FINDING_H_
