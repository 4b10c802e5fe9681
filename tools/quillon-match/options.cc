#include "tools/quillon-match/options.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

namespace quillon {

void describe(CLI::App& app, MatchOptions& options) {
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
  app.add_option("--max-message", options.maxMessage, "Do not bind messages of more than so many bytes")
      ->check(CLI::Range(std::size_t{1}, MessageReader::kLongest).description(""))
      ->type_name("BYTES")
      ->take_last();
  app.add_option("--jobs", options.jobs, "Bind in so many threads; the default is one for each core")
      ->check(CLI::Range(1, 1024).description(""))
      ->type_name("N")
      ->take_last();
  app.add_option("--engine", options.engine, "What binds: fast (the default), or plain, the simple way to the same end")
      ->check(CLI::IsMember({"fast", "plain"}).description(""))
      ->type_name("NAME")
      ->take_last();
  app.add_flag("--stats", options.stats, "End with a summary on standard error");
  app.add_flag("--coverage", options.coverage, "End with what the log has made of each block, on standard error");
  app.add_flag("--line-buffered", options.lineBuffered, "Write each line at once, as to a terminal");
}

}  // namespace quillon
