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

/// "a|b|" for two messages, "abcd+ef|" for two pieces of one, with the bytes counted at the end; NUL is shown as 0.
std::string read(const std::string& text, char delimiter, std::size_t longest, std::size_t step) {
  const Source source(text, step);
  MessageReader reader(source.descriptor(), delimiter, longest);
  std::string seen;
  while (reader.next()) {
    seen += reader.text();
    seen += reader.isPiece() && !reader.isLastPiece() ? '+' : '|';
    if (!reader.isPiece()) {
      EXPECT_EQ('\0', reader.text().data()[reader.text().size()]);
    }
  }
  for (char& c : seen) c = c == '\0' ? '0' : c;
  return seen + std::to_string(reader.bytes());
}

TEST(MessageReader, TakesAStreamApart) {
  const std::tuple<std::string, char, const char*> cases[] = {
      {"", '\n', "0"},
      {"\n", '\n', "|1"},
      {"a\nbc\n", '\n', "a|bc|5"},
      {"a\n\nb", '\n', "a||b|4"},  // without an end
      {std::string("a\0b\nc\n", 6), '\n', "a0b|c|6"},
      {std::string("a\nb\0\0c", 6), '\0', "a\nb||c|6"},
      {"abcde\nabcdef\nx\n", '\n', "abcde|abcde+f|x|15"},  // five bytes are the limit
      {"abcdefghij\nabcdefghijk", '\n', "abcde+fghij|abcde+fghij+k|22"},
      {"abcdef", '\n', "abcde+f|6"},
  };
  for (const auto& [text, delimiter, expected] : cases) {
    for (std::size_t step : {1, 2, 100}) EXPECT_EQ(expected, read(text, delimiter, 5, step)) << text;
  }
}

TEST(MessageReader, KeepsLongMessagesWhole) {
  const std::string x(300'000, 'x');
  const std::string nuls(1'000'000, '\0');
  const Source source(x + "\ny" + nuls + "z\n" + x + nuls + x);
  MessageReader reader(source.descriptor(), '\n', 400'000);
  ASSERT_TRUE(reader.next());
  EXPECT_TRUE(x == reader.text());
  ASSERT_TRUE(reader.next());
  EXPECT_STREQ("y", reader.text().data());  // though its line is longer than a message may be
  EXPECT_FALSE(reader.isPiece());
  ASSERT_TRUE(reader.next());
  EXPECT_TRUE(x == reader.text().data());
  EXPECT_FALSE(reader.isPiece());
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(2'900'004U, reader.bytes());
}

TEST(MessageReader, TellsWhyItCannotRead) {
  const int directory = open(".", O_RDONLY);
  MessageReader reader(directory, '\n');
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(EISDIR, reader.error());
  close(directory);
}

}  // namespace
}  // namespace quillon
