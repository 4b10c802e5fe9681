#include "foundation/strobj.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <utility>

namespace {

/// "null", or the text between bars.
std::string show(const qlStrobj& s) { return s.isNull() ? "null" : "|" + std::string(s.getString()) + "|"; }

TEST(String, RoomComesInBlocks) {
  const std::tuple<std::size_t, std::size_t, bool, int> cases[] = {
      // length, appended, shared, room
      {0, 0, false, 108},     {106, 0, false, 108},  {107, 0, false, 216},
      {214, 0, false, 216},   {100, 7, false, 108},  {100, 8, false, 216},  // full: grows by the appended text's blocks
      {107, 109, false, 432}, {107, 109, true, 324},                        // shared: room for the joined text
  };
  for (const auto& [length, appended, shared, room] : cases) {
    qlStrobj text(std::string(length, 'a').c_str());
    const qlStrobj copy(shared ? text : qlStrobj());
    text << std::string(appended, 'b').c_str();
    EXPECT_EQ(room, text.allocated()) << length << "+" << appended;
    EXPECT_EQ(std::string(length, 'a') + std::string(appended, 'b'), text.getString());
  }
}

TEST(String, ALongerTextGetsMoreRoom) {
  qlStrobj texts[] = {"a", "b", "c"};
  texts[0] = std::string(150, 'x').c_str();
  EXPECT_EQ(216, texts[0].allocated());
  texts[0] = "y";
  EXPECT_EQ(108, texts[0].allocated());
  EXPECT_EQ("|y||b||c|", show(texts[0]) + show(texts[1]) + show(texts[2]));
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
    {"append", [](qlStrobj& s) { s << "b", s << ""; }, "a", "|ab|"},
    {"append", [](qlStrobj& s) { s << s; }, "ab", "|abab|"},
    {"append", [](qlStrobj& s) { s.append(static_cast<const char*>(nullptr)); }, "a", "|a|"},
    {"append", [](qlStrobj& s) { s << "a"; }, nullptr, "|a|"},
    {"assign", [](qlStrobj& s) { s = s.getString() + 1; }, "abc", "|bc|"},
    {"assign", [](qlStrobj& s) { s = static_cast<const char*>(nullptr); }, "a", "null"},
    {"assign", [](qlStrobj& s) { (s = "b") << "c"; }, "a", "|b|"},  // gives a copy
    {"assign", [](qlStrobj& s) { s = static_cast<const qlStrobj&>(s); }, "a", "|a|"},
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

// Texts of other lengths in turn: each has the room it asks for, and those beside it keep theirs.
TEST(String, AssignsAnyLength) {
  qlStrobj texts[3] = {"before", "", "behind"};
  for (const std::size_t length : {3UL, 150UL, 149UL, 20UL, 500UL}) {
    texts[1] = std::string(length, 'x').c_str();
    EXPECT_EQ(std::string(length, 'x'), texts[1].getString());
    EXPECT_EQ(static_cast<int>(108 * ((length + 1) / 108 + 1)), texts[1].allocated());
    EXPECT_TRUE(texts[0] == "before" && texts[2] == "behind") << length;
  }
}

TEST(String, RemoveAtTheStart) {
  for (const auto& [n, expected] : {std::pair(0, "abc"), {1, "bc"}, {2, "c"}, {3, "abc"}, {9, "abc"}, {-1, "abc"}}) {
    qlStrobj text("abc");
    text.remove(n);
    EXPECT_STREQ(expected, text.getString()) << n;
  }
}

TEST(String, Equality) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"a", "a", true}, {"a", "b", false},    {"a", "ab", false},       {"", "", true},
      {"", "a", false}, {nullptr, "", false}, {nullptr, nullptr, true}, {"a", nullptr, false},
  };
  for (const auto& [one, other, equal] : cases) {
    const qlStrobj a(one), b(other);
    for (bool result : {a == b, b == a, a == other, !(a != b), !(b != a), !(a != other)}) {
      EXPECT_EQ(equal, result) << show(a) << show(b);
    }
  }
  qlStrobj left("a");
  const qlStrobj taken(std::move(left));
  EXPECT_FALSE(left == taken || left == left);  // NOLINT(bugprone-use-after-move): equals nothing, as documented
  left = "b";
  EXPECT_TRUE(left == "b" && taken == "a");
}

// The ways to write to a text where it is. Copies of an ordinary one see it; those of a constant do not.
TEST(String, OnlyConstantsAreCopiedToBeWrittenTo) {
  const std::pair<const char*, std::function<void(qlStrobj&)>> writes[] = {
      {"xbc", [](qlStrobj& s) { s[0] = 'x'; }},
      {"xyz", [](qlStrobj& s) { s.setString("xyz"); }},
      {"xbc", [](qlStrobj& s) { *s.getString() = 'x'; }},
      {"xbc", [](qlStrobj& s) { *static_cast<char*>(s) = 'x'; }},
      {"c", [](qlStrobj& s) { s.remove(2); }},
  };
  static const auto& permanent = *new qlStrobj(qlStrobj::permanent("abc"));  // as long as the process
  for (const auto& [expected, write] : writes) {
    for (const auto& [kind, made] :
         {std::pair("ordinary", qlStrobj("abc")), {"constant", qlStrobj::constant("abc")}, {"permanent", permanent}}) {
      const qlStrobj original(made);
      qlStrobj copy(original);
      write(copy);
      EXPECT_STREQ(expected, copy.getString()) << kind;
      EXPECT_STREQ(std::string(kind) == "ordinary" ? expected : "abc", original.getString()) << kind;
      EXPECT_EQ(108, copy.allocated());
      copy << "-";
      EXPECT_EQ(std::string(copy.view()), std::string(expected) + "-") << kind;
    }
  }
  qlStrobj alone = qlStrobj::constant("abc");
  const char* const text = std::as_const(alone).getString();
  alone[0] = 'x';
  EXPECT_EQ(static_cast<const char*>(alone), text);  // nobody else has it: written to where it is
  alone.setString(std::string(107, 'y').c_str());
  EXPECT_EQ(std::string(107, 'y'), alone.getString());  // and there is the room that allocated() tells of
  qlStrobj cleared;
  cleared.clear();
  cleared.getString()[0] = 'x';
  qlStrobj other("a");
  const qlStrobj holder(other);
  other.clear();
  EXPECT_STREQ("", other.getString());
}

TEST(String, IndexOutOfRangeWarnsAndGoesOn) {
  const std::tuple<const char*, int, bool> cases[] = {
      {"abc", 3, false}, {"abc", 4, true}, {"abc", -1, true}, {nullptr, 5, false}, {nullptr, -1, true},
  };
  for (const auto& [string, index, warned] : cases) {
    qlStrobj text(string);
    testing::internal::CaptureStderr();
    static_cast<void>(text[index]);
    EXPECT_EQ(warned ? "index out of range" : "", testing::internal::GetCapturedStderr()) << index;
  }
  qlStrobj text("abc");
  text[1] = 'x';
  EXPECT_STREQ("axc", text.getString());
}

}  // namespace
