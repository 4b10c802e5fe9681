#include "foundation/visible.h"

#include <gtest/gtest.h>

#include <utility>

namespace quillon {
namespace {

TEST(Visible, ShowsWhatATerminalWouldObey) {
  const std::pair<std::string, const char*> cases[] = {
      {"plain\ttext \\ é €", "plain\ttext \\ é €"},
      {"\x1B[2Ja\nb\r\x7F", "\\x1B[2Ja\\x0Ab\\x0D\\x7F"},
      {std::string("\0|", 2), "\\x00|"},
      {"\u0080\u009B\u00A0", "\\xC2\\x80\\xC2\\x9B\u00A0"},
      {"\x80|\x9B|\xA0|\xE9", "\\x80|\\x9B|\xA0|\xE9"},  // bytes alone: only those of 0x80 to 0x9F are obeyed
      {"\xE2\x9B|\xC2", "\xE2\\x9B|\xC2"},               // characters cut short
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(expected, visible(text));
}

}  // namespace
}  // namespace quillon
