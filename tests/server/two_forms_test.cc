// Two forms, one event, all the way: what the server has in its cache of attributes that came through a socket is what
// the adapter makes itself, byte for byte.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cds/CdsId.h"
#include "tests/cds/two_forms.h"
#include "tests/match/support/log_lines.h"
#include "tests/match/support/scaled_set.h"
#include "tests/match/support/set_generator.h"
#include "tests/server/processes.h"
#include "tests/server/sender.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

class TwoFormsByServer : public testing::Test {
 protected:
  TwoFormsByServer() {
    std::filesystem::create_directory(path("cds"));
    writeFile(path("server.toml"),
              "[listen.l]\ntype = \"unix\"\npath = \"s\"\n[cds]\npath = \"cds\"\nparked = \"parked\"\n"
              "[delivery]\ncache = \"cache\"\nreplay_window = \"1 h\"\nsync = \"off\"\n"
              "[destination.out]\ntype = \"file\"\npath = \"out\"\n");
  }
  std::string path(const std::string& name) const { return directory_.path() / name; }

  /// What becomes of `lines` by these formats.
  void add(const std::string& formats, const std::vector<std::string>& lines) {
    TwoForms forms(formats);
    if (forms.isRefused()) return;
    ASSERT_EQ("", forms.failure());
    const CdsId id = cdsId(forms.definitions());
    writeFile(path("cds/" + id.hex() + ".cds"), forms.definitions());
    delivery::Record record;
    record.form = delivery::RecordForm::kAttributes;
    record.set = id.bytes();
    for (const std::string& line : lines) {
      const std::size_t before = forms.bound();
      ASSERT_EQ("", forms.difference(line)) << line;  // latest() is the adapter's too
      if (forms.bound() == before) continue;
      record.eventId = forms.eventId();
      record.values = forms.sent();
      encode(record, sent_.emplace_back());
      expected_.push_back(forms.latest());
    }
  }

  static std::string textOf(const std::string& bytes) {
    delivery::Record record;
    if (!decode(bytes, record) || record.form != delivery::RecordForm::kEvent) return "no event";
    return plainText({record.className, record.eventId, record.values});
  }

  const ScratchDirectory directory_;
  std::vector<std::string> sent_, expected_;
};

TEST_F(TwoFormsByServer, GiveOneEvent) {
  for (const System& system : systemsIn(EXAMPLES)) add(readFile(system.formats), system.lines);
  const std::size_t examples = sent_.size();
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    SetGenerator generator(seed);
    Random random(seed);
    const std::string formats =
        seed % 2 == 0 ? formatFile(generator.formats()) : withOddSlots(generator.formats(), random);
    std::vector<std::string> lines(50);
    for (std::string& line : lines) line = generator.message();
    add(formats, lines);
  }
  const ScaledSet set(1000, ScaledSet::kMostHeaders);
  Random random(2);
  std::vector<std::string> lines(500);
  for (std::string& line : lines) line = set.line(random);
  add(formatFile(set.formats()), lines);
  ASSERT_LT(40, examples);
  ASSERT_LT(examples + 1000, sent_.size());

  const Process server(path("server.toml"), path("log"));
  ASSERT_TRUE(waitUntil([&] { return readFile(path("log")).find("listening at") != std::string::npos; }));
  Sender sender("path = \"s\"\n", directory_.path(), "web1");
  for (const std::string& bytes : sent_) sender.feed().add(bytes, delivery::RecordForm::kAttributes);
  ASSERT_TRUE(sender.feed().waitDelivered(sent_.size()));
  const std::vector<std::string> stored = bytesIn(path("cache"));
  ASSERT_EQ(sent_.size(), stored.size()) << readFile(path("log"));
  for (std::size_t i = 0; i < stored.size(); ++i) ASSERT_EQ(expected_[i], textOf(stored[i])) << i;
  EXPECT_EQ(std::string::npos, readFile(path("log")).find("error")) << readFile(path("log"));
}

}  // namespace
}  // namespace quillon
