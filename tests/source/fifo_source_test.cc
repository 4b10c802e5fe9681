#include "src/adapters/logfile/source/FifoSource.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "src/adapters/logfile/source/StreamSource.h"
#include "tests/source/source_lines.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

class Fifo : public testing::Test {
 protected:
  std::unique_ptr<FifoSource> open(std::size_t longest = 100, bool indented = false) {
    FifoOptions options{.path = path_, .mode = 0620, .longest = longest, .joining = {}};
    options.joining.indented = indented;
    return FifoSource::open(options, notices_, error_);
  }
  void write(const std::string& text) const {
    const Descriptor fifo(::open(path_.c_str(), O_WRONLY));
    EXPECT_EQ(0, writeAll(fifo.get(), text));
  }
  /// Runs `work` in another process, which ends with what it returns.
  static pid_t inChild(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    return child;
  }
  static int endOf(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  ScratchDirectory directory_;
  const std::string path_ = directory_.path() / "fifo";
  CollectedNotices notices_;
  std::string error_;
  TimePoint now_;
};

TEST_F(Fifo, ReadsLinesOfWritersThatComeAndGo) {
  umask(077);
  auto source = open(5);
  ASSERT_TRUE(source) << error_;
  struct stat status;
  ASSERT_EQ(0, stat(path_.c_str(), &status));
  EXPECT_EQ(0620U, status.st_mode & 07777U);
  EXPECT_EQ("", linesOf(*source, now_, 1, Duration(1), 1));
  write("one\ntw");
  EXPECT_EQ("one|", linesOf(*source, now_, 2, Duration(1), 2));
  write("o\nabcdef\n");
  EXPECT_EQ("two|abcde+|", linesOf(*source, now_, 2));
  write("3\n4");
  source->finish(Finish::kStop);
  EXPECT_EQ("3|4|", linesOf(*source, now_, 9));
  EXPECT_TRUE(source->ended());
  EXPECT_EQ(1U, source->counters().cut);
  EXPECT_EQ(18U, source->counters().bytes);
}

TEST_F(Fifo, TurnsToTheOneThatReplacedIt) {
  auto source = open();
  ASSERT_TRUE(source) << error_;
  write("old\n");
  const Descriptor late(::open(path_.c_str(), O_WRONLY));
  unlink(path_.c_str());
  EXPECT_EQ(0, writeAll(late.get(), "late\n"));
  now_ += std::chrono::seconds(5);
  EXPECT_EQ("old|late|", linesOf(*source, now_, 2));
  EXPECT_EQ("", linesOf(*source, now_, 1, std::chrono::seconds(1), 5));
  write("new\n");  // it was made again
  EXPECT_EQ("new|", linesOf(*source, now_, 1));
  EXPECT_EQ(1U, notices_.texts.size());
}

TEST_F(Fifo, JoinsWhatCameInTime) {
  auto source = open(100, true);
  ASSERT_TRUE(source) << error_;
  write("E boom\n");
  EXPECT_EQ("", linesOf(*source, now_, 1, Duration(1), 1));
  write(" at x\n");
  now_ += std::chrono::minutes(1);  // nobody read in the meantime
  EXPECT_EQ("E boom\n at x|", linesOf(*source, now_, 1));
}

TEST_F(Fifo, RefusesWhatIsNone) {
  writeFile(path_, "text");
  EXPECT_FALSE(open());
  EXPECT_EQ(path_ + ": is not a FIFO", error_);
  EXPECT_EQ("text", readFile(path_));
  EXPECT_FALSE(std::filesystem::exists(path_ + ".lock"));
}

TEST_F(Fifo, HasOneReader) {
  writeFile(path_ + ".lock", std::to_string(getppid()) + "\n");  // left behind, and the number is in use again
  auto source = open();
  ASSERT_TRUE(source) << error_;
  EXPECT_EQ(std::to_string(getpid()) + "\n", readFile(path_ + ".lock"));
  EXPECT_FALSE(open());
  EXPECT_EQ(path_ + ": in use by process " + std::to_string(getpid()) + " (" + path_ + ".lock)", error_);
  source.reset();
  EXPECT_FALSE(std::filesystem::exists(path_ + ".lock"));
  EXPECT_TRUE(open());
}

TEST_F(Fifo, IsTakenOverFromTheDead) {
  for (int i = 0; i < 3; ++i) {
    const pid_t child = inChild([this] { return open() ? kill(getpid(), SIGKILL) : 1; });
    EXPECT_EQ(-SIGKILL, endOf(child));
    EXPECT_EQ(std::to_string(child) + "\n", readFile(path_ + ".lock"));
  }
  EXPECT_TRUE(open()) << error_;
}

// Several that start at once: each that gets the FIFO makes a file that nobody else may have made, and removes it.
TEST_F(Fifo, NeverHasTwoReadersAtOnce) {
  const char* const rounds = std::getenv("QUILLON_LOCK_RACES");
  const int count = rounds ? std::atoi(rounds) : 50;
  const std::string mark = directory_.path() / "mark";
  for (int i = 0; i < count; ++i) {
    std::vector<pid_t> children;
    for (int k = 0; k < 3; ++k) {
      children.push_back(inChild([&] {
        const auto source = open();
        if (!source) return error_.find("in use by process") == std::string::npos ? 2 : 0;
        const int made = ::open(mark.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
        usleep(200);
        return made < 0 || unlink(mark.c_str()) != 0 ? 1 : 10;
      }));
    }
    int readers = 0;
    for (const pid_t child : children) {
      const int end = endOf(child);
      ASSERT_TRUE(end == 0 || end == 10) << "round " << i << ": " << end;
      readers += end == 10;
    }
    ASSERT_LE(1, readers);
  }
}

TEST_F(Fifo, KeepsTheLinesOfManyWritersWhole) {
  constexpr int kWriters = 20;
  const char* const lines = std::getenv("QUILLON_FIFO_LINES");
  const int count = lines ? std::atoi(lines) : 500;
  auto source = open(5000);
  ASSERT_TRUE(source) << error_;
  std::vector<pid_t> writers;
  for (int w = 0; w < kWriters; ++w) {
    writers.push_back(inChild([this, w, count] {
      for (int i = 0; i < count; ++i) {
        // Up to the 4096 bytes that a FIFO takes at once; and each time it is opened anew, as a command in a script
        // does.
        write(std::to_string(w) + ' ' + std::to_string(i) + ' ' + std::string((w * 131 + i * 7) % 4000, 'x') + '\n');
      }
      return 0;
    }));
  }
  std::map<int, int> next;
  Message message;
  for (int i = 0; i < kWriters * count;) {
    if (!source->next(now_, message)) {
      pollfd ready{.fd = source->descriptor(), .events = POLLIN, .revents = 0};
      ASSERT_EQ(1, poll(&ready, 1, 10'000)) << i;
      continue;
    }
    int writer = -1, number = -1, length = 0;
    ASSERT_EQ(2, std::sscanf(std::string(message.text).c_str(), "%d %d %n", &writer, &number, &length));
    EXPECT_EQ(next[writer]++, number);
    EXPECT_EQ(std::string((writer * 131 + number * 7) % 4000, 'x'), message.text.substr(length));
    ++i;
  }
  for (const pid_t writer : writers) EXPECT_EQ(0, endOf(writer));  // no SIGPIPE
}

TEST(Stream, IsReadToItsEnd) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  CollectedNotices notices;
  StreamOptions options;
  options.joining.indented = true;
  StreamSource source(reading.get(), options, notices);
  TimePoint now;
  EXPECT_EQ(0, writeAll(writing.get(), "a\n b\nc"));
  EXPECT_EQ("", linesOf(source, now, 1, Duration(1), 1));
  EXPECT_EQ("a\n b|", linesOf(source, now, 1));  // nothing came for a while
  source.finish(Finish::kDrain);
  EXPECT_EQ("", linesOf(source, now, 1, Duration(1), 1));
  EXPECT_EQ(0, writeAll(writing.get(), "d\ne"));
  EXPECT_TRUE(writing.close());
  EXPECT_EQ("cd|e|", linesOf(source, now, 9));
  EXPECT_TRUE(source.ended());

  const ScratchDirectory directory;
  std::string lines;
  for (int i = 0; i < 100'000; ++i) lines += "line\n";
  writeFile(directory.path() / "file", lines);
  const Descriptor file(::open((directory.path() / "file").c_str(), O_RDONLY));
  StreamSource ofFile(file.get(), {}, notices);
  Message message;
  EXPECT_TRUE(ofFile.next(now, message));
  ofFile.finish(Finish::kStop);  // within a line, which is not torn
  while (ofFile.next(now, message)) EXPECT_EQ("line", message.text);
  EXPECT_TRUE(ofFile.ended());
  EXPECT_GT(100'000U, ofFile.counters().messages);
}

TEST(Stream, GivesOthersTheirTurn) {
  const ScratchDirectory directory;
  const std::string path = directory.path() / "endless";
  writeFile(path, "");
  std::filesystem::resize_file(path, std::uintmax_t{64} << 20);  // no newline in it
  const Descriptor file(::open(path.c_str(), O_RDONLY));
  CollectedNotices notices;
  StreamSource source(file.get(), {.path = "-", .longest = 10, .joining = {}}, notices);
  const TimePoint now = TimePoint() + std::chrono::hours(1);
  Message message;
  int calls = 1;
  for (; !source.next(now, message); ++calls) ASSERT_GE(now, source.deadline());
  EXPECT_LE(32, calls);
  EXPECT_EQ(10U, message.text.size());
  EXPECT_TRUE(message.cut);
}

}  // namespace
}  // namespace quillon
