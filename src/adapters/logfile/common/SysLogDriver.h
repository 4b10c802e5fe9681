#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGDRIVER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGDRIVER_H_

#include <array>
#include <memory>
#include <string>

#include "foundation/descriptor.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace quillon {

/// Follows the files of a log source.
class LogPoller {
 public:
  LogPoller() = default;
  LogPoller(const LogPoller&) = delete;
  LogPoller& operator=(const LogPoller&) = delete;
  virtual ~LogPoller() = default;
};

}  // namespace quillon

/// The driver of a log source. Made from a format file alone it is the compiler.
///
/// Threads: as a LogDriver that reads files itself.
class SysLogDriver : public LogDriver {
 public:
  /// Compiles `fmtfile` and writes the class definitions to standard output. Ends the process with status 1 when the
  /// file cannot be read or the definitions cannot be written.
  explicit SysLogDriver(const char* fmtfile);

 private:
  /// Text of a source on its way into lines.
  struct LineBuffer {
    std::array<char, 4096> text{};
    char* read = text.data();   ///< The next byte to be taken out.
    char* write = text.data();  ///< Where the next byte goes.
  };

  // The state of a live source, as those who derive from this class have always found it laid out. A compiler has none,
  // and the sources of the adapter keep theirs elsewhere.
  LineBuffer lines[2];
  std::unique_ptr<quillon::LogPoller> poller;
  [[maybe_unused]] int polls = 0;
  quillon::Descriptor sources[4];
  quillon::Descriptor lock;
  std::string pipe;  ///< Path.
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGDRIVER_H_
