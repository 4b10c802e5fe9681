#include "delivery/client/DeliveryConfig.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quillon::delivery {
namespace {

/// The faults as "line:column text", one a line.
std::optional<DeliveryConfig> read(const std::string& text, std::string& faults) {
  const toml::table document = toml::parse(text);
  std::vector<ConfigFault> found;
  TomlTable root(document, "", found);
  std::optional<DeliveryConfig> config = readDelivery(root, "/etc");
  root.finish();
  for (const ConfigFault& fault : found) {
    faults += std::to_string(fault.place.line) + ":" + std::to_string(fault.place.column) + " " + fault.text + "\n";
  }
  return config;
}

TEST(DeliveryConfig, FaultsAreToldWithTheirPlaces) {
  const std::string good = "[delivery]\ncache = \"c\"\n[destination.a]\ntype = \"stdout\"\n";
  struct Case {
    std::string text, expected;
  };
  const Case cases[] = {
      {good, ""},
      {"[delivery]\n", "1:1 the file needs destination\n1:1 [delivery] needs cache\n"},
      {"[destination]\n", "1:1 the file needs delivery\n1:1 there is no [destination.NAME]\n"},
      {"[delivery]\ncache = \"c\"\nsync_interval = \"1 s\"\nclient = \"a b\"\n[destination.\"a/b\"]\n",
       "3:17 delivery.sync_interval needs sync = \"interval\"\n"
       "4:10 the name of a client consists of letters, digits, \"_\", \"-\" and \".\", 128 at most\n"
       "5:1 the name of a destination consists of letters, digits, \"_\" and \"-\", 128 at most\n"},
      {"[delivery]\ncache = \"c\"\n[destination.a]\n[destination.b]\ntype = \"fil\"\n",
       "3:1 [destination.a] needs type\n5:8 unknown value \"fil\"; did you mean \"file\"?\n"},
      {good + "path = \"x\"\n[destination.b]\ntype = \"file\"\n",
       "5:1 unknown key destination.a.path\n6:1 [destination.b] needs path\n"},
      {good + "[delivery.filter]\naction = \"drop\"\n", "5:1 delivery.filter must be tables, [[delivery.filter]]\n"},
      {good + "[[destination.a.filter]]\nclass = \"A*\"\n[[destination.a.filter]]\naction = \"drop\"\n"
              "slot.u = {}\nslot.v = {matches = \"(\"}\nslot.w = {absent = true, equals = \"x\"}\n",
       "5:1 [destination.a.filter] needs action\n"
       "9:10 say what is asked of the slot: equals, matches or absent = true\n"
       "10:21 no regular expression: missing ): (\n"
       "11:20 a slot that is absent has no value\n"},
      {"[delivery]\ncache = \"c\"\nform = \"attributes\"\n[[delivery.filter]]\naction = \"drop\"\n"
       "slot.u.equals = \"x\"\n[destination.a]\ntype = \"stdout\"\n",
       "6:1 filters on slots need form = \"event\": the slots are made by whoever gets this form\n"},
      {"[delivery]\ncache = \"c\"\nform = \"raw\"\n[destination.a]\ntype = \"stdout\"\n[[destination.a.filter]]\n"
       "action = \"drop\"\nclass = \"x\"\n",
       "8:9 with form = \"raw\" there are no classes yet: whoever gets the messages binds them\n"},
  };
  for (const Case& c : cases) {
    std::string faults;
    EXPECT_TRUE(read(c.text, faults).has_value());
    EXPECT_EQ(c.expected, faults) << c.text;
  }
  std::string faults;
  EXPECT_FALSE(read("", faults).has_value());
  EXPECT_EQ("", faults);
}

TEST(DeliveryConfig, ValuesArrive) {
  std::string faults;
  const auto config = read(
      "[delivery]\ncache = \"../var/c/\"\nsync = \"interval\"\nsync_interval = \"50 ms\"\nmax_bytes = \"2 MiB\"\n"
      "when_full = \"drop_oldest\"\nreplay_window = \"3 s\"\nform = \"attributes\"\nclient = \"web-1.example\"\n"
      "buffer = 8192\nrate_limit = 7\n[destination.b]\ntype = \"file\"\npath = \"x\"\n[destination.a]\ntype = "
      "\"stdout\"\n",
      faults);
  ASSERT_TRUE(config.has_value()) << faults;
  EXPECT_EQ("", faults);
  EXPECT_EQ("/var/c", config->cache.directory);
  EXPECT_EQ(Sync::kInterval, config->cache.sync);
  EXPECT_EQ(std::chrono::milliseconds(50), config->cache.syncInterval);
  EXPECT_EQ(2U << 20, config->cache.maxBytes);
  EXPECT_EQ(WhenFull::kDropOldest, config->cache.whenFull);
  EXPECT_EQ(std::chrono::seconds(3), config->cache.replayWindow);
  EXPECT_EQ(RecordForm::kAttributes, config->form);
  EXPECT_EQ("web-1.example", config->client);
  EXPECT_EQ(8192U, config->bufferBytes);
  EXPECT_EQ(7U, config->rateLimit);
  ASSERT_EQ(2U, config->destinations.size());
  EXPECT_EQ("b", config->destinations[0].name);
}

/// The letters of the events, of those below, that pass.
std::string passing(const std::string& rules) {
  std::string faults;
  const toml::table document = toml::parse(rules);
  std::vector<ConfigFault> found;
  TomlTable table(document, "", found);
  const Filter filter = readFilter(table, RecordForm::kEvent);
  EXPECT_TRUE(found.empty()) << rules << (found.empty() ? "" : found.front().text);
  struct Known {
    char letter;
    std::string_view className, user, severity;
  };
  const Known events[] = {{'a', "Sshd_Login", "root", "WARNING"},
                          {'b', "Sshd_Login", "ann", "HARMLESS"},
                          {'c', "Sshd_Debug", "", "HARMLESS"},
                          {'d', "Sudo_Run", "root", "CRITICAL"}};
  std::string letters;
  for (const Known& event : events) {
    Record record;
    record.className = event.className;
    if (!event.user.empty()) record.values.push_back({"user", event.user});
    record.values.push_back({"severity", event.severity});
    if (filter.passes(record)) letters += event.letter;
  }
  return letters;
}

TEST(Filter, TheFirstRuleCountsAndThenTheOppositeOfTheLast) {
  struct Case {
    const char *rules, *expected;
  };
  const Case cases[] = {
      {"", "abcd"},
      {"[[filter]]\naction='drop'\nclass='Sshd_*'\n", "d"},
      {"[[filter]]\naction='pass'\nclass='Sshd_*'\n", "abc"},
      {"[[filter]]\naction='drop'\nclass='Sshd_Debug'\n[[filter]]\naction='pass'\nclass=['Sshd_?ogin','Sshd_D*']\n",
       "ab"},
      {"[[filter]]\naction='pass'\nclass='Sshd_Login'\n[[filter]]\naction='drop'\nclass='Sshd_*'\n", "abd"},
      {"[[filter]]\naction='drop'\nslot.user.equals='root'\nslot.severity.equals=['CRITICAL','x']\n", "abc"},
      {"[[filter]]\naction='pass'\nslot.user.absent=true\n", "c"},
      {"[[filter]]\naction='pass'\nslot.user.matches='^r|nn$'\n", "abd"},
      {"[[filter]]\naction='drop'\nclass='Su*'\nslot.user.matches='oo'\n", "abc"},
      {"[[filter]]\naction='drop'\n", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, passing(c.rules)) << c.rules;
}

}  // namespace
}  // namespace quillon::delivery
