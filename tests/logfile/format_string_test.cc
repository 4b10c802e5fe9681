#include <string>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

using FormatString = LogfileTest;

/// "text $variables /lines".
std::string dump(FormatSpec& format) {
  return std::string(format.getFmtStr().view()) + " $" + std::to_string(format.numvars()) + " /" +
         std::to_string(format.numlines());
}

TEST_F(FormatString, SplitsIntoComponents) {
  struct Case {
    const char* text;
    const char* expected;
  };
  const Case cases[] = {
      {"%s %s", "%s %s $2 /1"},
      {"a  \t b", "a b $0 /1"},  // a run of white space is one component,
      {"a\t b", "a\tb $0 /1"},   // which is its first character
      {"%s*x%t%12s+", "%s*x%t%12s+ $3 /1"},
      {"%n%na", "%n%na $0 /3"},
      {"%s% s%d%", "%s% s%d% $1 /1"},
      {"%s%s*%s+%s**", "%s%s*%s+%s** $4 /1"},
      {"", " $0 /1"},
  };
  for (const Case& c : cases) {
    FormatSpec format("T");
    format.setFmtStr("%s %s");
    format.setFmtStr(c.text);  // replaces what was there
    EXPECT_EQ(c.expected, dump(format)) << c.text;
    FormatSpec again("T");
    again.setFmtStr(format.getFmtStr().getString());
    EXPECT_EQ(c.expected, dump(again)) << "read back: " << c.text;
  }
}

TEST_F(FormatString, LongTokensWriteOverTheirBeginning) {
  const std::pair<std::size_t, std::size_t> lengths[] = {{511, 511}, {512, 0}, {513, 1}, {1030, 6}};
  for (const auto& [length, kept] : lengths) {
    FormatSpec format("T");
    format.setFmtStr((std::string(length - 1, 'a') + "z %s").c_str());
    const std::string expected = kept == 0 ? "" : std::string(kept - 1, 'a') + "z";
    EXPECT_EQ(expected + " %s $1 /1", dump(format)) << length;
  }
}

TEST_F(FormatString, SixtyFourVariables) {
  FormatSpec format("T");
  CapturedReports reports;
  for (int i = 0; i < 64; ++i) format.addFormat("%s");
  EXPECT_EQ("", reports.take());
  format.addFormat("text");
  format.addFormat("%5s");
  format.addFormat("%t");
  EXPECT_EQ("3,6,242 too many % variables in format\n3,6,242 too many % variables in format\n", reports.take());
  EXPECT_EQ(66, format.numvars());
}

TEST_F(FormatString, SharesComponentsByCount) {
  FormatComponent* const field = FormatComponent::create("%s");
  const int before = field->refcnt();
  {
    FormatSpec format("T");
    format.setFmtStr("%s %s");
    EXPECT_EQ(before + 2, field->refcnt());
    format.setFmtStr("%s");
    EXPECT_EQ(before + 1, field->refcnt());
  }
  EXPECT_EQ(before, field->refcnt());
}

}  // namespace
}  // namespace quillon
