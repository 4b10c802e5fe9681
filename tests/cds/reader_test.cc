#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cds/CdsId.h"
#include "cds/CdsReader.h"
#include "cds/EventMaker.h"

namespace quillon {
namespace {

/// A class number `id` that selects two attributes, `a` and `b`, on the lines 2 and 3, and has these lines of MAP.
std::string classWith(const std::string& map, int id = 0) {
  return "CLASS C\n  SELECT\n    1: ATTR(=,\"_event_id\"), VALUE(=,\"" + std::to_string(id) +
         "\");\n    2: ATTR(=,\"a\");\n    3: ATTR(=,\"b\");\n" + (map.empty() ? "" : "  MAP\n" + map) + "END\n";
}

/// "C 0: x=[1] y=[two]", or why there is no event.
std::string made(EventMaker& maker, std::uint32_t id, const std::vector<NamedValue>& attributes) {
  switch (maker.make(id, attributes)) {
    case EventMaker::Result::kNoClass:
      return "no class";
    case EventMaker::Result::kNoAttribute:
      return "no attribute " + std::string(maker.missing());
    case EventMaker::Result::kTooLarge:
      return "too large";
    case EventMaker::Result::kMade:
      break;
  }
  std::string text = std::string(maker.event().className) + " " + std::to_string(maker.event().eventId) + ":";
  for (const NamedValue& slot : maker.event().slots) {
    ((((text += " ") += slot.name) += "=[") += slot.value) += "]";
  }
  return text;
}

/// "3:14: what is wrong", one a line; empty when nothing is.
std::string faults(const std::string& text) {
  std::string result;
  for (const CdsFault& fault : readCds(text).faults) {
    result += std::to_string(fault.line) + ":" + std::to_string(fault.column) + ": " + fault.text + "\n";
  }
  return result;
}

std::string eventOf(const std::string& text) {
  const CdsReading reading = readCds(text);
  if (!reading) return faults(text);
  EventMaker maker(reading.classes);
  return made(maker, 0, {{"a", "1"}, {"b", "two"}});
}

TEST(ClassDefinitions, MakeEvents) {
  struct Case {
    const char *map, *expected;
  };
  const Case cases[] = {
      {"", "C 0:"},
      {"    x = $V3;\n    y = $V2;\n    id = $V1;\n", "C 0: x=[two] y=[1] id=[0]"},
      {"     = $V2;\n    = = $V3;\n    a;b = \"\";\n", "C 0: =[1] ==[two] a;b=[]"},  // a name has nearly any byte
      {"    x = \"%s; $V2, \\\"q\\\"\n    y = \\\\\";\n", "C 0: x=[%s; $V2, \\\"q\\\"\n    y = \\\\]"},
      {"    x = \"\xE9\xFF\x01\";\n", "C 0: x=[\xE9\xFF\x01]"},
      {"    x = PRINTF(\"\");\n    y = PRINTF(\"100% %%s%d\", $V2);\n", "C 0: x=[] y=[100% %1%d]"},
      {"    x = PRINTF(\"%s%s=%s\", \"%s\", $V3, $V3);\n", "C 0: x=[%stwo=two]"},
      // The place of a PRINTF that is an argument stays open, as in the events of an adapter.
      {"    x = PRINTF(\"%s-%s-%s\", $V2, PRINTF(\"%s\", PRINTF(\"\")), $V3);\n", "C 0: x=[1-%s-two]"},
      // Words that end in a backslash, quoted by quillon as they are.
      {"    x = \"C:\\\";\n    y = \"D:\\\";\n", "C 0: x=[C:\\] y=[D:\\]"},
      {"    x = PRINTF(\"%s on %s\", \"C:\\\", \"\\\");\n", "C 0: x=[C:\\ on \\]"},
      // The same bytes with a sense only as one text.
      {"    x = PRINTF(\"%s, %s\", \"5\\\", \", $V3);\n", "C 0: x=[5\\\", , two]"},
      {"    x = \"\\\";\nEND\n\";\n", "C 0: x=[\\\";\nEND\n]"},
      {"    x = PRINTF(\"%s, %s\", \"5\\\", \", \"\\\");\n", "C 0: x=[5\\\", , \\]"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, eventOf(classWith(c.map))) << c.map;
  EXPECT_EQ("", faults(""));  // a file without blocks
}

TEST(ClassDefinitions, FaultsHaveTheirPlaces) {
  const auto afterMap = [](const std::string& line) { return faults(classWith("    " + line)); };
  const std::string whole = classWith("    x = $V2;\n");
  struct Case {
    std::string text, expected;
  };
  const Case cases[] = {
      {"CLAS C\n", "1:1: expected \"CLASS \", found \"CLAS C\"\n"},
      {"CLASS a b\n", "1:8: expected the end of the line, found \" b\"\n"},
      {"CLASS C\n  SELECT", "2:1: expected \"  SELECT\", found \"  SELECT\"\n"},
      {"CLASS C\r\n", "1:8: expected the end of the line, found \"\\x0D\"\n"},
      {classWith("", -1), "3:38: expected the number of the class, found \"-1\");\"\n"},
      {whole.substr(0, whole.size() - 4), "8:1: expected \"END\", found the end of the text\n"},
      {whole + "x", "9:1: expected CLASS, found \"x\"\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, faults(c.text)) << c.text;

  const Case lines[] = {
      {"x = $V4;\n", "7:9: SELECT has no line 4\n"},
      {"x = $V0;\n", "7:9: SELECT has no line 0\n"},
      {"x = PRINTF(\"%s\", PRINTF(\"%s\", $V9));\n", "7:35: SELECT has no line 9\n"},
      {"x = $V02;\n", "7:9: expected $V and a number, a text in quotes, or PRINTF(, found \"$V02;\"\n"},
      {"x = $V2\n", "7:12: expected \";\", found the end of the line\n"},
      {"x = $V2;\n    x = \"\";\n", "8:5: the slot x comes twice\n"},
      {"x = PRINTF(\"%s %s\", $V2);\n", "7:9: this PRINTF has another number of arguments than of %s\n"},
      {"x = PRINTF(\"%s\", PRINTF(\"\", $V2));\n", "7:22: this PRINTF has another number of arguments than of %s\n"},
      {"x = PRINTF($V2);\n", "7:16: expected a text in quotes, found \"$V2);\"\n"},
      {"x = \"a\\\";\n    y = 1;\n", "8:9: expected $V and a number, a text in quotes, or PRINTF(, found \"1;\"\n"},
      {"x = \"a;\n", "7:9: the text in quotes never ends: \"\"a;\"\n"},
  };
  for (const Case& c : lines) EXPECT_EQ(c.expected, afterMap(c.text)) << c.text;
}

TEST(ClassDefinitions, FaultsOfSeveralClassesAreTold) {
  const std::string text = classWith("    x = $V9;\n    x = $V2;\n") + classWith("    x $V2;\n", 1) + classWith("", 0) +
                           classWith("", 2) + classWith("", 2);
  EXPECT_EQ(
      "7:9: SELECT has no line 9\n8:5: the slot x comes twice\n16:6: expected \" = \", found \" $V2;\"\n"
      "32:38: another class has the _event_id 2\n",
      faults(text));
  std::string many;
  for (int id = 0; id < 100; ++id) many += "CLASS C\n";
  EXPECT_EQ(20, readCds(many).faults.size());
}

TEST(EventMaker, TakesAttributesAsTheyCome) {
  const CdsReading reading = readCds(classWith("    x = PRINTF(\"%s%s\", $V3, $V2);\n", 7) + classWith("", 3));
  ASSERT_TRUE(reading);
  EventMaker maker(reading.classes, 10);
  EXPECT_EQ("C 7: x=[21]", made(maker, 7, {{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ("C 7: x=[21]", made(maker, 7, {{"c", "3"}, {"b", "2"}, {"a", "1"}, {"b", "4"}}));
  EXPECT_EQ("C 3:", made(maker, 3, {{"b", "2"}, {"a", ""}}));
  EXPECT_EQ("no attribute b", made(maker, 7, {{"a", "1"}, {"x", "2"}}));
  EXPECT_EQ("no class", made(maker, 0, {{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ("C 7: x=[1234567890]", made(maker, 7, {{"a", "67890"}, {"b", "12345"}}));
  EXPECT_EQ("too large", made(maker, 7, {{"a", "67890"}, {"b", "123456"}}));
}

// A slot may be called as the attribute that numbers the event is; its line is another.
TEST(EventMaker, TellsTheNumberFromASlotOfItsName) {
  const CdsReading reading = readCds(
      "CLASS C\n  SELECT\n    1: ATTR(=,\"_event_id\"), VALUE(=,\"0\");\n    2: ATTR(=,\"_event_id\");\n  MAP\n"
      "    _event_id = $V2;\nEND\n");
  ASSERT_TRUE(reading);
  EventMaker maker(reading.classes);
  EXPECT_EQ("C 0: _event_id=[x]", made(maker, 0, {{"_event_id", "x"}}));
}

// What could take time or stack out of proportion: it takes minutes, or overflows, when it does.
TEST(ClassDefinitions, AreReadInLinearTime) {
  std::string nested = "\"\"";
  std::string closed;
  for (int i = 0; i < 200000; ++i) closed += ")";
  std::string opened;
  for (int i = 0; i < 200000; ++i) opened += "PRINTF(\"%s\", ";
  EXPECT_EQ("C 0: x=[%s]", eventOf(classWith("    x = " + opened + nested + closed + ";\n")));

  std::string words = "    x = PRINTF(\"";
  for (int i = 0; i < 20000; ++i) words += "%s";
  words += "\"";
  for (int i = 0; i < 20000; ++i) words += ", \"\\\"";
  EXPECT_EQ("", faults(classWith(words + ");\n")));
  EXPECT_EQ(1, readCds(classWith(words + ", \"\\\");\n")).faults.size());       // two to the power of 20000 ways
  EXPECT_EQ(1, readCds(classWith(words + ");\n    y = \";\n")).faults.size());  // each to the end of the text

  std::string large;
  for (int i = 0; i < 200000; ++i) large += "    s" + std::to_string(i) + " = $V2;\n";
  large = classWith(large);
  for (int id = 1; id < 20000; ++id) large += classWith("    x = $V2;\n", id);
  EXPECT_EQ("", faults(large));
}

TEST(CdsId, IsTheHashOfTheBytes) {
  EXPECT_EQ("99aa06d3014798d86001c324468d497f", cdsId("").hex());  // as published for XXH3 with 128 bits
  EXPECT_NE(cdsId(classWith("")), cdsId(classWith("", 1)));
}

}  // namespace
}  // namespace quillon
