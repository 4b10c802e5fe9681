#ifndef QUILLON_AUTHORING_REPORT_FINDING_JSON_H_
#define QUILLON_AUTHORING_REPORT_FINDING_JSON_H_

#include <optional>
#include <string>
#include <vector>

#include "authoring/report/Finding.h"
#include "authoring/report/TextLines.h"

/// Findings for programs. For any thread.
namespace quillon {

/// What was found in one file.
struct FileFindings {
  std::string file;
  const TextLines* lines;        ///< Of its text; null when it could not be read.
  std::optional<bool> compiles;  ///< None of a file of samples.
  std::vector<Finding> findings;
};

/// One JSON object: "files", each with its name and whether it compiles, and "findings", each in a line of its own.
/// Columns count bytes from 1; the end of a range is the place behind it. Ends with a newline.
std::string findingsJson(const std::vector<FileFindings>& files);

/// A log of the Static Analysis Results Interchange Format (SARIF) 2.1.0, with all codes as its rules. Columns count
/// Unicode characters from 1. Ends with a newline.
std::string findingsSarif(const std::vector<FileFindings>& files);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_REPORT_FINDING_JSON_H_
