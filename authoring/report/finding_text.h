#ifndef QUILLON_AUTHORING_REPORT_FINDING_TEXT_H_
#define QUILLON_AUTHORING_REPORT_FINDING_TEXT_H_

#include <string>

#include "authoring/report/Finding.h"
#include "authoring/report/TextLines.h"

/// Findings for people. For any thread.
namespace quillon {

/// The finding, with the lines of the file `lines` that it is about and its range of them underlined:
///
///     login.fmt:3:6: error Q0206: there is no variable $2
///     3 | user $2
///       |      ^^
///     2 | user %s logged in
///       | ----------------- this format string has one variable, $1
///       = hint: variables are counted from $1, in the order of the fields
///
/// Ends with a newline. `colours` are those of ECMA-48 terminals.
std::string findingText(const Finding& finding, const TextLines& lines, bool colours);

/// What is said about a code in general: title, paragraph, and an example before and after.
std::string codeExplanation(const CodeEntry& entry);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_REPORT_FINDING_TEXT_H_
