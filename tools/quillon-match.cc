#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/output_buffer.h"
#include "program/Progress.h"
#include "program/options.h"
#include "program/program.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "src/adapters/logfile/event/JsonWriter.h"
#include "src/adapters/logfile/source/MessageReader.h"
#include "tools/Statistics.h"

namespace {

constexpr const char* kProgram = "quillon-match";

struct Options {
  std::string formats;
  std::vector<std::string> logs;
  std::string output = "event";
  bool nulEnded = false;
  bool fileOrder = false;
  std::string unmatched;  ///< Empty: not kept.
  bool eventLog = false;
  bool stats = false;
  bool lineBuffered = false;
};

void describe(CLI::App& app, Options& options) {
  app.add_option("FORMATS", options.formats, "The format file")->required()->type_name("");
  app.add_option("LOG", options.logs, "Logs to read, one after the other; - is standard input, also when none is named")
      ->type_name("");
  app.add_option("--output", options.output, "How a bound message is written: event (the default) or json")
      ->check(CLI::IsMember({"event", "json"}).description(""))
      ->type_name("FORM")
      ->take_last();
  app.add_flag("-z,--null", options.nulEnded, "Messages are ended by NUL instead of newline");
  app.add_flag("--file-order", options.fileOrder, "Try the blocks in the order of the file; the default is last first");
  app.add_option("--unmatched", options.unmatched, "Append messages that no block matches to FILE")
      ->check([](const std::string& name) { return std::string(name.empty() ? "the name is empty" : ""); })
      ->type_name("FILE")
      ->take_last();
  app.add_flag("--event-log", options.eventLog, "The messages are from an event log: a newline is white space");
  app.add_flag("--stats", options.stats, "End with a summary on standard error");
  app.add_flag("--line-buffered", options.lineBuffered, "Write each line at once, as to a terminal");
}

/// "quillon-match: cannot read x.log: Permission denied"
void complain(const char* failed, const std::string& name, int error) {
  std::fprintf(stderr, "%s: cannot %s %s: %s\n", kProgram, failed, name.c_str(), std::strerror(error));
}

/// One log, open for reading; standard input when its name is "-".
class Log {
 public:
  explicit Log(const std::string& name)
      : descriptor_(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {}
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  ~Log() {
    if (descriptor_ > STDIN_FILENO) close(descriptor_);
  }
  int descriptor() const { return descriptor_; }

 private:
  const int descriptor_;
};

/// True when both are open on one regular file: reading what this program writes would never end.
bool areOneFile(int descriptor, int other) {
  struct stat a {};
  struct stat b {};
  return fstat(descriptor, &a) == 0 && fstat(other, &b) == 0 && S_ISREG(a.st_mode) && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

/// Binds the messages of all logs and writes what comes of them.
class Matching {
 public:
  /// Ends the process with status 1 when the format file cannot be read.
  explicit Matching(const Options& options)
      : options_(options),
        driver_(options.formats.c_str(), options.unmatched.empty() ? nullptr : options.unmatched.c_str(), 1),
        last_(static_cast<int>(classes().size()) - 1),
        flushEachLine_(options.lineBuffered || isatty(STDOUT_FILENO)),
        output_(STDOUT_FILENO),
        json_(output_),
        statistics_(classes()) {
    if (!options_.fileOrder) {
      driver_.orderFmts();
    } else {
      for (FormatSpec* format : driver_.getFormats()) format->verifySlot();
    }
  }

  /// Returns the exit status.
  int run() {
    if (!options_.unmatched.empty() && !driver_.getUnmatched()) return EXIT_FAILURE;  // the driver has told why
    for (const std::string& name : options_.logs) {
      if (goesOn()) read(name);
    }
    output_.flush();
    // Whoever closes a pipe has seen enough: neither worth a word nor a failure.
    if (output_.error() != 0 && output_.error() != EPIPE) fail("write", "standard output", output_.error());
    if (unmatchedError_ != 0) fail("write", options_.unmatched, unmatchedError_);
    if (options_.stats) statistics_.write(stderr);
    return status_;
  }

 private:
  std::vector<std::string> classes() const {
    std::vector<std::string> names;
    for (const FormatSpec* format : driver_.getFormats()) names.emplace_back(format->getName().view());
    return names;
  }

  bool goesOn() const { return output_.error() == 0 && unmatchedError_ == 0; }

  void fail(const char* failed, const std::string& name, int error) {
    complain(failed, name, error);
    status_ = EXIT_FAILURE;
  }

  void read(const std::string& name) {
    const Log log(name);
    if (log.descriptor() < 0) return fail("open", name, errno);
    if (isWritten(log.descriptor())) {
      std::fprintf(stderr, "%s: %s is written to, so it cannot be read: name another output\n", kProgram, name.c_str());
      status_ = EXIT_FAILURE;
      return;
    }
    quillon::MessageReader messages(log.descriptor(), options_.nulEnded ? '\0' : '\n');
    {
      quillon::Progress progress(log.descriptor());
      while (goesOn() && messages.next()) {
        if (messages.isPiece()) {
          passOnPiece(messages);
        } else {
          bind(messages.text().data());
        }
        progress.show(messages.bytes());
      }
    }
    statistics_.addBytes(messages.bytes());
    if (messages.error() != 0) fail("read", name == "-" ? "standard input" : name, messages.error());
  }

  bool isWritten(int log) const {
    std::FILE* const unmatched = driver_.getUnmatched();
    return areOneFile(log, STDOUT_FILENO) || (unmatched && areOneFile(log, fileno(unmatched)));
  }

  void bind(const char* message) {
    int index = 0;
    FormatSpec* const format = driver_.bind(message, index, options_.eventLog);
    if (!format) {
      statistics_.countUnmatched();
      checkUnmatched();
      return;
    }
    // The driver counts from the end, as suits the order of an adapter.
    const int place = options_.fileOrder ? last_ - index : index;
    statistics_.countBound(static_cast<std::size_t>(place));
    write(*format, place);
  }

  void write(FormatSpec& format, int place) {
    if (options_.output == "json") {
      json_.write(format, place);
    } else {
      output_.put(format.aevent().view());
      output_.put('\n');
    }
    if (flushEachLine_) output_.flush();
  }

  /// A message that is too long to be bound.
  void passOnPiece(const quillon::MessageReader& messages) {
    if (messages.isLastPiece()) statistics_.countUnmatched();
    std::FILE* const unmatched = driver_.getUnmatched();
    if (!unmatched) return;
    std::fwrite(messages.text().data(), 1, messages.text().size(), unmatched);
    if (messages.isLastPiece()) std::fputc('\n', unmatched);
    std::fflush(unmatched);
    checkUnmatched();
  }

  void checkUnmatched() {
    if (driver_.getUnmatched() && std::ferror(driver_.getUnmatched())) unmatchedError_ = errno;
  }

  const Options& options_;
  LogDriver driver_;
  const int last_;  ///< The place of the last block in the format file.
  const bool flushEachLine_;
  quillon::OutputBuffer output_;
  quillon::JsonWriter json_;
  quillon::Statistics statistics_;
  int unmatchedError_ = 0;  ///< The errno of the write that failed.
  int status_ = EXIT_SUCCESS;
};

}  // namespace

/// quillon-match [options] FORMATS [LOG...]: binds messages against a format file and writes their events.
int main(int argc, char* argv[]) {
  quillon::prepareProcess();
  reporting_always = true;
  comments_must_close = true;
  Options options;
  CLI::App app("Binds each message of the logs against a format file and writes a line for each that a block matches.",
               kProgram);
  describe(app, options);
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  if (options.logs.empty()) options.logs.emplace_back("-");
  return Matching(options).run();
}
