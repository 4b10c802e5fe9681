#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/json_text.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/event/EventForms.h"
#include "src/adapters/logfile/event/EventWriter.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

const char* const kFormats = R"(FORMAT Base
%s is %s*
one $1
-two $2
constant WARNING
empty ""
quoted "say \"%s\"	x"
where DEFAULT
label LABEL
file FILENAME
all PRINTF("%s|%s|%s%s|%s.%s", one, two, constant, label, nobody, both)
both PRINTF("%s and 100%", one)
more PRINTF("%s and %s", one)
END
FORMAT Plain
no fields
END
FORMAT Next FOLLOWS Base
%s was %s*
two "a constant now"
END
)";

class Events : public testing::Test {
 protected:
  Events() {
    writeFile(directory_.path() / "formats", kFormats);
    driver_ = std::make_unique<LogDriver>((directory_.path() / "formats").c_str(), nullptr, 0);
    driver_->orderFmts();
  }

  /// The event of `message`, which is written in three ways: with values of its own, with parts of a text, in parts.
  std::string event(EventWriter& writer, const std::string& message) {
    int index = 0;
    format_ = driver_->bind(message.c_str(), index);
    const auto place = static_cast<std::size_t>(2 - index);
    std::vector<std::string_view> values;
    for (int n = 1; n <= format_->numvars(); ++n) values.push_back(format_->value(n).view());
    const std::string line = written(writer, writer.begin(place, values));
    std::vector<std::string_view> parts;
    std::string joined;
    writer.append(parts);
    for (std::string_view part : parts) joined += part;
    EXPECT_EQ(line, joined);
    const std::string text = message + std::string(EventWriter::kStride, '"');
    for (std::string_view& value : values) value = std::string_view(text).substr(text.find(value), value.size());
    EXPECT_EQ(line, written(writer, writer.begin(place, values, std::string_view(text).substr(0, message.size()))));
    return line;
  }

  static std::string written(const EventWriter& writer, std::size_t most) {
    std::string line(most + EventWriter::kStride, '\0');
    line.resize(static_cast<std::size_t>(writer.write(line.data()) - line.data()));
    EXPECT_LE(line.size(), most);
    return line;
  }

  const ScratchDirectory directory_;
  std::unique_ptr<LogDriver> driver_;
  FormatSpec* format_ = nullptr;  ///< What bound the latest message.
};

TEST_F(Events, TextIsThatOfTheFormat) {
  EventWriter writer(EventForms::make(*driver_, EventForm::kText));
  const std::string longText(100, 'x');
  const std::string messages[] = {"it is so", "it was so", "no fields", "it is " + longText,
                                  longText + " is \x1B\"\xC3 \xA9' b=`"};
  for (const std::string& message : messages) {
    const std::string text = event(writer, message);
    EXPECT_EQ(format_->aevent().view(), text);
  }
}

TEST_F(Events, JsonHoldsSlotsAndValues) {
  EventWriter writer(EventForms::make(*driver_, EventForm::kJson));
  const char* const kRest =
      R"("constant":"WARNING","empty":"","quoted":"say \\\"%s\\\"\tx","where":"default","label":"label","file":"filename",)";
  EXPECT_EQ(R"({"class":"Plain","event_id":1,"slots":{},"values":[]})", event(writer, "no fields"));
  EXPECT_EQ(
      R"({"class":"Base","event_id":0,"slots":{"one":"it","two":"\"so\"",)" + std::string(kRest) +
          R"("all":"it|\"so\"|WARNINGlabel|%s.%s","both":"it and 100%","more":"it and %s"},"values":["it","\"so\""]})",
      event(writer, "it is \"so\""));
  EXPECT_EQ(R"({"class":"Next","event_id":2,"slots":{"one":"it","two":"a constant now",)" + std::string(kRest) +
                R"("all":"it|a constant now|WARNINGlabel|%s.%s","both":"it and 100%","more":"it and %s"},)" +
                R"("values":["it","so"]})",
            event(writer, "it was so"));
}

TEST_F(Events, SourcesHaveWordsOfTheirOwn) {
  const std::string path = "/var/log/" + std::string(40, 'x') + "\n";
  for (EventForm form : {EventForm::kText, EventForm::kJson}) {
    EventWriter writer(EventForms::make(*driver_, form));
    writer.setSource({.defaultText = "", .label = "web \"1\"", .fileName = path});
    const std::string text = event(writer, "a is b");
    const bool isJson = form == EventForm::kJson;
    EXPECT_NE(std::string::npos, text.find(isJson ? R"("where":"","label":"web \"1\"","file":"/var/log/xx)"
                                                  : "`where=' `label=web \"1\"' `file=/var/log/xx"));
    EXPECT_NE(std::string::npos, text.find(isJson ? "x\\n\"" : "x\n'"));
  }
}

TEST(JsonText, PlainIsWhatNeedsNoEscape) {
  for (std::size_t size = 0; size < 50; ++size) {
    std::string text(size, '~');
    EXPECT_TRUE(isPlainJson(text));
    for (char& c : text) {
      for (char other : {'"', '\\', '\x1F', '\x7F', '\x80', '\xFF'}) {
        c = other;
        EXPECT_FALSE(isPlainJson(text)) << text;
      }
      c = ' ';
    }
  }
}

}  // namespace
}  // namespace quillon
