#include "src/adapters/logfile/common/FormatReader.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/shared_text.h"

namespace quillon {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

FormatReader::FormatReader(ReportSink& sink, const Options& options)
    : sink_(sink),
      options_(options),
      mustEndComments_(!options.waitsForText),
      reading_({in_, file_, line_, offset_, driver_, mustEndComments_}, &sink) {}

bool FormatReader::read(const char* path, LogDriver& driver) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path, "r"));
  if (!file) {
    Report report = makeReport(kCannotOpenSite, {}, formatted("cannot open %s\n", path));
    report.text += formatted(": %s", std::strerror(errno));
    report.file = path;
    report.printed += "parsing error in file: (null)\n";  // none is being read
    sink_.take(std::move(report));
    return false;
  }
  path_ = path;
  in_ = file.get();
  reading_.setText({});
  return run(driver);
}

bool FormatReader::readText(std::string_view text, const char* file, LogDriver& driver) {
  path_ = file;
  reading_.setText(text.data() ? text : "");
  return run(driver);
}

bool FormatReader::run(LogDriver& driver) {
  places_ = FormatPlaces();
  reading_.setPlaces(options_.keepsPlaces ? &places_ : nullptr);
  file_ = path_.c_str();
  line_ = 1;
  driver_ = &driver;
  const SharedTexts texts;
  reading_.start();
  const int result = reading_.parse(options_.recovers);
  for (FormatSpec* format : reading_.formats()) driver.prepare(*format);
  reading_.finish();
  return result == 0 && !reading_.failed();
}

}  // namespace quillon
