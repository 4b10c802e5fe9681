// What is folded in a message, and how the shapes are counted.

#include "authoring/compare/MessageShapes.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace quillon {
namespace {

TEST(MessageShapes, FoldWhatDiffers) {
  struct Case {
    const char *message, *shape;
  };
  const Case cases[] = {
      {"Mar  5 07:31:44 gate1 sshd[2045]:\tx",
       "Mar <number> <number>:<number>:<number> gate<number> sshd[<number>]: x"},
      {"from 192.0.2.17 port -1, 1.2.3", "from <address> port <number>, <number>.<number>.<number>"},
      {"192.0.2.17.9 1192.0.2.17", "<address>.<number> <number>.<number>.<number>.<number>"},
      {"fe80::1 and ::1, 00:1b:44:11:3a:b7", "<address> and <address>, <address>"},
      {"0x1F 0xg deadbeef 1f9a 12", "<hex> <number>xg deadbeef <hex> <number>"},
      {"id 550e8400-e29b-4123-4716-446655440000.", "id <hex>."},
      {"open /var/log/x.log. (/tmp) a/b /", "open <path>. (<path>) a/b /"},
      {"https://host/a?b=1", "https:<path>?b=<number>"},
      {"blk_-42 v1-2 \xC3\xA9"
       "9",
       "blk_<number> v<number>-<number> \xC3\xA9<number>"},
      {"", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(c.shape, shapeOf(c.message)) << c.message;
  EXPECT_GE(600U, shapeOf(std::string(5000, 'x')).size());
}

/// "2 a 1 (a 5) rest 0"
std::string dump(const MessageShapes& shapes) {
  std::string text;
  for (const MessageShapes::Shape* shape : shapes.byCount())
    text += std::to_string(shape->count) + " " + shape->shape + " (" + shape->example + ") ";
  return text + "rest " + std::to_string(shapes.rest());
}

TEST(MessageShapes, CountAndKeepTheFirst) {
  MessageShapes shapes;
  for (const char* message : {"b 1", "a 5", "a 6"}) shapes.add(message);
  EXPECT_EQ("2 a <number> (a 5) 1 b <number> (b 1) rest 0", dump(shapes));
  MessageShapes later;
  for (const char* message : {"b 7", "c", "b 8"}) later.add(message);
  shapes.add(std::move(later));
  EXPECT_EQ("3 b <number> (b 1) 2 a <number> (a 5) 1 c (c) rest 0", dump(shapes));
}

TEST(MessageShapes, StayBounded) {
  MessageShapes shapes;
  const auto letters = [](std::size_t n) {
    std::string text;
    for (; n > 0; n /= 26) text += static_cast<char>('a' + n % 26);
    return text;
  };
  for (std::size_t i = 1; i <= 3 * MessageShapes::kMostShapes; ++i) {
    shapes.add(letters(i));
    shapes.add("often " + std::to_string(i));
  }
  std::uint64_t all = shapes.rest();
  for (const MessageShapes::Shape* shape : shapes.byCount()) all += shape->count;
  EXPECT_EQ(6 * MessageShapes::kMostShapes, all);
  EXPECT_GE(MessageShapes::kMostShapes, shapes.byCount().size());
  EXPECT_EQ("often <number>", shapes.byCount()[0]->shape);
  EXPECT_EQ(3 * MessageShapes::kMostShapes, shapes.byCount()[0]->count);
}

}  // namespace
}  // namespace quillon
