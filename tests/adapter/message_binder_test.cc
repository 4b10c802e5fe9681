#include "adapter/MessageBinder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/scratch.h"

namespace quillon {
namespace {

using std::chrono::milliseconds;

class MessageBinderTest : public testing::Test {
 protected:
  explicit MessageBinderTest(Duration wait = milliseconds(500)) : wait_(wait) {}

  void use(const std::string& formats) {
    const ScratchDirectory directory;
    writeFile(directory.path() / "formats", formats);
    CollectedReports reports;
    file_ = FormatFile::load(directory.path() / "formats", FormatOrder::kOfFile, EventForm::kText, false, reports);
    ASSERT_TRUE(file_);
    binder_.emplace(file_, options_, [this](const MessageBinder::Outcome& outcome) { take(outcome); });
  }

  void take(const MessageBinder::Outcome& outcome) {
    std::string text(outcome.text);
    std::ranges::replace(text, '\n', '|');
    taken_ += outcome.match ? file_->classes()[outcome.match->place] : "-";
    taken_ += "(" + text + ")@" + std::to_string(outcome.positions.back().offset) + " ";
  }

  /// Gives the lines, each a message, to one stream.
  void give(const std::vector<std::string>& lines, std::uint64_t stream = 1) {
    for (const std::string& line : lines) {
      Message message;
      message.text = line;
      message.path = "log";
      message.stream = stream;
      message.position = {.file = stream, .offset = ++offset_};
      binder_->add(message, now_);
    }
  }

  std::string taken() { return std::exchange(taken_, ""); }

  const Duration wait_;
  MessageBinder::Options options_{.wait = wait_};
  TimePoint now_ = TimePoint() + std::chrono::hours(1);
  std::shared_ptr<const FormatFile> file_;
  std::optional<MessageBinder> binder_;
  std::uint64_t offset_ = 0;
  std::string taken_;
};

constexpr const char* kFormats =
    "FORMAT Three\nbegin%nmiddle%nend\nEND\n"
    "FORMAT Two\nbegin%nend\nEND\n"
    "FORMAT Begin\nbegin %s*\nEND\n"
    "FORMAT Other\nother\nEND\n";

TEST_F(MessageBinderTest, TheFirstFormatThatBindsTakesItsLines) {
  use("FORMAT Two\nfirst %s%nsecond %s\na $1\nb $2\nEND\nFORMAT One\nfirst %s\na $1\nEND\n");
  struct Case {
    std::vector<std::string> lines;
    const char* expected;
  };
  const Case cases[] = {
      {{"first a", "second b"}, "Two(first a|second b)@2 "},
      {{"first a", "first b", "second c"}, "One(first a)@1 Two(first b|second c)@3 "},
      {{"second a", "first b", "else"}, "-(second a)@1 One(first b)@2 -(else)@3 "},
  };
  for (const Case& c : cases) {
    offset_ = 0;
    give(c.lines);
    binder_->expire(now_, true);
    EXPECT_EQ(c.expected, taken());
  }
}

TEST_F(MessageBinderTest, OnlyLinesThatMattersWaitAndNotForEver) {
  // A format without variables binds when nothing is left over, so these tell which lines were tried together.
  use("FORMAT First\nother %s\na $1\nEND\nFORMAT Pair\n%s begin%nend %s\na $1\nb $2\nEND\nFORMAT Last\n%s begin\na "
      "$1\nEND\n");
  give({"other x"});
  EXPECT_EQ("First(other x)@1 ", taken());  // tried before the one of two lines: nothing to wait for
  give({"x begin"});
  EXPECT_EQ("", taken());
  EXPECT_EQ(now_ + wait_, binder_->deadline());
  now_ += wait_ - milliseconds(1);
  binder_->expire(now_, false);
  EXPECT_EQ("", taken());
  give({"y begin"}, 2);  // another stream has lines of its own
  now_ += milliseconds(1);
  binder_->expire(now_, false, [&](const Position& last, TimePoint due) { return last.offset == 2 && due == now_; });
  EXPECT_EQ("", taken());  // more of it may be there
  binder_->expire(now_, false);
  EXPECT_EQ("Last(x begin)@2 ", taken());
  give({"end z"}, 2);
  EXPECT_EQ("Pair(y begin|end z)@4 ", taken());
  EXPECT_FALSE(binder_->holds());
  EXPECT_EQ(TimePoint::max(), binder_->deadline());
}

TEST_F(MessageBinderTest, OtherFormatsDecideAboutLinesThatWait) {
  use("FORMAT Pair\n%s begin%nend %s\na $1\nb $2\nEND\n");
  give({"x begin"});
  EXPECT_EQ("", taken());
  const auto before = file_;
  use("FORMAT Single\n%s begin\na $1\nEND\n");
  const auto single = file_;
  file_ = before;
  binder_.emplace(before, options_, [this](const MessageBinder::Outcome& outcome) { take(outcome); });
  give({"x begin"});
  file_ = single;
  binder_->setFormats(single, options_);
  give({"y begin"});
  EXPECT_EQ("Single(x begin)@2 Single(y begin)@3 ", taken());
}

// A message whose lines were joined before is never put together with the next one.
TEST_F(MessageBinderTest, WholeMessagesAreTriedByThemselves) {
  options_.whole = true;
  use("FORMAT Trace\nfailed%n at %s%n at %s\na $1\nb $2\nEND\nFORMAT Line\nfailed\nEND\n");
  give({"failed", "failed\n at x\n at y", "failed"});
  EXPECT_EQ("Line(failed)@1 Trace(failed| at x| at y)@2 Line(failed)@3 ", taken());
  EXPECT_FALSE(binder_->holds());
}

TEST_F(MessageBinderTest, LinesThatComeAgainAreForgotten) {
  use("FORMAT Pair\n%s begin%nend %s\na $1\nb $2\nEND\n");
  give({"x begin"}, 1);
  give({"y begin"}, 2);
  binder_->forget([](const Position& position) { return position.file == 1; });
  binder_->expire(now_, true);
  EXPECT_EQ("-(y begin)@2 ", taken());
}

// What becomes of a text is the same whether it comes at once or line by line with pauses in between that are shorter
// than the wait, or is asked about in between.
TEST_F(MessageBinderTest, PausesChangeNothing) {
  use(kFormats);
  std::mt19937 random(7);
  const std::vector<std::string> words = {"begin", "middle", "end", "begin x", "other", "else"};
  for (int round = 0; round < 200; ++round) {
    std::vector<std::string> lines;
    for (int n = 0; n < 12; ++n) lines.push_back(words[random() % words.size()]);
    offset_ = 0;
    give(lines);
    binder_->expire(now_, true);
    const std::string atOnce = taken();
    offset_ = 0;
    for (const std::string& line : lines) {
      give({line});
      now_ += milliseconds(random() % 500);
      binder_->expire(now_, false);
    }
    binder_->expire(now_, true);
    EXPECT_EQ(atOnce, taken());
  }
}

}  // namespace
}  // namespace quillon
