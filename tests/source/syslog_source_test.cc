#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "src/adapters/logfile/source/DatagramSource.h"
#include "src/adapters/logfile/source/TcpSource.h"
#include "tests/source/source_lines.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

/// A socket of `type` that sends to 127.0.0.1 and the port of `address`.
Descriptor peerOf(const std::string& address, int type) {
  Descriptor peer(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  sockaddr_in target = {};
  target.sin_family = AF_INET;
  target.sin_port = htons(static_cast<std::uint16_t>(std::atoi(address.substr(address.rfind(':') + 1).c_str())));
  target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(0, connect(peer.get(), reinterpret_cast<sockaddr*>(&target), sizeof target));
  return peer;
}

void sendTo(const Descriptor& peer, const std::string& text) {
  EXPECT_EQ(static_cast<ssize_t>(text.size()), send(peer.get(), text.data(), text.size(), MSG_NOSIGNAL));
}

class Syslog : public testing::Test {
 protected:
  std::unique_ptr<TcpSource> openTcp(const TcpOptions& options) {
    std::unique_ptr<TcpSource> source = TcpSource::open(options, notices_, error_);
    EXPECT_TRUE(source) << error_;
    return source;
  }
  std::string lines(Source& source, std::size_t count, int patience = 2000) {
    return linesOf(source, now_, count, std::chrono::milliseconds(1), patience);
  }

  CollectedNotices notices_;
  std::string error_;
  TimePoint now_;
};

TEST_F(Syslog, TakesDatagramsAsTheyStand) {
  const auto source = DatagramSource::open({.address = "127.0.0.1:0", .longest = 8}, notices_, error_);
  ASSERT_TRUE(source) << error_;
  const Descriptor peer = peerOf(source->address(), SOCK_DGRAM);
  for (const char* text : {"<13>a\n", "", "a\nb\n", "12345678\n", "123456789\n", "1234567\u00E4"}) sendTo(peer, text);
  EXPECT_EQ("<13>a|a\nb|12345678|12345678+|1234567+|", lines(*source, 5));
  Message message;
  sendTo(peer, "one");
  ASSERT_TRUE(source->next(now_, message));
  const std::uint64_t stream = message.stream;
  sendTo(peerOf(source->address(), SOCK_DGRAM), "other");
  ASSERT_TRUE(source->next(now_, message));
  EXPECT_NE(stream, message.stream);
  sendTo(peer, "one again");
  ASSERT_TRUE(source->next(now_, message));
  EXPECT_EQ(stream, message.stream);
  sendTo(peer, "last");
  source->finish(Finish::kStop);
  EXPECT_EQ("last|", lines(*source, 9));
  EXPECT_TRUE(source->ended());
}

TEST_F(Syslog, TakesUnixDatagrams) {
  const ScratchDirectory directory;
  const std::string path = directory.path() / "log";
  const DatagramOptions options{.address = path, .local = true, .mode = 0622};
  auto source = DatagramSource::open(options, notices_, error_);
  ASSERT_TRUE(source) << error_;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const Descriptor peer(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto* const target = reinterpret_cast<const sockaddr*>(&address);
  ASSERT_EQ(0, connect(peer.get(), target, sizeof address));
  ASSERT_EQ(3, send(peer.get(), "hi", 3, 0));  // with its NUL
  Message message;
  ASSERT_TRUE(source->next(now_, message));
  EXPECT_EQ("hi", message.text);
  EXPECT_EQ(path, message.path);
  const std::uint64_t stream = message.stream;
  const pid_t child = fork();
  if (child == 0) _exit(send(peer.get(), "other", 5, 0) == 5 ? 0 : 1);
  ASSERT_EQ(child, waitpid(child, nullptr, 0));
  ASSERT_TRUE(source->next(now_, message));
  EXPECT_NE(stream, message.stream);

  EXPECT_FALSE(DatagramSource::open(options, notices_, error_));
  EXPECT_NE(std::string::npos, error_.find("in use by process")) << error_;
  source.reset();
  EXPECT_FALSE(std::filesystem::exists(path));
  {
    const Descriptor dead(socket(AF_UNIX, SOCK_DGRAM, 0));  // leaves its socket behind
    ASSERT_EQ(0, bind(dead.get(), target, sizeof address));
    EXPECT_FALSE(DatagramSource::open(options, notices_, error_));
    EXPECT_EQ(path + ": another process listens there", error_);
  }
  EXPECT_TRUE(DatagramSource::open(options, notices_, error_)) << error_;
  writeFile(path, "text");
  EXPECT_FALSE(DatagramSource::open(options, notices_, error_));
  EXPECT_EQ(path + ": is not a socket", error_);
}

TEST_F(Syslog, TakesConnectionsApart) {
  const struct {
    Framing framing;
    const char *text, *expected;
    bool refused;
  } cases[] = {
      {Framing::kAuto, "<1>a\nb\nc", "<1>a|b|c|", false},
      {Framing::kAuto, "3 a\nb2 xy", "a\nb|xy|", false},
      {Framing::kNewline, "3 a\nb", "3 a|b|", false},
      {Framing::kAuto, "12345678901234567890\n", "", true},
      {Framing::kAuto, "2 abrubbish", "ab|", true},
      {Framing::kOctets, "rubbish\n", "", true},
      {Framing::kAuto, "0123456789012345\nx\n", "", true},
      {Framing::kNewline, "0123456789012345\nx\n", "0123456789+|x|", false},
      {Framing::kAuto, "12 0123456789ab1 x", "0123456789+|x|", false},
      {Framing::kAuto, "9 short", "short|", true},
      {Framing::kAuto, "12", "", true},
  };
  for (const auto& c : cases) {
    const auto source = openTcp({.address = "127.0.0.1:0", .framing = c.framing, .longest = 10, .joining = {}});
    const Descriptor bystander = peerOf(source->address(), SOCK_STREAM);
    {
      const Descriptor peer = peerOf(source->address(), SOCK_STREAM);
      sendTo(peer, c.text);
    }
    EXPECT_EQ(c.expected, lines(*source, 9, 30)) << c.text;
    EXPECT_EQ(c.refused ? 1U : 0U, source->counters().refused) << c.text;
    sendTo(bystander, c.framing == Framing::kOctets ? "2 ok" : "ok\n");
    EXPECT_EQ("ok|", lines(*source, 1)) << c.text;
  }
}

TEST_F(Syslog, LimitsConnections) {
  const auto source =
      openTcp({.address = "127.0.0.1:0", .connections = 2, .idle = std::chrono::seconds(10), .joining = {}});
  const Descriptor one = peerOf(source->address(), SOCK_STREAM);
  const Descriptor two = peerOf(source->address(), SOCK_STREAM);
  sendTo(one, "a\n");
  EXPECT_EQ("a|", lines(*source, 1));
  const Descriptor three = peerOf(source->address(), SOCK_STREAM);
  EXPECT_EQ("", lines(*source, 1, 20));
  char byte = 0;
  EXPECT_GE(0, recv(three.get(), &byte, 1, 0));
  EXPECT_EQ(1U, source->counters().refused);
  EXPECT_EQ(2U, source->counters().watching);

  now_ += std::chrono::seconds(6);
  sendTo(one, "b\nunfin");
  EXPECT_EQ("b|", lines(*source, 1));
  now_ += std::chrono::seconds(6);  // the other one has been silent for too long
  EXPECT_EQ("", lines(*source, 1, 5));
  EXPECT_EQ(1U, source->counters().watching);
  EXPECT_EQ(0, recv(two.get(), &byte, 1, 0));
  sendTo(one, "ished\nlast");
  EXPECT_EQ("unfinished|", lines(*source, 1));
  source->finish(Finish::kStop);
  EXPECT_EQ("last|", lines(*source, 9));
  EXPECT_TRUE(source->ended());
}

TEST_F(Syslog, JoinsWhatCameInTime) {
  const auto source = openTcp({.address = "127.0.0.1:0", .joining = {.indented = true}});
  const Descriptor peer = peerOf(source->address(), SOCK_STREAM);
  sendTo(peer, "E boom\n");
  EXPECT_EQ("", lines(*source, 1, 20));
  sendTo(peer, " at x\n");
  now_ += std::chrono::minutes(1);  // nobody read in the meantime
  EXPECT_EQ("E boom\n at x|", lines(*source, 1));
}

TEST_F(Syslog, TellsWhyItCannotListen) {
  const ScratchDirectory directory;
  const std::string path = directory.path() / "log:514";
  EXPECT_FALSE(DatagramSource::open({.address = path}, notices_, error_));  // a path only where it is said to be one
  for (const char* address : {"127.0.0.1", "127.0.0.1:", "::1:514", "no such host.invalid:514"}) {
    EXPECT_FALSE(TcpSource::open({.address = address, .joining = {}}, notices_, error_)) << address;
    EXPECT_EQ(0U, error_.find(address)) << error_;
  }
}

}  // namespace
}  // namespace quillon
