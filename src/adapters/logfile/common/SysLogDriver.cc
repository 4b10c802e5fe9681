#include "src/adapters/logfile/common/SysLogDriver.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "src/adapters/logfile/common/diagnostics.h"

namespace {

/// The site of this module's report.
constexpr int kOutputSite = 13;

}  // namespace

SysLogDriver::SysLogDriver(const char* fmtfile) : LogDriver(fmtfile, nullptr, 1) {
  if (write_cds(nullptr)) return;
  ZORAD_Error(quillon::kDriverLevel, "src/adapters/logfile/common/SysLogDriver", kOutputSite, 1, -1,
              "cannot write standard output: %s", std::strerror(errno));
  std::exit(EXIT_FAILURE);
}
