#include "tools/quillon-match/Matching.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <thread>

#include "authoring/compare/Coverage.h"
#include "foundation/visible.h"
#include "program/Interruption.h"
#include "program/program.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/FormatSet.h"
#include "tools/quillon-match/MatchWorker.h"

namespace quillon {
namespace {

constexpr std::size_t kMostShapes = 100;  ///< Of unmatched messages that are shown.

std::vector<std::string> classes(const LogDriver& driver) {
  std::vector<std::string> names;
  for (const FormatSpec* format : driver.getFormats()) names.emplace_back(format->getName().view());
  return names;
}

/// Puts the formats into the order in which they are tried, and reports which variables have no slot, or several.
void arrange(LogDriver& driver, bool fileOrder) {
  if (!fileOrder) return driver.orderFmts();
  for (FormatSpec* format : driver.getFormats()) format->verifySlot();
}

/// Gives each thread what binds its messages.
std::function<std::unique_ptr<Binder>()> binders(const MatchOptions& options, LogDriver& driver) {
  const bool eventLog = options.eventLog;
  if (options.engine == "plain") return [&driver, eventLog] { return makePlainBinder(driver, eventLog); };
  if (options.coverage)
    return [formats = FormatSet::make(driver), eventLog] { return makeMeasuringBinder(formats, eventLog); };
  return [formats = FormatSet::make(driver), eventLog] { return makeFastBinder(formats, eventLog); };
}

/// The file for messages that nothing binds; false when it cannot be used. Not asked for, it is none.
bool openUnmatched(const MatchOptions& options, Descriptor& file) {
  if (options.unmatched.empty()) return true;
  file = Descriptor(open(options.unmatched.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
  if (!file) {
    complain(kMatchProgram, "open", options.unmatched, errno);
  } else if (areOneFile(file.get(), options.formats.c_str())) {
    complainOfWritten(kMatchProgram, options.formats);
  } else if (areOneFile(file.get(), STDOUT_FILENO)) {
    std::fprintf(stderr, "%s: %s is standard output, too: name another file\n", kMatchProgram,
                 visible(options.unmatched).c_str());
  } else {
    return true;
  }
  return false;
}

std::size_t threads(const MatchOptions& options) {
  if (options.engine == "plain" || options.lineBuffered || isatty(STDOUT_FILENO)) return 1;
  return options.jobs > 0 ? options.jobs : std::max(1U, std::thread::hardware_concurrency());
}

/// Says what could not be written. Whoever closes a pipe has seen enough: neither worth a word nor a failure.
bool allWritten(const Output& output, const std::string& name) {
  if (output.error() == 0 || output.error() == EPIPE) return true;
  complain(kMatchProgram, "write", name, output.error());
  return false;
}

}  // namespace

int match(const MatchOptions& options) {
  if (!canRead(kMatchProgram, options.formats.c_str())) return EXIT_FAILURE;
  LogDriver driver(options.formats.c_str(), nullptr, 1);
  Statistics statistics(classes(driver));
  arrange(driver, options.fileOrder);
  Descriptor unmatchedFile;
  if (!openUnmatched(options, unmatchedFile)) return EXIT_FAILURE;

  const Interruption interruption;
  const auto isWritten = [&](int log) {
    return areOneFile(log, STDOUT_FILENO) || areOneFile(log, unmatchedFile.get());
  };
  LogInput input({kMatchProgram, options.delimiter(), options.maxMessage, isWritten}, options.logs);
  Output events(STDOUT_FILENO);
  Output unmatched(unmatchedFile.get());
  std::optional<Coverage> coverage;
  if (options.coverage) coverage.emplace(driver);
  MatchRun run{.input = input,
               .events = events,
               .unmatched = unmatchedFile ? &unmatched : nullptr,
               .statistics = statistics,
               .coverage = coverage ? &*coverage : nullptr,
               .forms = nullptr,
               .makeBinder = binders(options, driver),
               .delimiter = options.delimiter(),
               .writesEachLine = options.lineBuffered || isatty(STDOUT_FILENO),
               .showsControls = options.output == "event" && isatty(STDOUT_FILENO),
               .survivesNoMemory = options.engine == "fast"};
  // Behind the engine, whose making needs room that is free by now.
  run.forms = EventForms::make(driver, options.output == "json" ? EventForm::kJson : EventForm::kText);
  std::set_new_handler(nullptr);  // what is bound by then is written first
  runInOrder(threads(options), [&run] { return std::make_unique<MatchWorker>(run); });

  statistics.addBytes(input.bytes());
  bool succeeded = !input.failed() && !run.exhausted;
  if (run.exhausted) std::fprintf(stderr, "%s: out of memory\n", kMatchProgram);
  succeeded = allWritten(events, "standard output") && succeeded;
  succeeded = allWritten(unmatched, options.unmatched) && succeeded;
  if (options.stats) statistics.write(stderr);
  if (coverage) std::fputs(coverage->text(kMostShapes).c_str(), stderr);
  Interruption::endIfAsked();
  return succeeded ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace quillon
