#ifndef QUILLON_TESTS_LOGFILE_MODEL_H_
#define QUILLON_TESTS_LOGFILE_MODEL_H_

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/scratch.h"

class FormatSpec;
class LogDriver;
class MapSpec;
class MsgMapEntry;
class SysLogMsg;
class qlStrobj;

namespace quillon {

/// Records what is reported while it lives, and afterwards puts everything back: what goes through `cefcn`, and what
/// ZORAD_Error() writes.
class CapturedReports {
 public:
  CapturedReports();
  CapturedReports& operator=(CapturedReports&&) = delete;
  ~CapturedReports();

  /// The reports so far, which are forgotten: one a line, those through `cefcn` behind their flags, level and site
  /// ("3,6,242 too many ...").
  std::string take();
};

/// Makes what a LogDriver would have made before the first format is built.
class LogfileTest : public testing::Test {
 protected:
  LogfileTest();
};

/// Adds the entry "slot rule" of the given kind to `spec`, as a line of a format file would, and returns it. A PRINTF
/// takes its parts separated by commas.
MsgMapEntry* addSlot(MapSpec& spec, const std::string& slot, long kind, const std::string& rule);

/// "no", or the captured values with bars between them.
std::string values(const FormatSpec& format, bool bound);

/// What values() says of `format` after it has tried to bind `message`.
std::string bound(FormatSpec& format, const std::string& message, bool eventLog = false);

/// A file with this text for the life of the object.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& text = "") : path_(directory_.path() / "file") { writeFile(path_, text); }
  const char* path() const { return path_.c_str(); }
  std::string text() const { return readFile(path_); }

 private:
  const ScratchDirectory directory_{inMemory()};
  const std::string path_;
};

/// Runs `work` in a child process, because it changes what lasts as long as the process, and compares what it returns.
void expectFromChild(const std::string& expected, const std::function<std::string()>& work);

}  // namespace quillon

#endif  // QUILLON_TESTS_LOGFILE_MODEL_H_
