#ifndef QUILLON_AUTHORING_CHECK_CHECKS_H_
#define QUILLON_AUTHORING_CHECK_CHECKS_H_

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "authoring/check/CheckedFile.h"
#include "authoring/report/Finding.h"

/// What is looked for in a format file. Each check is a function over a file that has been read; it reads nothing
/// itself, changes nothing, and takes time in proportion to the file.
namespace quillon {

/// Where checks put what they find.
class Findings {
 public:
  explicit Findings(const CheckedFile& file) : file_(file.name()) {}

  /// A new finding, which is valid until the next one.
  Finding& add(FindingCode code, const Place& place, std::string text) {
    return all_.emplace_back(code, file_, place, std::move(text));
  }
  std::vector<Finding> take() { return std::move(all_); }

 private:
  const std::string& file_;
  std::vector<Finding> all_;
};

using Check = void(const CheckedFile& file, Findings& findings);

Check checkSyntax;         ///< Syntax errors, with what is probably meant.
Check checkReports;        ///< All else that the reading reports.
Check checkPrintfs;        ///< PRINTFs that cannot be expanded.
Check checkFormatStrings;  ///< Traps in format strings.
Check checkSlots;          ///< Traps in slots.
Check checkBlocks;         ///< Traps of blocks among other blocks, and in comments.
Check checkBytes;          ///< Bytes that are not what they seem: control characters, text of another codeset.

/// All of them, in the order of the file.
std::vector<Finding> check(const CheckedFile& file);

/// "'user'", cut short when it is long.
std::string quoted(std::string_view text);

/// The text of `names` that is as good as `name`: with one letter more, fewer, different or exchanged, two in a name of
/// eight letters or more. Null when there is none or more than one.
const std::string* nearest(std::string_view name, const std::vector<std::string>& names);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_CHECK_CHECKS_H_
