#include "src/adapters/logfile/source/FileSource.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/source/file_world.h"
#include "tests/source/source_lines.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// Runs a script, one step a word list: what happens to files, and what the source does. "$" in a text is a newline,
/// "~" a blank,
/// "%" 64 bytes: what has more in common than that is believed to be a copy.
class FileSourceScript : public testing::Test {
 protected:
  void step(FileWorld& world, const std::string& line) {
    std::istringstream words(line);
    std::string verb, one, two;
    words >> verb >> one >> two;
    for (std::string* text : {&one, &two}) {
      std::replace(text->begin(), text->end(), '$', '\n');
      std::replace(text->begin(), text->end(), '~', ' ');
      replaceAll(*text, "%", kLong);
    }
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
    } else if (verb == "as") {  // when the other was written
      fs::last_write_time(world.at(one), fs::last_write_time(world.at(two)));
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
    for (const auto& [path, text, stream] : world.delivered) seen.append(path).append(":").append(text).append(" ");
    for (const auto& gap : world.gaps) {
      seen +=
          "gap(" + gap.path + ',' + std::to_string(gap.from) + '-' + std::to_string(gap.to) + ',' + gap.cause + ") ";
    }
    if (!seen.empty()) seen.pop_back();
    replaceAll(seen, kLong, "%");
    return seen;
  }

 private:
  static void replaceAll(std::string& text, const std::string& what, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
      text.replace(at, what.size(), by);
  }

  const std::string kLong = std::string(64, '=');
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
      {"add a 1%$; start; look; add a 2$; copy a a.1; cut a 0; add a 3$; look", "a:1% a:2 a:3"},
      {"add a 1%$; start; look; stop; add a 2$; copy a a.1; cut a 0; add a 33$3$; start; look", "a:1% a:2 a:33 a:3"},
      {"add a 1$; start; look; add a 2$; copy a a.1; cut a 0; add a 3$; look",
       "a:1 a:2 a:3 gap(a,2-2,overwritten; what may be a copy is read)"},
      {"add a 1%$; start; look; stop; add a 2$; copy a a.1; delete a; add a 3$; start; look",
       "a:1% a:2 a:3 gap(a,66-66,deleted; a copy need not have all of it)"},
      // Twice between two looks, also while it was stopped.
      {"add a 1$; start; look; add a 2$; move a a.2; add a 3$; move a a.1; add a 4$; look", "a:1 a:2 a:3 a:4"},
      {"add a 1$; start; look; stop; add a 2$; move a a.2; add a 3$; move a a.1; add a 4$; start; look",
       "a:1 a:2 a:3 a:4"},
      {"add a 1%$; start; look; copy a a.2; cut a 0; add a 3$; copy a a.1; cut a 0; add a 4$; look", "a:1% a:3 a:4"},
      // Copied, cut, written again, and then renamed or deleted: what was written last is there.
      {"add a 1%$; start; look; copy a a.2; cut a 0; add a 2$; move a a.1; add a 3$; look; delete a.1; look",
       "a:1% a:2 a:3"},
      {"add a 1%$; start; look; copy a a.1; cut a 0; add a 2$; delete a; add a 3$; look", "a:1% a:2 a:3"},
      // It came and was rotated between two looks.
      {"start; look; add a 1$; move a a.1; look", "a:1"},
      {"start; look; add a 1$; move a a.2; add a 2$; move a a.1; add a 3$; look; add a 4$; look", "a:1 a:2 a:3 a:4"},
      {"start; look; add a 1%$; copy a a.1; look; cut a 0; add a 2$; look", "a:1% a:2"},
      // Within one tick of the clock, numbered upwards or downwards.
      {"add a 1$; start; look; move a a.8; add a 2$; move a a.9; add a 3$; as a a.9; move a a.10; add a 4$; look",
       "a:1 a:2 a:3 a:4"},
      {"add a 1$; start; look; move a a.3; add a 2$; move a a.2; add a 3$; as a a.2; move a a.1; add a 4$; look",
       "a:1 a:2 a:3 a:4"},
      // Not taken for a copy of the one before.
      {"add a 1$2$; start; look; move a a.1; add a 1$; move a a.2; look", "a:1 a:2 a:1"},
      {"add c 1$2$; start; look; move c c.1; add c 1$; move c c.2; look", "c:1 c:2 c.2:1"},
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
      {"add c 1%$; start; look; copy c c.1; look; add c 2$; look; copy c c.1; cut c 0; look; add c 3$; look",
       "c:1% c:2 c:3"},
      {"add c 1%$; start; look; add c 2$; copy c c.1; look; cut c 0; add c 3$; look", "c:1% c:2 c:3"},
      {"start; look; add c 1%$; look; add c 2$; look; add c 3$; look; copy c c.1; cut c.1 68; cut c 0; add c new$; "
       "look",
       "c:1% c:2 c:3 c:new gap(c,70-70,overwritten)"},
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

// The next look is later than a message waits, but all its lines were there before.
TEST_F(FileSourceScript, JoinsWhatCameInTime) {
  const char* const scripts[] = {
      "add a E%$; start; look; add a ~at$; look; look",
      "add a E%$; start; look; move a a.1; add a ~at$; look; look",
      "add a E%$; start; look; move a a.1; add a.1 ~at$; look; look",
      "add a E%$; start; look; copy a a.1; cut a 0; add a ~at$N$; look",
  };
  for (const char* const script : scripts) {
    for (const bool watch : {true, false}) {
      FileOptions options{.include = {"a"}, .exclude = {}, .pollInterval = std::chrono::hours(1), .joining = {}};
      options.watch = watch;
      options.joining.indented = true;
      EXPECT_EQ("a:E%\n at", run(script, options)) << script << (watch ? "" : " (polling)");
    }
  }
}

// The original was read on while it was copied, and then cut.
TEST_F(FileSourceScript, KnowsACopyThatIsShorter) {
  std::string script = "start; look";
  std::string expected;
  for (int i = 10; i < 50; ++i) {
    const std::string line = std::to_string(i) + std::string(97, 'x');
    script += "; add a " + line + "$; look";
    expected += "a:" + line + ' ';
  }
  EXPECT_EQ(expected + "a:new gap(a,4000-4000,overwritten)",
            run(script + "; copy a a.1; cut a.1 2000; cut a 0; add a new$; look",
                {.include = {"a"}, .exclude = {}, .joining = {}}));
}

// Names move between any two calls, and most files are closed.
TEST(FileSource, KeepsTheOrderOfManyRotations) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    const bool countsUp = seed % 2 == 0;
    const ScratchDirectory directory(inMemory());
    const std::string path = directory.path() / "a.log";
    FileOptions options{.include = {path}, .exclude = {}, .pollInterval = std::chrono::milliseconds(20), .joining = {}};
    options.mostOpen = 4;
    CollectedNotices notices;
    FileSource source(options, {}, notices);
    Message message;
    std::minstd_rand random(seed);
    std::size_t next = 0;
    TimePoint now;
    const auto read = [&](std::size_t calls) {
      for (; calls > 0; --calls, now += std::chrono::milliseconds(1)) {
        if (!source.next(now, message)) continue;
        EXPECT_EQ(std::to_string(next++), message.text.substr(0, message.text.find('.'))) << "seed " << seed;
        source.acknowledge(message.position);
      }
    };
    const auto rename = [&](int from, int to) {
      fs::rename(from == 0 ? path : path + "." + std::to_string(from), path + "." + std::to_string(to));
      if (random() % 16 == 0) read(random() % 8);
    };
    constexpr std::size_t kLines = 90;
    for (int line = 0, files = 0; line < static_cast<int>(kLines); ++line) {
      std::ofstream(path, std::ios::app) << line << std::string(80, '.') << '\n';
      if (line == 0) read(2);  // the first one tells which way the numbers go, when all the others have the same times
      if (line % 3 != 0) continue;
      for (int n = countsUp ? 0 : files; n >= 1; --n) rename(n, n + 1);
      ++files;
      rename(0, countsUp ? files : 1);
    }
    read(1000);
    EXPECT_EQ(kLines, next) << "seed " << seed;
    EXPECT_EQ(std::vector<std::string>(), notices.texts) << "seed " << seed;
  }
}

TEST(FileSource, GivesOthersTheirTurn) {
  const ScratchDirectory directory;
  FileWorld world(directory.path(), {.include = {"*"}, .exclude = {}, .longest = 10, .joining = {}});
  world.append("endless", "");
  fs::resize_file(world.at("endless"), std::uintmax_t{64} << 20);  // no newline in it
  world.append("other", "1\n");
  world.start();
  const TimePoint now = TimePoint() + std::chrono::hours(1);
  int calls = 0;
  do {
    world.read();
    ++calls;
  } while (world.source_->deadline() <= now && calls < 1000);
  EXPECT_LE(32, calls);
  EXPECT_GT(200, calls);
  ASSERT_EQ(1U, world.delivered.size());
  EXPECT_EQ("1", world.delivered[0].text);
  EXPECT_EQ(64U << 20, world.source_->counters().lag);
  world.drain();
  ASSERT_EQ(2U, world.delivered.size());
  EXPECT_EQ(11U, world.delivered[1].text.size());  // with the mark of a cut one
}

TEST(FileSource, ReadsLongLines) {
  const std::string line(3 << 20, 'x');
  for (const std::size_t longest : {std::size_t{10}, std::size_t{2} << 20, std::size_t{4} << 20}) {
    const ScratchDirectory directory;
    FileWorld world(directory.path(), {.include = {"*"}, .exclude = {}, .longest = longest, .joining = {}});
    world.append("a", "first\n" + line);
    world.start();
    for (int i = 0; i < 50; ++i) world.read();
    world.append("a", "\nnext\n" + line);
    world.wait(std::chrono::seconds(1));
    for (int i = 0; i < 50; ++i) world.read();
    world.drain();
    const std::string expected = line.substr(0, longest) + (longest < line.size() ? "+" : "");
    ASSERT_EQ(4U, world.delivered.size()) << longest;
    EXPECT_TRUE(expected == world.delivered[1].text) << longest;
    EXPECT_EQ("next", world.delivered[2].text);
    EXPECT_TRUE(expected == world.delivered[3].text) << longest;
    EXPECT_EQ(0U, world.gaps.size());
  }
}

TEST(FileSource, TellsWhatWaits) {
  const ScratchDirectory directory;
  FileWorld world(directory.path(), {.include = {"a"}, .exclude = {}, .joining = {}});
  world.append("a", "1\n22\n");
  world.start();
  world.read(1);
  EXPECT_EQ(3U, world.source_->counters().lag);
  const TimePoint begin = TimePoint() + std::chrono::hours(1);
  EXPECT_TRUE(world.source_->mayFollow({.file = 1}, begin));
  world.read();
  EXPECT_FALSE(world.source_->mayFollow({.file = 1}, begin));
  EXPECT_TRUE(world.source_->mayFollow({.file = 1}, begin + Duration(1)));  // has not looked since
  EXPECT_EQ(0U, world.source_->counters().lag);
  EXPECT_EQ(1U, world.source_->counters().watching);
}

TEST(FileSource, BeginsAtTheEndOnlyOnce) {
  const ScratchDirectory directory;
  writeFile(directory.path() / "a", "1\n");
  for (const bool damaged : {false, true}) {
    CollectedNotices notices;
    FileSource source({.include = {directory.path() / "a"}, .exclude = {}, .fromEnd = true, .joining = {}}, {}, notices,
                      damaged);
    TimePoint now;
    EXPECT_EQ(damaged ? "1|" : "", linesOf(source, now, 1, Duration(1), 1));
  }
}

}  // namespace
}  // namespace quillon
