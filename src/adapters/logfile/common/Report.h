#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_REPORT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_REPORT_H_

#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "src/adapters/logfile/common/diagnostics.h"

class FormatSpec;
class MsgMapEntry;

/// Reports as values: what the scanner, the parser, the model and the expansion of PRINTF have to say about a format
/// file. All of them call report(). From there a report goes to the sink of a ReportScope on this thread, as a value;
/// where there is none, to the hooks of diagnostics.h, which print it.
///
/// Threads: a report concerns the thread that makes it. A sink belongs to one thread at a time.
namespace quillon {

enum class Severity {
  kWarning,
  kError,  ///< The format file is unreadable, or its class definitions cannot be written.
};

enum class ReportCode {
  kCannotOpen,
  kCannotRead,
  kSyntaxError,
  kNestedTooDeep,
  kUndefinedParent,
  kTokenTooLong,
  kUnclosedComment,
  kTooManyVariables,
  kBadField,
  kVariableOutOfRange,
  kInheritedMapDropped,
  kVariableNotMapped,
  kVariableMappedTwice,
  kPrintArgumentCount,
  kPrintUnknownSlot,
  kPrintCircle,
};

/// "undefined-parent", for texts that machines read.
const char* reportName(ReportCode code);

/// A range of a file. Lines and columns count from 1, columns and lengths in bytes of the file.
struct Place {
  int line = 0;  ///< 0: there is no place.
  int column = 0;
  int length = 0;
  int endLine = 0;  ///< Of what follows the range.
  int endColumn = 0;

  explicit operator bool() const { return line > 0; }
  bool operator==(const Place&) const = default;
};

/// A second place that a report points to, in the same file.
struct Note {
  Place place;
  std::string text;
};

/// The parts of the model that a report is about; null and 0 where it is about none. Valid as long as they live.
struct Subject {
  const FormatSpec* format = nullptr;
  const MsgMapEntry* entry = nullptr;
  int variable = 0;
  int part = -1;  ///< Of a PRINTF entry: 0 is its format text, then come its arguments.
};

/// One point of the program that makes reports: what a report from there is, and what the hooks are told of it.
struct ReportSite {
  /// Who prints the report where no sink takes it.
  enum class Printer {
    kErrorHook,      ///< `cefcn`.
    kReporter,       ///< ZORAD_Error().
    kStandardError,  ///< Nobody asks for a terminal.
  };

  ReportCode code;
  Severity severity;
  Printer printer;
  int flags;  ///< For a ParseReporter.
  int level;
  const char* module;
  int number;  ///< Of the site within its module. Reporters in the hooks may know reports by it.
};

/// A site of errors in the format file, which counts as unreadable from then on. They are told with their position.
constexpr ReportSite errorSite(ReportCode code, int level, const char* module, int number) {
  return {code, Severity::kError, ReportSite::Printer::kErrorHook, kWithPosition | kFailsRead, level, module, number};
}

struct Report {
  Severity severity;
  ReportCode code;
  std::string file;  ///< Empty when nothing is being read.
  Place place;
  std::string text;  ///< What is wrong, in one line.
  std::vector<Note> notes;
  Subject subject;
  std::string printed;  ///< What an operator is shown of it: one or more whole lines, with the position if it has one.
  const ReportSite* site;
};

class ReportSink {
 public:
  ReportSink() = default;
  ReportSink(const ReportSink&) = delete;
  ReportSink& operator=(const ReportSink&) = delete;
  virtual ~ReportSink() = default;

  virtual void take(Report report) = 0;
};

/// Keeps reports in their order.
class CollectedReports : public ReportSink {
 public:
  void take(Report report) override { reports.push_back(std::move(report)); }
  std::vector<Report> reports;
};

/// Prints each report when it comes, as a reading without a sink does.
class PrintedReports : public ReportSink {
 public:
  void take(Report report) override;
};

/// While it lives, what this thread reports goes to `sink`; null: to the hooks. Scopes nest.
class ReportScope {
 public:
  explicit ReportScope(ReportSink* sink) : outer_(current_) { current_ = sink; }
  ReportScope(const ReportScope&) = delete;
  ReportScope& operator=(const ReportScope&) = delete;
  ~ReportScope() { current_ = outer_; }

  /// The sink of the innermost scope of this thread; null when there is none.
  static ReportSink* sink() { return current_; }

 private:
  ReportSink* const outer_;
  static thread_local constinit ReportSink* current_;
};

/// A printf format for arguments of the types `Args`, each `const char*` for %s or `int` for %d. One that does not fit
/// them does not compile.
template <class... Args>
class ReportFormat {
 public:
  consteval ReportFormat(const char* format) : text(format) {  // NOLINT(google-explicit-constructor)
    constexpr bool isText[] = {std::is_same_v<Args, const char*>..., false};
    std::size_t argument = 0;
    for (const char* p = format; *p; ++p) {
      if (*p != '%' || *++p == '%') continue;
      while (*p == '.' || (*p >= '0' && *p <= '9')) ++p;
      if (argument == sizeof...(Args) || *p != (isText[argument++] ? 's' : 'd')) throw "format and arguments differ";
    }
    if (argument != sizeof...(Args)) throw "fewer conversions than arguments";
  }
  const char* const text;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // ReportFormat has checked it
#pragma GCC diagnostic ignored "-Wformat-security"

template <class... Args>
std::string formatted(const char* format, Args... args) {
  std::string text(static_cast<std::size_t>(std::snprintf(nullptr, 0, format, args...)), '\0');
  std::snprintf(text.data(), text.size() + 1, format, args...);
  return text;
}

/// Makes the value of what `site` reports. `message` is what a reporter is given to print.
Report makeReport(const ReportSite& site, const Subject& subject, const std::string& message);

/// Reports from `site`, about `subject`.
template <class... Args>
void report(const ReportSite& site, const Subject& subject, ReportFormat<std::type_identity_t<Args>...> format,
            Args... args) {
  if (ReportSink* const sink = ReportScope::sink()) {
    sink->take(makeReport(site, subject, formatted(format.text, args...)));
  } else if (site.printer == ReportSite::Printer::kErrorHook) {
    if (cefcn) cefcn(site.flags, site.level, site.module, site.number, format.text, args...);
  } else if (site.printer == ReportSite::Printer::kReporter) {
    ZORAD_Error(site.level, site.module, site.number, kModelCode, -1, format.text, args...);
  } else {
    std::fprintf(stderr, format.text, args...);
  }
}

#pragma GCC diagnostic pop

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_REPORT_H_
