#include "foundation/strobj.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

namespace {

/// "null", or the text between bars.
std::string show(const qlStrobj& s) { return s.isNull() ? "null" : "|" + std::string(s.getString()) + "|"; }

TEST(String, RoomComesInBlocks) {
  struct Case {
    std::size_t length, appended;
    bool shared;
    int expected;
  };
  const Case cases[] = {
      {0, 0, false, 108},     {106, 0, false, 108},  {107, 0, false, 216},
      {214, 0, false, 216},   {100, 7, false, 108},  {100, 8, false, 216},  // full: grows by the appended text's blocks
      {107, 109, false, 432}, {107, 109, true, 324},                        // shared: room for the joined text
  };
  for (const Case& c : cases) {
    qlStrobj text(std::string(c.length, 'a').c_str());
    const qlStrobj copy(c.shared ? text : qlStrobj());
    text << std::string(c.appended, 'b').c_str();
    EXPECT_EQ(c.expected, text.allocated()) << c.length << "+" << c.appended;
    EXPECT_EQ(std::string(c.length, 'a') + std::string(c.appended, 'b'), text.getString());
  }
}

struct Edit {
  const char* name;
  std::function<void(qlStrobj&)> run;
  const char* before;
  const char* after;
};

const Edit kEdits[] = {
    {"ltrim", [](qlStrobj& s) { s.ltrim(" \t"); }, " \ta ", "|a |"},
    {"ltrim", [](qlStrobj& s) { s.ltrim(" "); }, "   ", "|   |"},  // all of it: left alone
    {"rtrim", [](qlStrobj& s) { s.rtrim(" \t"); }, " a \t", "| a|"},
    {"rtrim", [](qlStrobj& s) { s.rtrim(" "); }, "   ", "| |"},  // the first character is never taken
    {"trim", [](qlStrobj& s) { s.trim(" "); }, "   ", "| |"},
    {"trim", [](qlStrobj& s) { s.trim(" "); }, " a b ", "|a b|"},
    {"trim", [](qlStrobj& s) { s.trim(" "); }, "", "||"},
    {"ljust", [](qlStrobj& s) { s.ljust(3); }, "abcd", "|abcd|"},
    {"ljust", [](qlStrobj& s) { s.ljust(2); }, " ab", "| ab|"},  // too long: not even trimmed
    {"ljust", [](qlStrobj& s) { s.ljust(3); }, " ab", "|ab |"},
    {"rjust", [](qlStrobj& s) { s.rjust(6); }, "ab", "|    ab|"},
    {"rjust", [](qlStrobj& s) { s.rjust(2); }, "abc ", "|abc|"},  // too long: trimmed all the same
    {"center", [](qlStrobj& s) { s.center(6); }, " ab", "|ab    |"},
    {"center", [](qlStrobj& s) { s.center(1); }, " ab ", "|ab|"},
    {"upper", [](qlStrobj& s) { s.upper(); }, "aB1", "|AB1|"},
    {"lower", [](qlStrobj& s) { s.lower(); }, "aB1", "|ab1|"},
    {"append",
     [](qlStrobj& s) {
       s << "b"
         << "";
     },
     "a", "|ab|"},
    {"append", [](qlStrobj& s) { s << s; }, "ab", "|abab|"},
    {"append", [](qlStrobj& s) { s.append(static_cast<const char*>(nullptr)); }, "a", "|a|"},
    {"append", [](qlStrobj& s) { s << "a"; }, nullptr, "|a|"},
    {"assign", [](qlStrobj& s) { s = s.getString() + 1; }, "abc", "|bc|"},
    {"assign", [](qlStrobj& s) { s = static_cast<const char*>(nullptr); }, "a", "null"},
    {"clear", [](qlStrobj& s) { s.clear(); }, "a", "||"},
    {"clear", [](qlStrobj& s) { (s.clear(), s) << "b"; }, "a", "|b|"},
    {"trim", [](qlStrobj& s) { (s.trim(" "), s.upper(), s.center(3)); }, nullptr, "null"},
    {"rjust", [](qlStrobj& s) { s.rjust(2); }, nullptr, "|  |"},
};

TEST(String, EditsAndLeavesCopiesAlone) {
  for (const Edit& edit : kEdits) {
    qlStrobj alone(edit.before);
    edit.run(alone);
    EXPECT_EQ(edit.after, show(alone)) << edit.name << " of " << show(edit.before);
    EXPECT_EQ(std::string(alone.view()).size(), static_cast<std::size_t>(alone.size()));
    EXPECT_EQ(alone.view(), alone.isNull() ? "" : alone.getString());

    const qlStrobj original(edit.before);
    qlStrobj copy(original);
    edit.run(copy);
    EXPECT_EQ(edit.after, show(copy)) << edit.name << " of a copy of " << show(edit.before);
    EXPECT_EQ(show(edit.before), show(original)) << edit.name;
    copy << "z";  // an edited string has as much room as its text, and appending must know that
    EXPECT_TRUE(copy.view().ends_with('z'));
  }
}

TEST(String, RemoveAtTheStart) {
  const std::pair<int, const char*> cases[] = {{0, "abc"}, {1, "bc"}, {2, "c"}, {3, "abc"}, {9, "abc"}, {-1, "abc"}};
  for (const auto& [n, expected] : cases) {
    qlStrobj text("abc");
    text.remove(n);
    EXPECT_STREQ(expected, text.getString()) << n;
  }
}

TEST(String, Equality) {
  struct Case {
    const char* a;
    const char* b;
    bool equal;
  };
  const Case cases[] = {{"a", "a", true}, {"a", "b", false},    {"a", "ab", false},       {"", "", true},
                        {"", "a", false}, {nullptr, "", false}, {nullptr, nullptr, true}, {"a", nullptr, false}};
  for (const Case& c : cases) {
    const qlStrobj a(c.a);
    const qlStrobj b(c.b);
    const bool results[] = {a == b, b == a, a == c.b, !(a != b), !(b != a), !(a != c.b)};
    for (bool result : results) EXPECT_EQ(c.equal, result) << show(a) << show(b);
  }
  qlStrobj left("a");
  const qlStrobj taken(std::move(left));
  EXPECT_FALSE(left == taken || left == left);  // NOLINT(bugprone-use-after-move): equals nothing, as documented
  left = "b";
  EXPECT_TRUE(left == "b" && taken == "a");
}

TEST(String, IndexOutOfRangeWarnsAndGoesOn) {
  struct Case {
    const char* text;
    int index;
    const char* warning;
  };
  const Case cases[] = {{"abc", 3, ""},
                        {"abc", 4, "index out of range"},
                        {"abc", -1, "index out of range"},
                        {nullptr, 5, ""},
                        {nullptr, -1, "index out of range"}};
  for (const Case& c : cases) {
    qlStrobj text(c.text);
    testing::internal::CaptureStderr();
    static_cast<void>(text[c.index]);
    EXPECT_EQ(c.warning, testing::internal::GetCapturedStderr()) << c.index;
  }
  qlStrobj text("abc");
  text[1] = 'x';
  EXPECT_STREQ("axc", text.getString());
}

TEST(String, AssignmentReturnsACopy) {
  qlStrobj text("a");
  (text = "b") << "c";
  EXPECT_STREQ("b", text.getString());
  qlStrobj& same = text;
  text = same;
  EXPECT_STREQ("b", text.getString());
  EXPECT_STREQ("\xC3\xA9", qlStrobj(reinterpret_cast<const unsigned char*>("\xC3\xA9")).getString());
}

}  // namespace
