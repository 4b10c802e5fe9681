#include "src/adapters/logfile/common/Report.h"

namespace quillon {

thread_local constinit ReportSink* ReportScope::current_ = nullptr;

const char* reportName(ReportCode code) {
  switch (code) {
    case ReportCode::kCannotOpen:
      return "cannot-open";
    case ReportCode::kCannotRead:
      return "cannot-read";
    case ReportCode::kSyntaxError:
      return "syntax-error";
    case ReportCode::kNestedTooDeep:
      return "nested-too-deep";
    case ReportCode::kUndefinedParent:
      return "undefined-parent";
    case ReportCode::kTokenTooLong:
      return "token-too-long";
    case ReportCode::kUnclosedComment:
      return "unclosed-comment";
    case ReportCode::kTooManyVariables:
      return "too-many-variables";
    case ReportCode::kBadField:
      return "bad-field";
    case ReportCode::kVariableOutOfRange:
      return "variable-out-of-range";
    case ReportCode::kInheritedMapDropped:
      return "inherited-map-dropped";
    case ReportCode::kVariableNotMapped:
      return "variable-not-mapped";
    case ReportCode::kVariableMappedTwice:
      return "variable-mapped-twice";
    case ReportCode::kPrintArgumentCount:
      return "print-argument-count";
    case ReportCode::kPrintUnknownSlot:
      return "print-unknown-slot";
    case ReportCode::kPrintCircle:
      return "print-circle";
  }
  return "";
}

Report makeReport(const ReportSite& site, const Subject& subject, const std::string& message) {
  // A report to standard error is whole lines; a reporter ends what it is given with a newline of its own.
  const bool isWhole = site.printer == ReportSite::Printer::kStandardError;
  const std::size_t end = message.find_last_not_of('\n');
  return {.severity = site.severity,
          .code = site.code,
          .file = {},
          .place = {},
          .text = message.substr(0, end == std::string::npos ? 0 : end + 1),
          .notes = {},
          .subject = subject,
          .printed = isWhole ? message : message + "\n",
          .site = &site};
}

void PrintedReports::take(Report report) {
  if (report.site->printer == ReportSite::Printer::kStandardError) {
    std::fputs(report.printed.c_str(), stderr);
  } else {
    // printed ends with the newline that the reporter adds
    report.printed.pop_back();
    ZORAD_Error(report.site->level, report.site->module, report.site->number, kErrorCode, -1, "%s",
                report.printed.c_str());
  }
}

}  // namespace quillon
