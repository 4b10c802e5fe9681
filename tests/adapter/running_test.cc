#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

#include "foundation/descriptor.h"
#include "src/adapters/logfile/source/StateFile.h"
#include "tests/adapter/adapter_process.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

/// So many times more than in the suite is done by a longer run.
int scale() {
  const char* const value = std::getenv("QUILLON_SCALE");
  return value ? std::max(1, std::atoi(value)) : 1;
}

class Running : public testing::Test {
 protected:
  fs::path path(const std::string& name) const { return directory_.path() / name; }
  std::string text(const std::string& name) const { return readFile(path(name)); }

  AdapterProcess::Options options(bool once = false) const {
    AdapterProcess::Options options;
    options.config = path("adapter.toml");
    options.log = path("messages");
    options.once = once;
    return options;
  }

  void append(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::app | std::ios::binary) << text;
  }

  std::size_t lineCount(const std::string& name) const {
    const std::string all = text(name);
    return static_cast<std::size_t>(std::ranges::count(all, '\n'));
  }

  /// Starts an adapter that runs on, and waits until it does.
  std::unique_ptr<AdapterProcess> start() const {
    auto adapter = std::make_unique<AdapterProcess>(options());
    EXPECT_TRUE(waitUntil([this] { return text("messages").find("reading 1 source") != std::string::npos; }));
    return adapter;
  }

  /// How often the adapter has said that a reload is done, whatever came of it.
  int reloadsTold() const {
    const std::string all = text("messages");
    int told = 0;
    for (const char* end : {"configuration reloaded\n", "the one before goes on\n"}) {
      for (std::size_t at = 0; (at = all.find(end, at)) != std::string::npos; ++at) ++told;
    }
    return told;
  }

  void end(AdapterProcess& adapter) const {
    adapter.signal(SIGTERM);
    EXPECT_EQ(0, adapter.wait()) << text("messages");
  }

  const ScratchDirectory directory_;
};

constexpr const char* kTail =
    "[source.s]\ntype = \"file\"\npath = \"log\"\nformats = \"formats\"\npoll_interval = \"20 ms\"\n"
    "multiline_wait = \"20 s\"\n";

// The same events, byte for byte, whatever the pieces are that a text comes in, and wherever it is rotated.
TEST_F(Running, PiecesChangeNothing) {
  writeFile(path("formats"),
            "FORMAT Three\nbegin %s%nmiddle%nend %s\na $1\nb $2\nEND\nFORMAT Two\nbegin %s%nend %s\na $1\nb $2\nEND\n"
            "FORMAT One\nother %s\na $1\nEND\n");
  std::mt19937 random(11);
  std::string whole;
  const char* const lines[] = {"begin x", "middle", "end y", "other z", "else"};
  for (int i = 0; i < 400 * scale(); ++i) {
    whole += lines[random() % std::size(lines)];
    if (random() % 8 == 0) whole += "\xC3\xA9 \x1B[1m";
    whole += '\n';
  }
  writeFile(path("adapter.toml"), std::string("[output]\npath = \"at-once\"\nform = \"json\"\n") + kTail);
  writeFile(path("log"), whole);
  AdapterProcess reference(options(true));
  ASSERT_EQ(0, reference.wait()) << text("messages");
  fs::remove(path("messages"));

  writeFile(path("log"), "");
  writeFile(path("adapter.toml"), std::string("[output]\npath = \"events\"\nform = \"json\"\n") + kTail);
  const auto adapter = start();
  int rotations = 0;
  for (std::size_t at = 0, round = 0; at < whole.size(); ++round) {
    std::size_t length = std::min<std::size_t>(round % 3 == 0 ? 1 : 1 + random() % 200, whole.size() - at);
    if (round % 5 == 0) length = whole.find('\n', at) + 1 - at;
    append("log", whole.substr(at, length));
    at += length;
    if (whole[at - 1] == '\n' && random() % 2 == 0) fs::rename(path("log"), path("log." + std::to_string(++rotations)));
    if (round % 7 == 0) std::this_thread::sleep_for(milliseconds(3));
  }
  EXPECT_LT(3, rotations);
  EXPECT_TRUE(waitUntil([this] { return lineCount("events") >= lineCount("at-once"); })) << text("messages");
  end(*adapter);
  EXPECT_EQ(text("at-once"), text("events"));
}

TEST_F(Running, ReloadsLoseNothing) {
  const int count = 20'000 * scale();
  const auto formats = [this](const std::string& set, bool broken) {
    writeFile(path("formats.new"), "FORMAT " + set + "\nline %s\nn $1\nEND\n" + (broken ? "FORMAT\n" : ""));
    fs::rename(path("formats.new"), path("formats"));
  };
  formats("Set0", false);
  writeFile(path("log"), "");
  writeFile(path("adapter.toml"), std::string("[output]\npath = \"events\"\n") + kTail);
  const auto adapter = start();
  const int reloads = 10 * scale();
  int done = 0;
  for (int i = 0; i < count; i += 100) {
    std::string lines;
    for (int k = i; k < i + 100; ++k) lines += "line " + std::to_string(k) + "\n";
    append("log", lines);
    if (i / 100 % (count / 100 / reloads) == 0) {
      EXPECT_TRUE(waitUntil([&] { return reloadsTold() == done; }));
      ++done;
      formats("Set" + std::to_string(done), done % 10 == 0);
      adapter->signal(SIGHUP);
    }
  }
  EXPECT_TRUE(waitUntil([&] { return reloadsTold() == done; }));
  formats("Last", false);
  adapter->signal(SIGHUP);
  EXPECT_TRUE(waitUntil([this, &count] { return lineCount("events") == static_cast<std::size_t>(count); }));
  EXPECT_TRUE(waitUntil([&] { return reloadsTold() == done + 1; }));
  append("log", "line behind\n");
  EXPECT_TRUE(waitUntil([this] { return text("events").ends_with("EVENT Last `n=behind' END\n"); }));
  end(*adapter);

  std::istringstream events(text("events"));
  int next = 0;
  int set = 0;
  for (std::string event; std::getline(events, event) && next < count; ++next) {
    int number = -1;
    int of = set;
    if (std::sscanf(event.c_str(), "EVENT Set%d `n=%d'", &of, &number) != 2) {
      ASSERT_EQ(1, std::sscanf(event.c_str(), "EVENT Last `n=%d'", &number)) << event;
    }
    ASSERT_EQ(next, number);
    ASSERT_LE(set, of) << event;
    ASSERT_TRUE(of == 0 || of % 10 != 0) << event;
    set = of;
  }
  EXPECT_EQ(count, next);
  EXPECT_NE(std::string::npos, text("messages").find("formats:5:7: syntax error"));  // where the broken ones are broken
}

TEST_F(Running, InputsComeAndGoWithTheConfiguration) {
  writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nlabel LABEL\nfile FILENAME\nEND\n");
  const auto configure = [this](const std::string& label, const std::string& sources) {
    std::string all = "state = \"state\"\n[output]\npath = \"events\"\n";
    for (const char name : sources) {
      all += std::string("[source.") + name + "]\ntype = \"file\"\npath = \"" + name +
             ".log\"\nformats = \"formats\"\n" + "poll_interval = \"20 ms\"\nlabel = \"" + label + "\"\n";
    }
    writeFile(path("adapter.toml"), all);
  };
  const auto event = [this](const std::string& n, const std::string& label, const std::string& file) {
    const std::string expected =
        "EVENT Line `n=" + n + "' `label=" + label + "' `file=" + path(file).string() + "' END\n";
    EXPECT_TRUE(waitUntil([&] { return text("events").find(expected) != std::string::npos; })) << expected;
  };
  configure("first", "a");
  append("a.log", "line 1\n");
  append("b.log", "line 2\n");
  const auto adapter = start();
  event("1", "first", "a.log");
  configure("second", "ab");
  adapter->signal(SIGHUP);
  event("2", "second", "b.log");
  append("a.log", "line 3\n");
  event("3", "second", "a.log");
  configure("third", "b");
  adapter->signal(SIGHUP);
  EXPECT_TRUE(waitUntil([this] { return reloadsTold() == 2; }));
  append("b.log", "line 4\n");
  event("4", "third", "b.log");
  append("a.log", "line 5\n");
  configure("fourth", "ab");
  adapter->signal(SIGHUP);
  event("5", "fourth", "a.log");  // goes on where it stopped
  end(*adapter);
  EXPECT_EQ(5U, lineCount("events"));

  // What is kept of a source that is not configured goes with its files.
  configure("fifth", "b");
  for (const bool isThere : {true, false}) {
    if (!isThere) fs::remove(path("a.log"));
    AdapterProcess once(options(true));
    EXPECT_EQ(0, once.wait());
    StateFile::Kept kept;
    EXPECT_TRUE(StateFile::parse(text("state/positions"), kept));
    EXPECT_EQ(isThere, kept.contains("a"));
    EXPECT_TRUE(kept.contains("b"));
  }
}

// One that cannot be taken over whole changes nothing: not the output, not the sources, not the unmatched messages.
TEST_F(Running, AReloadIsTakenWholeOrNotAtAll) {
  writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
  writeFile(path("plain"), "");
  const std::string file =
      "[source.s]\ntype = \"file\"\npath = \"log\"\nformats = \"formats\"\npoll_interval = \"20 ms\"\n";
  const auto reload = [&](AdapterProcess& adapter, const std::string& configuration) {
    writeFile(path("adapter.toml"), configuration);
    const int told = reloadsTold();
    adapter.signal(SIGHUP);
    EXPECT_TRUE(waitUntil([&] { return reloadsTold() == told + 1; }));
  };
  const std::string first = "[output]\npath = \"events\"\n" + file;
  writeFile(path("adapter.toml"), first + "unmatched = \"rest\"\n");
  writeFile(path("log"), "");
  const auto adapter = start();
  const std::string refused[] = {
      "[output]\npath = \"none/events\"\n" + file,
      first + "unmatched = \"none/rest\"\n",
      "[output]\npath = \"other\"\n" + file + "[source.f]\ntype = \"fifo\"\npath = \"plain\"\nformats = \"formats\"\n",
  };
  int n = 0;
  for (const std::string& configuration : refused) {
    reload(*adapter, configuration);
    EXPECT_TRUE(text("messages").ends_with("the one before goes on\nquillon-adapter: info: reading 1 source\n"));
    append("log", "line " + std::to_string(n++) + "\nrest\n");
    EXPECT_TRUE(waitUntil([&] { return lineCount("events") == static_cast<std::size_t>(n); }));
    EXPECT_TRUE(waitUntil([&] { return lineCount("rest") == static_cast<std::size_t>(n); }));
  }
  EXPECT_EQ("", text("other"));

  // Other files for both, and the input read in another way, while lines come: each arrives once.
  for (int i = 0; i < 20; ++i) {
    append("log", "rest\nline " + std::to_string(n++) + "\n");
    reload(*adapter, "[output]\npath = \"events" + std::to_string(i) + "\"\n" + file + "unmatched = \"rest" +
                         std::to_string(i) + "\"\nmax_message = " + std::to_string(1000 + i) + "\n");
  }
  append("log", "line last\n");
  EXPECT_TRUE(waitUntil([this] { return text("events19").ends_with("EVENT Line `n=last' END\n"); }));
  end(*adapter);
  std::string events = text("events");
  std::size_t rest = lineCount("rest");
  for (int i = 0; i < 20; ++i) {
    events += text("events" + std::to_string(i));
    rest += lineCount("rest" + std::to_string(i));
  }
  std::string expected;
  for (int i = 0; i < n; ++i) expected += "EVENT Line `n=" + std::to_string(i) + "' END\n";
  EXPECT_EQ(expected + "EVENT Line `n=last' END\n", events);
  EXPECT_EQ(static_cast<std::size_t>(n), rest);
}

// An end in good order does not decide about the first half of a message.
TEST_F(Running, HalfAMessageWaitsForTheNextStart) {
  writeFile(path("formats"), "FORMAT Two\na %s%nb %s\na $1\nb $2\nEND\n");
  writeFile(path("adapter.toml"), std::string("state = \"state\"\n[output]\npath = \"events\"\n") + kTail);
  writeFile(path("log"), "");
  auto adapter = start();
  append("log", "a 1\n");
  std::this_thread::sleep_for(milliseconds(50));
  end(*adapter);
  append("log", "b 2\n");
  AdapterProcess once(options(true));
  EXPECT_EQ(0, once.wait());
  EXPECT_EQ("EVENT Two `a=1' `b=2' END\n", text("events"));
}

// A reader that does not read holds up neither signals nor, for long, the end.
TEST_F(Running, ABlockedOutputDoesNotBlockTheAdapter) {
  writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
  ASSERT_EQ(0, mkfifo(path("events").c_str(), 0600));
  const Descriptor reader(::open(path("events").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  writeFile(path("adapter.toml"), std::string("[output]\npath = \"events\"\n") + kTail);
  std::string lines;
  for (int i = 0; i < 20'000; ++i) lines += "line " + std::to_string(i) + "\n";
  writeFile(path("log"), lines);
  const auto adapter = start();
  adapter->signal(SIGHUP);
  EXPECT_TRUE(waitUntil([this] { return reloadsTold() == 1; }));
  std::string events;
  const auto read = [&] {
    char room[4096];
    for (ssize_t count; (count = ::read(reader.get(), room, sizeof room)) > 0;) {
      events.append(room, static_cast<std::size_t>(count));
    }
    return events.ends_with("`n=19999' END\n");
  };
  EXPECT_TRUE(waitUntil(read));
  EXPECT_EQ(20'000, std::ranges::count(events, '\n'));
  append("log", lines);
  std::this_thread::sleep_for(milliseconds(50));
  adapter->signal(SIGTERM);
  EXPECT_EQ(1, WEXITSTATUS(adapter->wait()));
  EXPECT_NE(std::string::npos, text("messages").find("ending without the last events"));
}

class Logrotate : public Running, public testing::WithParamInterface<const char*> {};

// logrotate itself, under a writer at full speed. What copytruncate destroys between the copy and the cut cannot be
// read by anybody, but may have been read before; all that is left in the files must arrive, once, in its order.
TEST_P(Logrotate, LosesNoLine) {
  const bool copies = std::string_view(GetParam()) == "copytruncate";
  writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
  writeFile(path("adapter.toml"), std::string("[output]\npath = \"events\"\n") + kTail);
  writeFile(path("rotate.conf"), path("log").string() + " {\n  rotate 1000\n  " + GetParam() + "\n}\n");
  chmod(path("rotate.conf").c_str(), 0644);
  writeFile(path("log"), "");
  const auto adapter = start();

  const std::string padding = std::string(100, ' ') + "\n";  // short texts cannot be told apart
  std::atomic<bool> ending = false;
  int written = 0;
  std::thread writer([&] {
    while (!ending) {
      const Descriptor log(::open(path("log").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
      if (!log) continue;  // logrotate is about to make it
      for (int i = 0; !ending && (copies || i < 50); ++i) {
        EXPECT_EQ(0, writeAll(log.get(), "line " + std::to_string(written++) + padding));
        if (i % 10 == 0) std::this_thread::sleep_for(milliseconds(1));
      }
    }
  });
  for (int i = 0; i < 5 * scale(); ++i) {
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(0, std::system(("PATH=$PATH:/usr/sbin logrotate -f -s " + path("status").string() + " " +
                              path("rotate.conf").string())
                                 .c_str()));
  }
  ending = true;
  writer.join();
  append("log", "line " + std::to_string(written++) + padding);
  const std::string last = "EVENT Line `n=" + std::to_string(written - 1) + "' END\n";
  EXPECT_TRUE(waitUntil([&] { return text("events").ends_with(last); })) << text("messages");
  end(*adapter);

  std::set<int> left;
  for (const auto& file : fs::directory_iterator(directory_.path())) {
    if (!file.path().filename().string().starts_with("log")) continue;
    std::istringstream lines(readFile(file.path()));
    for (std::string line; std::getline(lines, line);) left.insert(std::stoi(line.substr(5)));
  }
  if (!copies) {
    EXPECT_EQ(static_cast<std::size_t>(written), left.size());
  }
  std::istringstream events(text("events"));
  int before = -1;
  for (std::string event; std::getline(events, event);) {
    int number = -1;
    ASSERT_EQ(1, std::sscanf(event.c_str(), "EVENT Line `n=%d'", &number)) << event;
    ASSERT_TRUE(before < number) << before << " before " << number;
    before = number;
    left.erase(number);
  }
  EXPECT_EQ(0U, left.size()) << "the first that is missing: " << *left.begin() << "\n" << text("messages");
}

INSTANTIATE_TEST_SUITE_P(Ways, Logrotate, testing::Values("create", "copytruncate"));

/// A TCP port that nobody listens on at this moment.
int freePort() {
  const Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  EXPECT_EQ(0, bind(listener.get(), reinterpret_cast<sockaddr*>(&address), length));
  EXPECT_EQ(0, getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length));
  return ntohs(address.sin_port);
}

std::string fetchMetrics(int port) {
  const Descriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return "";
  if (writeAll(connection.get(), "GET /metrics HTTP/1.0\r\n\r\n") != 0) return "";
  std::string answer;
  char room[4096];
  for (ssize_t count; (count = read(connection.get(), room, sizeof room)) > 0;) {
    answer.append(room, static_cast<std::size_t>(count));
  }
  return answer;
}

// What the service manager and the monitoring get to see.
TEST_F(Running, IsSeenFromOutside) {
  const std::string name = path("notify");
  const Descriptor manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(0, bind(manager.get(), reinterpret_cast<sockaddr*>(&address), sizeof address));
  setenv("NOTIFY_SOCKET", name.c_str(), 1);
  setenv("WATCHDOG_USEC", "40000", 1);
  std::string told;
  const auto listen = [&] {  // all the time, as a manager does: its queue is short
    char room[512];
    for (ssize_t count; (count = recv(manager.get(), room, sizeof room, 0)) > 0;) {
      told.append(room, static_cast<std::size_t>(count)).append("\n");
    }
  };
  const auto hears = [&](const std::string& what) {
    return waitUntil([&] {
      listen();
      return told.find(what) != std::string::npos;
    });
  };

  const int port = freePort();
  writeFile(path("formats"), "FORMAT Line\nline %s*\nn $1\nEND\n");
  writeFile(path("log"), "line 1\nother\nline 2\nline " + std::string(5000, 'z') + "\n");
  writeFile(path("adapter.toml"), "metrics = \"127.0.0.1:" + std::to_string(port) + "\"\n[log]\nform = \"json\"\n" +
                                      "[output]\npath = \"events\"\n" + kTail + "max_message = 4096\n");
  const auto adapter = start();
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
  EXPECT_TRUE(hears("READY=1\nSTATUS=reading 1 source"));
  EXPECT_TRUE(hears("WATCHDOG=1"));

  std::string metrics;
  const auto shows = [&](const std::string& line) {
    return waitUntil([&] {
      listen();
      metrics = fetchMetrics(port);
      return metrics.find(line + "\n") != std::string::npos;
    });
  };
  EXPECT_TRUE(shows("quillon_messages_total{source=\"s\"} 4")) << metrics;
  EXPECT_TRUE(shows("quillon_message_bytes_total{source=\"s\"} 5026")) << metrics;
  EXPECT_TRUE(shows("quillon_unmatched_total{source=\"s\"} 1")) << metrics;
  EXPECT_TRUE(shows("quillon_cut_total{source=\"s\"} 1")) << metrics;
  EXPECT_TRUE(shows("quillon_events_total{source=\"s\",class=\"Line\"} 3")) << metrics;
  EXPECT_TRUE(shows("quillon_lag_bytes{source=\"s\"} 0")) << metrics;
  EXPECT_TRUE(text("events").ends_with("zzz [cut]' END\n"));

  adapter->signal(SIGHUP);
  EXPECT_TRUE(hears("RELOADING=1"));
  EXPECT_TRUE(shows("quillon_reloads_total 1")) << metrics;
  writeFile(path("formats"), "FORMAT\n");
  adapter->signal(SIGHUP);
  EXPECT_TRUE(shows("quillon_reload_failures_total 1")) << metrics;
  fs::remove(path("log"));
  EXPECT_TRUE(shows("quillon_watching{source=\"s\"} 0")) << metrics;
  end(*adapter);
  EXPECT_TRUE(hears("STOPPING=1"));
  EXPECT_TRUE(text("messages").starts_with("{\"time\":\"20")) << text("messages");
  EXPECT_NE(std::string::npos, text("messages").find("\",\"level\":\"error\",\"text\":\""));
}

// While the output is full nothing is read, and nothing is lost when there is room again.
TEST_F(Running, WaitsWhileNothingCanBeWritten) {
  writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
  fs::create_symlink("/dev/full", path("events"));
  writeFile(path("adapter.toml"), std::string("[output]\npath = \"events\"\n") + kTail);
  append("log", "line 1\n");
  const auto adapter = start();
  EXPECT_TRUE(waitUntil([this] { return text("messages").find("No space left on device") != std::string::npos; }));
  append("log", "line 2\n");
  fs::remove(path("events"));
  adapter->signal(SIGHUP);
  EXPECT_TRUE(waitUntil([this] { return lineCount("events") == 2; })) << text("messages");
  end(*adapter);
  EXPECT_EQ("EVENT Line `n=1' END\nEVENT Line `n=2' END\n", text("events"));
}

// Lines of a FIFO that stand in it at the end are read before it.
TEST_F(Running, ReadsAFifoToItsEnd) {
  writeFile(path("formats"), "FORMAT Line\nline %s\nn $1\nEND\n");
  writeFile(path("adapter.toml"),
            "[output]\npath = \"events\"\n[source.f]\ntype = \"fifo\"\npath = \"fifo\"\nformats = \"formats\"\n");
  const auto adapter = start();
  ASSERT_TRUE(waitUntil([this] { return fs::is_fifo(path("fifo")); }));
  AdapterProcess other(options());
  EXPECT_EQ(1, WEXITSTATUS(other.wait()));
  EXPECT_NE(std::string::npos, text("messages").find("in use by process ")) << text("messages");
  std::string expected;
  for (int round = 0; round < 20 * scale(); ++round) {
    std::string lines;
    for (int i = 0; i < 100; ++i) {
      lines += "line " + std::to_string(round * 100 + i) + "\n";
      expected += "EVENT Line `n=" + std::to_string(round * 100 + i) + "' END\n";
    }
    append("fifo", lines);
  }
  end(*adapter);
  EXPECT_EQ(expected, text("events"));
}

}  // namespace
}  // namespace quillon
