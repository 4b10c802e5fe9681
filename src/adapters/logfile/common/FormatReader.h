#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATREADER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATREADER_H_

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "src/adapters/logfile/common/FormatPlaces.h"
#include "src/adapters/logfile/common/Reading.h"
#include "src/adapters/logfile/common/Report.h"

class LogDriver;

namespace quillon {

/// Reads format files, one after the other, for programs that read more than once, in several threads, or want to know
/// more than a terminal is told. A reading that failed does not fail the next one, and none ends the process.
///
///     LogDriver driver;
///     quillon::CollectedReports reports;
///     quillon::FormatReader reader(reports);
///     if (!reader.read("sshd.fmt", driver)) show(reports.reports);
///
/// Threads: each of them with its own reader and its own driver.
class FormatReader {
 public:
  struct Options {
    bool keepsPlaces = false;   ///< Remember where the parts of the formats stand. Costs memory.
    bool recovers = false;      ///< Go on behind a syntax error with the next line that begins with FORMAT.
    bool waitsForText = false;  ///< Wait for the end of an open comment behind the end of the file.
  };

  /// What is found goes to `sink`, which must live as long as this object.
  explicit FormatReader(ReportSink& sink) : FormatReader(sink, Options()) {}
  FormatReader(ReportSink& sink, const Options& options);

  /// Reads the file `path` and adds its formats to `driver`, ready for use: false after any error. What was read before
  /// the error is in the driver then, and with it the block that the error is in.
  [[nodiscard]] bool read(const char* path, LogDriver& driver);
  /// The same with `text` in place of a file; reports give it the name `file`.
  [[nodiscard]] bool readText(std::string_view text, const char* file, LogDriver& driver);

  /// Of what was read last, when places are kept.
  const FormatPlaces& places() const { return places_; }
  /// The same for keeps.
  FormatPlaces takePlaces() { return std::move(places_); }

 private:
  bool run(LogDriver& driver);

  ReportSink& sink_;
  const Options options_;
  std::string path_;
  FormatPlaces places_;

  // What Reading::State refers to.
  std::FILE* in_ = nullptr;
  const char* file_ = nullptr;
  int line_ = 0;
  int offset_ = 0;
  LogDriver* driver_ = nullptr;
  bool mustEndComments_;

  Reading reading_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATREADER_H_
