#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "src/adapters/logfile/source/LineJoiner.h"
#include "src/adapters/logfile/source/LineSplitter.h"
#include "src/adapters/logfile/source/OctetSplitter.h"

namespace quillon {
namespace {

/// "a|b+|" for two messages of which the second was cut, then the bytes that they took, then what is left.
std::string split(Splitter& splitter, const std::string& text, std::size_t step, bool end) {
  std::string seen;
  std::uint64_t bytes = 0;
  Frame frame;
  const auto take = [&] {
    seen += std::string(frame.text) + (frame.cut ? "+|" : "|");
    bytes += frame.bytes;
    EXPECT_TRUE(text.substr(0, bytes).ends_with(frame.before));
  };
  for (std::size_t at = 0; at < text.size(); at += step) {
    const std::size_t count = std::min(step, text.size() - at);
    const std::span<char> room = splitter.room();
    EXPECT_GE(room.size(), count);
    std::memcpy(room.data(), text.data() + at, count);
    splitter.filled(count);
    while (splitter.next(frame)) take();
  }
  if (end && splitter.finish(frame)) take();
  return seen + std::to_string(bytes) + (splitter.isBroken() ? " broken" : "") +
         (splitter.endedShort() ? " short" : "");
}

TEST(Splitter, TakesLines) {
  const std::string x(20'000, 'x');
  const struct {
    std::string text, expected;
  } cases[] = {
      {"", "0"},
      {"a\n\nbc\n", "a||bc|6"},
      {"a\nb", "a|b|3"},
      {std::string("a\0b\r\n", 5), std::string("a\0b\r|5", 6)},
      {"abcdefg\nabcdefgh\nx\n", "abcdefg|abcdefg+|x|19"},  // seven bytes are the limit
      {x + "\nnext\n", "xxxxxxx+|next|20006"},
      {x, "xxxxxxx+|20000"},
      {"12345\u00E4\n123456\u00E4\n12345\u20AC\n", "12345\u00E4|123456+|12345+|26"},  // not within a character
      {"1234\U0001F600\n12345\x9C\xAC\xAC\n", "1234+|12345\x9C\xAC+|18"},             // but these bytes are none
  };
  for (const auto& c : cases) {
    for (const std::size_t step : {1, 3, 4096}) {
      LineSplitter splitter(7, 0, 5);
      EXPECT_EQ(c.expected, split(splitter, c.text, step, true)) << c.text.substr(0, 50) << " by " << step;
    }
  }
}

TEST(Splitter, TakesCountedOctets) {
  const std::string x(20'000, 'x');
  const struct {
    std::string text, expected;
  } cases[] = {
      {"1 a3 b\nc", "a|b\nc|8"},
      {"7 abcdefg8 abcdefgh1 x", "abcdefg|abcdefg+|x|22"},
      {"20000 " + x + "1 y", "xxxxxxx+|y|20009"},
      {"5 abc", "abc|5 short"},  // the peer went away
      {"5 ", "0 short"},
      {"12", "0 short"},
      {"1 a", "a|3"},
      {"8 123456\u00E4", "123456+|10"},
      {"0 a", "0 broken"},
      {"01 a", "0 broken"},
      {"1 a<13>b", "a|3 broken"},
      {"-1 a", "0 broken"},
      {"99999999999 a", "0 broken"},
      {" a", "0 broken"},
  };
  for (const auto& c : cases) {
    for (const std::size_t step : {1, 3, 4096}) {
      OctetSplitter splitter(7, 0);
      EXPECT_EQ(c.expected, split(splitter, c.text, step, true)) << c.text.substr(0, 50) << " by " << step;
    }
  }
}

TEST(LineJoiner, JoinsIndentedLines) {
  const struct {
    std::vector<std::string> lines;
    const char* expected;
  } cases[] = {
      {{"a", "b"}, "a|b|"},
      {{"a", " b", "\tc", "d"}, "a$ b$\tc|d|"},
      {{" a", " b", "", " c"}, " a$ b|$ c|"},  // nothing before the first; an empty line is not indented
      {{"abcdef", " bcdef", "c"}, "abcdef$ b+|c|"},
      {{"abcdefghi", " b"}, "abcdefghi+|"},
      {{"abcde", " b\u00E4"}, "abcde$ b+|"},
  };
  for (const auto& c : cases) {
    LineJoiner joiner(9);
    JoinedLines joined;
    std::string seen;
    const auto take = [&](const JoinedLines& message) { seen += message.text + (message.cut ? "+|" : "|"); };
    std::uint64_t offset = 0;
    for (const std::string& line : c.lines) {
      Message message;
      message.text = line;
      message.position.offset = offset += line.size() + 1;
      if (joiner.add(message, line.size() + 1, TimePoint(), joined)) {
        EXPECT_EQ(offset - line.size() - 1, joined.position.offset);
        take(joined);
      }
    }
    take(joiner.release());
    std::replace(seen.begin(), seen.end(), '\n', '$');
    EXPECT_EQ(c.expected, seen);
  }
}

}  // namespace
}  // namespace quillon
