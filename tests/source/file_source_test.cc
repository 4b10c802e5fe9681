#include "src/adapters/logfile/source/FileSource.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/source/file_world.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// Runs a script, one step a word list: what happens to files, and what the source does. "$" in a text is a newline.
class FileSourceScript : public testing::Test {
 protected:
  void step(FileWorld& world, const std::string& line) {
    std::istringstream words(line);
    std::string verb, one, two;
    words >> verb >> one >> two;
    for (std::string* text : {&one, &two}) std::replace(text->begin(), text->end(), '$', '\n');
    if (verb == "add") {
      world.append(one, two);
    } else if (verb == "move") {
      fs::rename(world.at(one), world.at(two));
    } else if (verb == "copy") {
      fs::copy_file(world.at(one), world.at(two), fs::copy_options::overwrite_existing);
      world.stamp(two);
    } else if (verb == "cut") {
      fs::resize_file(world.at(one), std::stoul(two));
      world.stamp(one);
    } else if (verb == "delete") {
      fs::remove(world.at(one));
    } else if (verb == "link") {
      fs::remove(world.at(one));
      fs::create_symlink(world.at(two), world.at(one));
    } else if (verb == "start") {
      world.start();
    } else if (verb == "stop") {
      world.stop();
    } else if (verb == "kill") {
      world.kill();
    } else if (verb == "keep") {
      world.keep();
    } else if (verb == "drain") {
      world.drain();
    } else {
      ASSERT_EQ("look", verb);  // with the most messages to take, if not all
      world.wait(std::chrono::seconds(1));
      world.read(one.empty() ? SIZE_MAX : std::stoul(one));
    }
  }

  /// "a:1 a:2 gap(a,4-8,overwritten)": what was delivered, then what was told to be missing.
  std::string run(const std::string& script, FileOptions options) {
    const ScratchDirectory directory;
    FileWorld world(directory.path(), std::move(options));
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line, ';');) step(world, line);
    std::string seen;
    for (const auto& [path, text, stream] : world.delivered) seen += path + ':' + text + ' ';
    for (const auto& gap : world.gaps) {
      seen +=
          "gap(" + gap.path + ',' + std::to_string(gap.from) + '-' + std::to_string(gap.to) + ',' + gap.cause + ") ";
    }
    if (!seen.empty()) seen.pop_back();
    return seen;
  }
};

TEST_F(FileSourceScript, KeepsFilesApart) {
  struct Case {
    const char *script, *expected;
  };
  const Case cases[] = {
      {"add a 1$2$; start; look; add a 3$; look", "a:1 a:2 a:3"},
      {"start; look; add a 1; look; add a 2; look; add a 3$; look", "a:123"},  // a line waits for its end
      {"add a 1; start; look; drain", "a:1"},
      // Rotation: the rest of the old file comes first, then the new one.
      {"add a 1$; start; look; add a 2$; move a a.1; add a 3$; look", "a:1 a:2 a:3"},
      {"add a 1$2; start; look; move a a.1; add a 3$; look; look; look; look; look; look; look", "a:1 a:2 a:3"},
      {"add a 1$; start; look; stop; add a 2$; move a a.1; add a 3$; start; look", "a:1 a:2 a:3"},
      {"add a 1$; start; look; add a 2$; copy a a.1; cut a 0; add a 3$; look", "a:1 a:2 a:3"},
      {"add a 1$; start; look; stop; add a 2$; copy a a.1; cut a 0; add a 33$3$; start; look", "a:1 a:2 a:33 a:3"},
      // Twice between two looks, also while it was stopped.
      {"add a 1$; start; look; add a 2$; move a a.2; add a 3$; move a a.1; add a 4$; look", "a:1 a:2 a:3 a:4"},
      {"add a 1$; start; look; stop; add a 2$; move a a.2; add a 3$; move a a.1; add a 4$; start; look",
       "a:1 a:2 a:3 a:4"},
      {"add a 1$; start; look; copy a a.2; cut a 0; add a 3$; copy a a.1; cut a 0; add a 4$; look", "a:1 a:3 a:4"},
      // What was written over is told. A writer that had the old file open is still heard.
      {"add a 1$22$; start; look; cut a 0; add a 3$; look", "a:1 a:22 a:3 gap(a,5-5,overwritten)"},
      {"add a 1$22$; start; look; cut a 0; add a 3$44$; look", "a:1 a:22 a:3 a:44 gap(a,5-5,overwritten)"},
      {"add a 1$22$; start; look; cut a 0; add a 33$44444$; look", "a:1 a:22 a:33 a:44444 gap(a,5-5,overwritten)"},
      {"add a 1$; start; look; move a a.1; add a.1 2$; add a 3$; look; add a.1 4$; look", "a:1 a:2 a:3 a:4"},
      {"add a 1$; start; look; stop; delete a; add b 2$; start; look", "a:1 b:2 gap(a,2-2,deleted)"},
      {"add a 1$; start; look; add a 2$; delete a; add a 3$; look", "a:1 a:2 a:3"},  // it is open
      {"add a 1$; start; look; add a 2$3; delete a; stop; start; look", "a:1 a:2 a:3"},
      // Names and links.
      {"add a 1$; start; look; move a b; add b 2$; look; add a 3$; look", "a:1 a:2 a:3"},
      {"add a 1$; start; look; move a x; add x 2$; look; move x a; add a 3$; look", "a:1 a:2 a:3"},
      {"add x 1$; add y 2$; link a x; start; look; add x 3$; link a y; look; link a x; add x 4$; look",
       "a:1 a:3 a:2 a:4"},
      // Files that look alike: a beginning in common, a copy that is to be followed too, a packed one.
      {"add a h$; start; look; add b h$; look; add b 1$; add a 2$; look", "a:h b:h a:2 b:1"},
      {"add c 1$; start; look; copy c c.1; look; add c 2$; look; copy c c.1; cut c 0; look; add c 3$; look",
       "c:1 c:2 c:3"},
      {"add c 1$; start; look; add c 2$; copy c c.1; look; cut c 0; add c 3$; look", "c:1 c:2 c:3"},
      {"add c \x1f\x8b$; start; look", ""},
      // Killed: what was kept last holds.
      {"add a 1$; start; look; keep; add a 2$; look; kill; add a 3$; start; look", "a:1 a:2 a:2 a:3"},
      {"add a 1$; start; look; kill; start; look", "a:1 a:1"},
  };
  for (const Case& c : cases) {
    for (const bool watch : {true, false}) {
      FileOptions options{.include = {"a", "b", "c*"}, .exclude = {}, .joining = {}};
      options.watch = watch;
      EXPECT_EQ(c.expected, run(c.script, options)) << c.script << (watch ? "" : " (polling)");
    }
  }
}

}  // namespace
}  // namespace quillon
