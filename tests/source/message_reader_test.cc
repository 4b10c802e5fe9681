#include "src/adapters/logfile/source/MessageReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <tuple>

namespace quillon {
namespace {

/// The other end of a pipe that gets `text`, at most `step` bytes at a time.
class Source {
 public:
  explicit Source(const std::string& text, std::size_t step = 1 << 20) {
    EXPECT_EQ(0, pipe(ends_));
    std::signal(SIGPIPE, SIG_IGN);  // a reader that stops early is a failed write
    writer_ = std::thread([this, text, step] {
      for (std::size_t i = 0; i < text.size(); i += step) {
        if (write(ends_[1], text.data() + i, std::min(step, text.size() - i)) < 0) break;
      }
      close(ends_[1]);
    });
  }
  ~Source() {
    close(ends_[0]);
    writer_.join();
  }
  int descriptor() const { return ends_[0]; }

 private:
  int ends_[2];
  std::thread writer_;
};

/// "a|b|" for two messages, "abcd+ef|" for a message in pieces, with the bytes counted at the end.
std::string read(const std::string& text, char delimiter, std::size_t longest, std::size_t step = 1 << 20) {
  const Source source(text, step);
  MessageReader reader(source.descriptor(), delimiter, longest);
  MessageBlock block;
  std::string seen;
  while (reader.fill(block)) {
    if (block.kind() != MessageBlock::Kind::kMessages) {
      (seen += block.text()) += block.kind() == MessageBlock::Kind::kPiece ? '+' : '|';
      continue;
    }
    MessageCursor messages(block, delimiter);
    while (messages.next()) (seen += messages.message()) += '|';
  }
  EXPECT_EQ(0, reader.error());
  return seen + std::to_string(reader.bytes());
}

TEST(MessageReader, TakesAStreamApart) {
  using namespace std::string_literals;
  const std::tuple<std::string, char, const char*> cases[] = {
      {"", '\n', "0"},
      {"\n", '\n', "|1"},
      {"a\nbc\n", '\n', "a|bc|5"},
      {"a\n\nb", '\n', "a||b|4"},     // without an end
      {"a\0b\nc\n"s, '\n', "a|c|6"},  // the text ends at the NUL byte
      {"abc\0defghijklmnop\nq"s, '\n', "abc|q|19"},
      {"\0\0\0\0\0\0\0\0"s, '\n', "|8"},
      {"a\nb\0\0c"s, '\0', "a\nb||c|6"},
      {"abcde\nabcdef\nx\n", '\n', "abcde|abcdef+|x|15"},  // five bytes are the limit
      {"abcdefghij\nabcdefghijkl", '\n', "abcdef+ghij|abcdef+ghijkl+|23"},
      {"abcdefg", '\n', "abcdef+g|7"},
  };
  for (const auto& [text, delimiter, expected] : cases) {
    for (std::size_t step : {1, 2, 100}) EXPECT_EQ(expected, read(text, delimiter, 5, step)) << text;
  }
}

TEST(MessageReader, KeepsLongMessagesWhole) {
  const std::string x(300'000, 'x');
  const std::string y(2'000'000, 'y');
  const std::string nuls(1'000'000, '\0');
  EXPECT_TRUE(x + "|y|" + x + "|||" + y + "|z|" + "4900010" ==
              read(x + "\ny" + nuls + "z\n" + x + nuls + x + "\n\n\n" + y + "\nz\n", '\n', 2'000'000));
}

/// What is there is handed out at once, as much as a block holds, and waiting ends when it is told to.
TEST(MessageReader, WaitsForNothingButTheNextMessage) {
  int log[2];
  int wakeup[2];
  ASSERT_EQ(0, pipe2(log, O_NONBLOCK));
  ASSERT_EQ(0, pipe(wakeup));
  MessageReader reader(log[0], '\n', 100, wakeup[0]);
  MessageBlock block;
  ASSERT_EQ(5, write(log[1], "a\nb\nc", 5));
  ASSERT_TRUE(reader.fill(block));
  EXPECT_EQ("a\nb\n", block.text());
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(2, write(log[1], "d\n", 2));
  });
  ASSERT_TRUE(reader.fill(block));
  EXPECT_EQ("cd\n", block.text());
  writer.join();
  ASSERT_EQ(3, write(log[1], "e\nf", 3));
  ASSERT_EQ(1, write(wakeup[1], "!", 1));
  EXPECT_FALSE(reader.fill(block));
  for (int descriptor : {log[0], log[1], wakeup[0], wakeup[1]}) close(descriptor);
}

TEST(MessageReader, TellsWhyItCannotRead) {
  const int directory = open(".", O_RDONLY);
  MessageReader reader(directory, '\n');
  MessageBlock block;
  EXPECT_FALSE(reader.fill(block));
  EXPECT_EQ(EISDIR, reader.error());
  close(directory);
}

}  // namespace
}  // namespace quillon
