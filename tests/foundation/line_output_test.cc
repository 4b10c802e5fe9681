#include "foundation/line_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <sstream>
#include <string>

#include "tests/support/scratch.h"

namespace quillon {
namespace {

using std::chrono::hours;

class LineOutputTest : public testing::Test {
 protected:
  std::string path() const { return directory_.path() / "events"; }

  LineOutput open(Rotation rotation, std::uint64_t maxSize = 4096, unsigned keep = 2) {
    LineOutputOptions options;
    options.path = path();
    options.rotation = rotation;
    options.maxSize = maxSize;
    options.keep = keep;
    LineOutput output;
    EXPECT_EQ("", output.open(options, now_));
    return output;
  }

  void write(LineOutput& output, const std::string& line) {
    output.lines().append(line + "\n");
    EXPECT_EQ(0, output.flush(now_));
  }

  /// "NAME=first characters of its lines ..." of all files, by name.
  std::string files() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      std::string text;
      std::istringstream lines(readFile(entry.path()));
      for (std::string line; std::getline(lines, line);) text += line.substr(0, 1);
      found[entry.path().filename()] = text;
    }
    std::string all;
    for (const auto& [name, text] : found) all += name + "=" + text + " ";
    return all;
  }

  const ScratchDirectory directory_;
  /// Noon, so that a few hours more are the same day wherever this runs.
  LineOutput::Clock::time_point now_ = [] {
    std::tm noon{};
    noon.tm_mday = 10;
    noon.tm_mon = 10;
    noon.tm_year = 126;
    noon.tm_hour = 12;
    noon.tm_isdst = -1;
    return LineOutput::Clock::from_time_t(std::mktime(&noon));
  }();
};

TEST_F(LineOutputTest, RotatesByDay) {
  LineOutput output = open(Rotation::kDaily);
  write(output, "a");
  now_ += hours(2);
  write(output, "b");
  EXPECT_EQ("events=ab ", files());
  now_ += hours(24);
  EXPECT_EQ(0, output.flush(now_));  // nothing to write, nothing to put away
  write(output, "c");
  EXPECT_EQ("events=c events.2026-11-10=ab ", files());
  writeFile(path() + ".2026-11-11", "taken\n");
  now_ += hours(24);
  write(output, "d");
  EXPECT_EQ("events=d events.2026-11-11=t events.2026-11-11.2=c ", files());  // two are kept
}

TEST_F(LineOutputTest, GoesOnAfterARestart) {
  write(*std::make_unique<LineOutput>(open(Rotation::kDaily)), "a");
  const timespec before{.tv_sec = LineOutput::Clock::to_time_t(now_), .tv_nsec = 0};
  const timespec yesterday[2] = {before, before};
  utimensat(AT_FDCWD, path().c_str(), yesterday, 0);
  now_ += hours(24);
  LineOutput output = open(Rotation::kDaily);
  write(output, "b");
  EXPECT_EQ("events=b events.2026-11-10=a ", files());
}

// The process before was killed in the middle of a line; the next one must not become a part of it.
TEST_F(LineOutputTest, EndsALineThatWasTorn) {
  writeFile(path(), "a\nbroken");
  LineOutput output = open(Rotation::kNone);
  write(output, "c");
  EXPECT_EQ("a\nbroken\nc\n", readFile(path()));
}

TEST_F(LineOutputTest, RotatesBySize) {
  LineOutput output = open(Rotation::kSize, 4096);
  const std::string rest(2000, '.');
  for (const char* line : {"a", "b", "c", "d", "e", "f", "g"}) write(output, line + rest);
  EXPECT_EQ("events=g events.1=ef events.2=cd ", files());
  write(output, "h" + rest + rest + rest);  // does not fit into any, and stays whole
  EXPECT_EQ("events=h events.1=g events.2=ef ", files());
}

TEST_F(LineOutputTest, OpensThePathAnew) {
  LineOutput output = open(Rotation::kNone);
  write(output, "a");
  std::filesystem::rename(path(), path() + ".old");
  write(output, "b");
  ASSERT_EQ(0, output.reopen());
  write(output, "c");
  EXPECT_EQ("events=c events.old=ab ", files());
}

// A pipe that nobody reads takes a part of what is written and no more: the rest is not lost, nor written twice.
TEST_F(LineOutputTest, GoesOnWhereAWriteFailed) {
  ASSERT_EQ(0, mkfifo(path().c_str(), 0600));
  const Descriptor reader(::open(path().c_str(), O_RDONLY | O_NONBLOCK));
  LineOutput output = open(Rotation::kSize);
  output.lines().append("abc\n");
  EXPECT_EQ(0, output.flush(now_));
  char text[10];
  EXPECT_EQ(4, read(reader.get(), text, sizeof text));

  LineOutputOptions full;
  full.path = "/dev/full";
  LineOutput other;
  ASSERT_EQ("", other.open(full, now_));
  other.lines().append("abc\n");
  EXPECT_EQ(ENOSPC, other.flush(now_));
  EXPECT_EQ("abc\n", other.lines().text());
  full.path = directory_.path() / "none" / "events";
  EXPECT_EQ("cannot open " + full.path + ": No such file or directory", other.open(full, now_));
}

}  // namespace
}  // namespace quillon
