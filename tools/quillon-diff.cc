#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "authoring/compare/ChangeSummary.h"
#include "authoring/compare/SetComparison.h"
#include "foundation/descriptor.h"
#include "foundation/ordered_blocks.h"
#include "program/Interruption.h"
#include "program/options.h"
#include "program/program.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "tools/LogInput.h"
#include "tools/formats.h"

namespace {

constexpr const char* kProgram = "quillon-diff";
constexpr int kDifferent = 1;
constexpr int kTrouble = 2;

struct Options {
  std::string before;
  std::string after;
  std::vector<std::string> logs;
  std::string output = "text";
  bool all = false;
  bool fileOrder = false;
  bool eventLog = false;
  bool nulEnded = false;
  std::size_t jobs = 0;

  char delimiter() const { return nulEnded ? '\0' : '\n'; }
};

void describe(CLI::App& app, Options& options) {
  app.add_option("OLD", options.before, "The format file as it was")->required()->type_name("");
  app.add_option("NEW", options.after, "The format file as it is to be")->required()->type_name("");
  app.add_option("LOG", options.logs, "Logs to read, one after the other; - is standard input")
      ->required()
      ->type_name("");
  app.add_flag("--all", options.all, "Show every message that changes, before the summary");
  app.add_option("--output", options.output, "How changes are written: text (the default) or json")
      ->check(CLI::IsMember({"text", "json"}).description(""))
      ->type_name("FORM")
      ->take_last();
  app.add_flag("--file-order", options.fileOrder, "Try the blocks in the order of the file; the default is last first");
  app.add_flag("--event-log", options.eventLog, "The messages are from an event log: a newline is white space");
  app.add_flag("-z,--null", options.nulEnded, "Messages are ended by NUL instead of newline");
  app.add_option("--jobs", options.jobs, "Compare in so many threads; the default is one for each core")
      ->check(CLI::Range(1, 1024).description(""))
      ->type_name("N")
      ->take_last();
}

/// What the workers of one run have in common.
struct DiffRun {
  const Options& options;
  quillon::LogInput& input;
  const quillon::ComparedSet& before;
  const quillon::ComparedSet& after;
  quillon::ChangeSummary summary;
  std::mutex ending;  ///< While a worker that goes adds what it has bound.
};

class DiffWorker : public quillon::BlockWorker {
 public:
  explicit DiffWorker(DiffRun& run) : run_(run), comparer_(run.before, run.after) {}
  ~DiffWorker() override {
    const std::lock_guard lock(run_.ending);
    run_.summary.addBound(run_.before, run_.after, comparer_);
  }

  bool take() override { return run_.input.fill(block_); }

  void work(Turn& /*turn*/) override {
    if (block_.kind() != quillon::MessageBlock::Kind::kMessages) return;
    quillon::MessageCursor messages(block_, run_.options.delimiter());
    while (messages.next()) compare(decoder_.decode(messages.message()));
  }

  void give() override {
    run_.summary.add(std::move(changes_));
    std::fwrite(text_.data(), 1, text_.size(), stdout);
    text_.clear();
    if (std::ferror(stdout)) run_.input.stop();
  }

 private:
  void compare(std::string_view message) {
    const quillon::Difference difference = comparer_.compare(message, run_.options.eventLog);
    changes_.add(difference, message, comparer_);
    if (!run_.options.all || difference.change == quillon::Change::kNone) return;
    const quillon::ChangedMessage changed = {difference, std::string(message), comparer_.slotsBefore(),
                                             comparer_.slotsAfter()};
    text_ += run_.options.output == "json" ? changeJson(changed, run_.before, run_.after) + "\n"
                                           : changeText(changed, run_.before, run_.after) + "\n";
  }

  DiffRun& run_;
  quillon::SetComparer comparer_;
  quillon::MessageDecoder decoder_;
  quillon::MessageBlock block_;
  quillon::ChangeSummary changes_;  ///< Of the block at hand.
  std::string text_;
};

}  // namespace

/// quillon-diff [options] OLD NEW LOG...: says what a change of a format file does to the messages of logs.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  Options options;
  CLI::App app("Says which messages of logs become other events when one format file takes the place of another.",
               kProgram);
  describe(app, options);
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;

  LogDriver before;
  LogDriver after;
  if (!quillon::readFormats(kProgram, options.before, options.fileOrder, before) ||
      !quillon::readFormats(kProgram, options.after, options.fileOrder, after)) {
    return kTrouble;
  }
  const quillon::ComparedSet old(before);
  const quillon::ComparedSet made(after);
  const quillon::Interruption interruption;
  const auto isWritten = [](int log) { return quillon::areOneFile(log, STDOUT_FILENO); };
  quillon::LogInput input({kProgram, options.delimiter(), quillon::MessageReader::kLongest, isWritten}, options.logs);
  DiffRun run{.options = options, .input = input, .before = old, .after = made, .summary = {}, .ending = {}};
  const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
  quillon::runInOrder(options.jobs > 0 ? options.jobs : cores, [&run] { return std::make_unique<DiffWorker>(run); });

  const std::string summary =
      options.output == "json" ? run.summary.json(old, made) + "\n" : run.summary.text(old, made);
  std::fwrite(summary.data(), 1, summary.size(), stdout);
  quillon::Interruption::endIfAsked();
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    quillon::outputFailed(kProgram);
    return kTrouble;
  }
  if (input.failed()) return kTrouble;
  return run.summary.hasChanges() ? kDifferent : EXIT_SUCCESS;
}
