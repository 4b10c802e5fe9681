#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "authoring/explain/Explanation.h"
#include "authoring/explain/explanation_text.h"
#include "foundation/visible.h"
#include "program/Interruption.h"
#include "program/options.h"
#include "program/program.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "tools/LogInput.h"
#include "tools/formats.h"

namespace {

constexpr const char* kProgram = "quillon-explain";
constexpr int kUnbound = 1;
constexpr int kTrouble = 2;

struct Options {
  std::string formats;
  std::optional<std::string> line;
  std::string block;
  std::string output = "text";
  std::size_t nearest = 3;
  bool tried = false;
  bool fileOrder = false;
  bool eventLog = false;
  bool nulEnded = false;
};

void describe(CLI::App& app, Options& options) {
  app.add_option("FORMATS", options.formats, "The format file")->required()->type_name("");
  app.add_option("LINE", options.line, "The message; - is lines of standard input, also when there is none")
      ->type_name("");
  app.add_option("--block", options.block, "Say of this block why it does not bind the message")
      ->type_name("NAME")
      ->take_last();
  app.add_option("--output", options.output, "How explanations are written: text (the default) or json")
      ->check(CLI::IsMember({"text", "json"}).description(""))
      ->type_name("FORM")
      ->take_last();
  app.add_option("--nearest", options.nearest, "Show so many near blocks; the default is 3")
      ->check(CLI::Range(0, 1000).description(""))
      ->type_name("N")
      ->take_last();
  app.add_flag("--tried", options.tried, "Show all blocks that were tried, not only those that came furthest");
  app.add_flag("--file-order", options.fileOrder, "Try the blocks in the order of the file; the default is last first");
  app.add_flag("--event-log", options.eventLog, "The messages are from an event log: a newline is white space");
  app.add_flag("-z,--null", options.nulEnded, "Messages of standard input are ended by NUL instead of newline");
}

quillon::Drawing::Style drawingStyle() {
  quillon::Drawing::Style style;
  if (!isatty(STDOUT_FILENO)) return style;
  const char* const noColour = std::getenv("NO_COLOR");
  style.colour = !noColour || !*noColour;
  winsize size{};
  constexpr std::size_t kIndent = 2;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > kIndent) style.width = size.ws_col - kIndent;
  return style;
}

/// Explains one message after the other and remembers whether all were bound.
class Messages {
 public:
  Messages(const Options& options, const LogDriver& driver)
      : options_(options), explainer_(driver), place_(explainer_.find(options.block)) {
    style_.drawing = drawingStyle();
    if (options.tried) style_.mostTried = SIZE_MAX;
  }

  bool knowsBlock() const { return options_.block.empty() || place_; }
  bool allBound() const { return allBound_; }

  void explain(std::string_view message) {
    quillon::Explainer::Options options;
    options.fromEventLog = options_.eventLog;
    options.nearest = options_.nearest;
    message = decoder_.decode(message);
    const quillon::Explanation explanation = place_ ? only(*place_, message) : explainer_.explain(message, options);
    const bool isBound = place_ ? explanation.nearest[0].binds : explanation.bound.has_value();
    allBound_ = allBound_ && isBound;
    if (options_.output == "json") {
      write(quillon::explanationJson(explanation) + "\n");
    } else {
      if (count_++ > 0) write("\n");
      write(place_ ? quillon::nearBlockText(explanation.nearest[0], explanation.message, style_.drawing)
                   : quillon::explanationText(explanation, style_));
    }
  }

 private:
  quillon::Explanation only(std::uint32_t place, std::string_view message) {
    quillon::Explanation explanation;
    explanation.message = message.substr(0, message.find('\0'));
    explanation.nearest.push_back(explainer_.explainBlock(place, message, options_.eventLog));
    return explanation;
  }

  static void write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

  const Options& options_;
  quillon::Explainer explainer_;
  const std::optional<std::uint32_t> place_;  ///< Of the block that is asked for.
  quillon::MessageDecoder decoder_;
  quillon::ExplanationStyle style_;
  std::size_t count_ = 0;
  bool allBound_ = true;
};

/// False when standard input could not be read.
bool explainInput(Messages& messages, const Options& options) {
  const quillon::Interruption interruption;
  const char delimiter = options.nulEnded ? '\0' : '\n';
  const auto isWritten = [](int log) { return quillon::areOneFile(log, STDOUT_FILENO); };
  quillon::LogInput input({kProgram, delimiter, quillon::MessageReader::kLongest, isWritten}, {"-"});
  quillon::MessageBlock block;
  while (!std::ferror(stdout) && input.fill(block)) {
    if (block.kind() != quillon::MessageBlock::Kind::kMessages) continue;
    quillon::MessageCursor cursor(block, delimiter);
    while (cursor.next() && !std::ferror(stdout)) messages.explain(cursor.message());
    std::fflush(stdout);
  }
  quillon::Interruption::endIfAsked();
  return !input.failed();
}

}  // namespace

/// quillon-explain [options] FORMATS [LINE | -]: says which block binds a message and why others do not.
int main(int argc, char* argv[]) {
  quillon::prepareTool();
  Options options;
  CLI::App app("Says which block of a format file binds a message, and why the nearest do not when none does.",
               kProgram);
  describe(app, options);
  if (const std::optional<int> status = quillon::parseOptions(app, argc, argv)) return *status;
  LogDriver driver;
  if (!quillon::readFormats(kProgram, options.formats, options.fileOrder, driver)) return kTrouble;
  Messages messages(options, driver);
  if (!messages.knowsBlock()) {
    std::fprintf(stderr, "%s: there is no block %s in %s\n", kProgram, quillon::visible(options.block).c_str(),
                 quillon::visible(options.formats).c_str());
    return kTrouble;
  }
  bool succeeded = true;
  if (options.line && *options.line != "-") {
    messages.explain(*options.line);
  } else {
    succeeded = explainInput(messages, options);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    quillon::outputFailed(kProgram);
    return kTrouble;
  }
  if (!succeeded) return kTrouble;
  return messages.allBound() ? EXIT_SUCCESS : kUnbound;
}
