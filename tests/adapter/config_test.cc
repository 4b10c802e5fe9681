#include "adapter/Config.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/scratch.h"

namespace quillon {
namespace {

constexpr const char* kSource = "[source.a]\ntype = \"stdin\"\nformats = \"a.fmt\"\n";

/// The faults as "line:column text", one a line; "good" when there are none.
std::string faultsOf(const std::string& text) {
  std::vector<ConfigFault> faults;
  const bool good = parseConfig(text, "/etc", faults).has_value();
  EXPECT_EQ(good, faults.empty()) << text;
  std::string lines;
  for (const ConfigFault& fault : faults) {
    lines += std::to_string(fault.place.line) + ":" + std::to_string(fault.place.column) + " " + fault.text + "\n";
  }
  return good ? "good" : lines;
}

TEST(Config, FaultsAreToldWithTheirPlaces) {
  struct Case {
    const char *text, *expected;  // in front of the source, which begins on the line behind
  };
  const Case cases[] = {
      {"", "good"},
      {"stat = \"x\"\n", "1:1 unknown key stat; did you mean state?\n"},
      {"frobnicate = 1\n", "1:1 unknown key frobnicate\n"},
      {"state = 1\n", "1:9 state must be a string\n"},
      {"state = \"\"\n", "1:9 state must not be empty\n"},
      {"metrics = \"0.0.0.0:9464\"\n",
       "1:11 metrics must be a loopback address with a port, such as \"127.0.0.1:9464\"\n"},
      {"metrics = \"[::1]:9464\"\n", "good"},
      {"[log]\nlevel = \"warn\"\n", "2:9 unknown value \"warn\"; it must be \"error\", \"warning\" or \"info\"\n"},
      {"[log]\nlevel = \"debug\"\n",  // nothing is told at such a level
       "2:9 unknown value \"debug\"; it must be \"error\", \"warning\" or \"info\"\n"},
      {"[log]\nlevel = \"eror\"\n", "2:9 unknown value \"eror\"; did you mean \"error\"?\n"},
      {"[output]\nrotate = \"daily\"\n", "2:10 output.rotate needs output.path: only files rotate\n"},
      {"[output]\npath = \"x\"\nmax_size = \"4 KiB\"\nkeep = 1\n", "good"},
      {"[output]\npath = \"x\"\nmax_size = \"4 potatoes\"\nkeep = 0\n",
       "3:12 output.max_size must be a size, such as 4096 or \"64 MiB\"\n"
       "4:8 output.keep must be from 1 to 1000\n"},
      {"[output]\npath = \"x\"\nmax_size = 4095\n",
       "3:12 output.max_size must be from 4096 to 1125899906842624 bytes\n"},
      {"[source.b]\ntype = \"file\"\nformats = \"f\"\npath = \"p\"\npoll_interval = \"nan s\"\nmax_message = "
       "\"nan\"\nmultiline_wait = \"inf s\"\n",
       "5:17 source.b.poll_interval must be a time with its unit, such as \"250 ms\", \"2 s\" or \"5 min\"\n"
       "6:15 source.b.max_message must be a size, such as 4096 or \"64 MiB\"\n"
       "7:18 source.b.multiline_wait must be a time with its unit, such as \"250 ms\", \"2 s\" or \"5 min\"\n"},
      {"[source]\n\"a b\" = {}\n", "2:9 the name of a source consists of letters, digits, \"_\" and \"-\"\n"},
      {"[source.b]\n", "1:1 [source.b] needs formats\n1:1 [source.b] needs type\n"},
      {"[source.b]\ntype = \"file\"\nformats = \"f\"\npath = [1]\n", "4:9 source.b.path must be an array of strings\n"},
      {"[source.b]\ntype = \"file\"\nformats = \"f\"\npath = []\n[source.c]\ntype = \"file\"\nformats = \"\"\npath = "
       "\"\"\n[source.d]\ntype = \"file\"\nformats = \"f\"\npath = [\"a\", \"\", \"b\\u0000\"]\nexclude = []\n",
       "4:8 there must be one path or pattern at least\n"
       "7:11 source.c.formats must not be empty\n"
       "8:8 source.c.path must not be empty\n"
       "12:14 source.d.path must not be empty\n"
       "12:18 source.d.path must not hold a NUL character\n"},
      {"[source.b]\ntype = \"fifo\"\nformats = \"f\"\npath = \"p\"\nmode = \"0888\"\nmultiline_wait = 2\n",
       "5:8 source.b.mode must be permissions in octal digits, such as \"0640\"\n"
       "6:18 source.b.multiline_wait must be a time with its unit, such as \"250 ms\", \"2 s\" or \"5 min\"\n"},
      {"[source.b]\ntype = \"stdin\"\nformats = \"f\"\nmax_message = \"65 MiB\"\npath = \"p\"\n",
       "4:15 source.b.max_message must be from 64 to 67108864 bytes\n5:1 unknown key source.b.path\n"},
      {"[output]\npath = \"log/events\"\n[source.b]\ntype = \"file\"\nformats = \"f\"\npath = \"log/*\"\nunmatched = "
       "\"log/x\"\n",
       "6:8 the adapter itself writes /etc/log/events, which this follows: exclude it\n"
       "6:8 the adapter itself writes /etc/log/x, which this follows: exclude it\n"},
      {"[output]\npath = \"log/events\"\n[source.b]\ntype = \"file\"\nformats = \"f\"\npath = \"log/*\"\nexclude = "
       "\"ev*\"\n",
       "good"},
      {"state = \"log\"\n[output]\npath = \"log/events\"\nrotate = \"size\"\n[source.b]\ntype = \"file\"\nformats = "
       "\"f\"\n"
       "path = [\"log/ev*\", \"./**/pos*.new\"]\nexclude = \"events\"\n",
       "8:8 the adapter itself writes /etc/log/events.1, which this follows: exclude it\n"
       "8:8 the adapter itself writes /etc/log/positions.new, which this follows: exclude it\n"},
      {"[output]\npath = \"../etc/x/../a.fmt\"\n",
       "2:8 the adapter would write into /etc/a.fmt, which is a format file\n"},
      {"state = \"/s/\"\n[output]\npath = \"/s/positions.lock\"\n",
       "3:8 the adapter would write into /s/positions.lock, which is a part of the state\n"},
      {"[output]\npath = \"e\"\n[source.b]\ntype = \"fifo\"\nformats = \"f\"\npath = \"p\"\nunmatched = \"./e\"\n"
       "[source.c]\ntype = \"unix\"\nformats = \"f\"\npath = \"u\"\nunmatched = \"p\"\n"
       "[source.d]\ntype = \"stdin\"\nformats = \"f\"\nunmatched = \"u.lock\"\n",
       "7:13 the adapter would write into /etc/e, which is where events go\n"
       "12:13 the adapter would write into /etc/p, which is what source.b reads\n"
       "16:13 the adapter would write into /etc/u.lock, which is the lock file of source.c\n"},
      {"[output]\npath = \"e\"\n[source.b]\ntype = \"stdin\"\nformats = \"f\"\nunmatched = \"u\"\n"
       "[source.c]\ntype = \"stdin\"\nformats = \"f\"\nunmatched = \"u\"\n",  // one for two is fine
       "good"},
      {"[delivery]\ncache = \"c\"\n[destination.d]\ntype = \"stdout\"\n", "good"},
      {"[delivery]\ncache = \"c\"\nform = \"raw\"\n[destination.d]\ntype = \"stdout\"\n",
       "8:11 with form = \"raw\" messages are sent as they are: no formats bind them\n"},
      {"state = \"s\"\n[output]\n[delivery]\ncache = \"c\"\n[destination.d]\ntype = \"stdout\"\n",
       "1:9 with [delivery] there is no state: where sources are is kept in the cache\n"
       "2:1 [output] and [delivery] exclude each other: events go one way\n"},
      {"[delivery]\ncache = \"log\"\n[destination.d]\ntype = \"file\"\npath = \"log.1\"\n"
       "[source.b]\ntype = \"file\"\nformats = \"f\"\npath = [\"log*\", \"log/l*er\"]\n",
       "9:8 the adapter itself writes /etc/log.1, which this follows: exclude it\n"
       "9:8 the adapter itself writes /etc/log/ledger, which this follows: exclude it\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, faultsOf(std::string(c.text) + kSource)) << c.text;

  EXPECT_EQ("1:1 the file needs source\n", faultsOf("state = \"x\"\n"));
  const std::string broken = faultsOf("state = \n");
  EXPECT_TRUE(broken.starts_with("1:")) << broken;
}

TEST(Config, AddressesAreChecked) {
  struct Case {
    const char* address;
    bool isGood, isLoopback;
  };
  const Case cases[] = {
      {"127.0.0.1:1", true, true},
      {"127.9.9.9:65535", true, true},
      {"[::1]:99", true, true},
      {"localhost:99", true, true},
      {"[::]:514", true, false},
      {"192.0.2.1:514", true, false},
      {":514", true, false},
      {"log-1.example:514", true, false},
      {"[fe80::1%eth0]:5", true, false},
      {"127.example.org:99", true, false},
      {"", false, false},
      {"foo", false, false},
      {"foo:", false, false},
      {":", false, false},
      {":0", false, false},
      {":99999", false, false},
      {"127.0.0.1:abc", false, false},
      {"127.0.0.1:+9", false, false},
      {"[::1]:99999", false, false},
      {"::1:514", false, false},
      {"[]:514", false, false},
      {"[127.0.0.1]:514", false, false},
      {"[fe80::1%]:5", false, false},
      {"[", false, false},
      {"[:5", false, false},
      {"256.0.0.1:514", false, false},
      {"127.1:514", false, false},
      {"a b:514", false, false},
  };
  const std::string wanted = " the address must be HOST:PORT, such as \"192.0.2.1:514\", \"[::1]:514\" or \":514\"\n";
  for (const Case& c : cases) {
    const std::string quoted = '"' + std::string(c.address) + '"';
    const bool isEmpty = c.address[0] == '\0';
    for (const char* type : {"tcp", "udp"}) {
      const std::string text =
          "[source.b]\ntype = \"" + std::string(type) + "\"\nformats = \"f\"\naddress = " + quoted + "\n";
      const std::string fault = "4:11" + (isEmpty ? " source.b.address must not be empty\n" : wanted);
      EXPECT_EQ(c.isGood ? "good" : fault, faultsOf(text)) << c.address;
    }
    const std::string told = faultsOf("metrics = " + quoted + "\n" + kSource);
    EXPECT_EQ(c.isLoopback, told == "good") << c.address << told;
    EXPECT_TRUE(c.isLoopback || told.starts_with("1:11 metrics must ")) << told;
  }
}

TEST(Config, ValuesArrive) {
  std::vector<ConfigFault> faults;
  const std::optional<Config> config = parseConfig(R"(
state = "var"
[log]
form = "json"
[source.z]
type = "file"
path = ["*.log", "/x/**"]
exclude = ["*.gz", "old/*"]
formats = "/f"
start = "end"
poll_interval = "1.5 s"
max_message = "64 MiB"
join = "indented"
order = "file"
[source.a]
type = "unix"
path = "dev/log"
mode = "0620"
formats = "g"
)",
                                                   "/etc", faults);
  ASSERT_TRUE(config) << faults.front().text;
  EXPECT_EQ("/etc/var", config->state);
  EXPECT_TRUE(config->log.json);
  ASSERT_EQ(2U, config->sources.size());
  EXPECT_EQ("z", config->sources[0].name);  // in the order of the file
  EXPECT_EQ("/f", config->sources[0].formats);
  EXPECT_EQ(FormatOrder::kOfFile, config->sources[0].order);
  const auto& files = std::get<FileOptions>(config->sources[0].input);
  EXPECT_EQ((std::vector<std::string>{"/etc/*.log", "/x/**"}), files.include);
  EXPECT_EQ((std::vector<std::string>{"*.gz", "/etc/old/*"}), files.exclude);
  EXPECT_TRUE(files.fromEnd);
  EXPECT_TRUE(files.joining.indented);
  EXPECT_EQ(std::chrono::milliseconds(1500), files.pollInterval);
  EXPECT_EQ(64U << 20, files.longest);
  const auto& datagrams = std::get<DatagramOptions>(config->sources[1].input);
  EXPECT_EQ("/etc/dev/log", datagrams.address);
  EXPECT_EQ(0620U, datagrams.mode);
}

/// The name of a file must not depend on how the configuration or the file was spelled: state is kept under it.
TEST(Config, PathsAreAbsoluteAndPlain) {
  const ScratchDirectory scratch;
  const std::filesystem::path directory = scratch.path() / "a[1]*";
  writeFile(directory / "x.toml",
            "state = './s/'\n[source.a]\ntype = 'file'\nformats = '../f'\npath = ['l/../*.log', '/v//./w/**']\n"
            "exclude = ['./o/*', '*.gz']\nunmatched = '/u/../x'\n");
  std::vector<ConfigFault> faults;
  const std::optional<Config> config = readConfig(std::filesystem::relative(directory / "x.toml"), faults);
  ASSERT_TRUE(config) << faults.front().text;
  EXPECT_EQ((directory / "s").string(), config->state);
  EXPECT_EQ((scratch.path() / "f").string(), config->sources[0].formats);
  EXPECT_EQ("/x", config->sources[0].unmatched);
  const auto& files = std::get<FileOptions>(config->sources[0].input);
  // The directory's own name is no pattern.
  const std::string prefix = (scratch.path() / "a\\[1]\\*").string();
  EXPECT_EQ((std::vector<std::string>{prefix + "/*.log", "/v/w/**"}), files.include);
  EXPECT_EQ((std::vector<std::string>{prefix + "/o/*", "*.gz"}), files.exclude);
}

TEST(Config, FilesThatCannotBeReadAreTold) {
  const ScratchDirectory directory;
  std::vector<ConfigFault> faults;
  EXPECT_FALSE(readConfig(directory.path() / "none.toml", faults));
  EXPECT_FALSE(readConfig(directory.path(), faults));
  ASSERT_EQ(2U, faults.size());
  EXPECT_EQ("cannot read " + (directory.path() / "none.toml").string() + ": No such file or directory", faults[0].text);
  EXPECT_EQ("cannot read " + directory.path().string() + ": Is a directory", faults[1].text);
}

}  // namespace
}  // namespace quillon
