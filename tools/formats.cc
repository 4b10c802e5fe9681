#include "tools/formats.h"

#include <cstdio>

#include "foundation/visible.h"
#include "program/program.h"
#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace quillon {

bool readFormats(const char* program, const std::string& path, bool inFileOrder, LogDriver& driver) {
  if (!canRead(program, path.c_str())) return false;
  CollectedReports reports;
  FormatReader reader(reports);
  const bool isReadable = reader.read(path.c_str(), driver);
  if (!isReadable) {
    for (const Report& report : reports.reports) {
      if (report.severity == Severity::kError) std::fputs(report.printed.c_str(), stderr);
    }
    std::fprintf(stderr, "%s: cannot use the format file %s\n", program, visible(path).c_str());
    return false;
  }
  const ReportScope quiet(&reports);
  if (!inFileOrder) driver.orderFmts();
  return true;
}

}  // namespace quillon
