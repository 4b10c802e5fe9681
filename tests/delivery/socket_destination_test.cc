// The client's end of the event protocol against a server that says and does what a case wants.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "delivery/destinations/Destination.h"
#include "delivery/protocol/frames.h"
#include "delivery/transport/Lookup.h"
#include "tests/delivery/support/memory_feed.h"
#include "tests/support/scratch.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;

std::unique_ptr<Destination> destinationOf(const std::string& toml, std::string& faults) {
  const toml::table document = toml::parse(toml);
  std::vector<ConfigFault> found;
  TomlTable table(document, "destination.s", found);
  auto destination = readSocketDestination(table, "/base");
  table.finish();
  for (const ConfigFault& fault : found) faults += fault.text + "\n";
  return destination;
}

/// One connection, at the server's end.
class Peer {
 public:
  explicit Peer(int listener) : socket_(accept(listener, nullptr, nullptr)), reader_(1 << 20) {}

  void send(const std::string& bytes) const {
    EXPECT_LE(0, ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }
  void welcome(std::uint64_t next, milliseconds patience = std::chrono::seconds(30)) const {
    std::string bytes;
    encode(Welcome{.patience = patience, .next = next, .mostBatch = 1000}, bytes);
    send(bytes);
  }
  void taken(std::uint64_t next) const {
    std::string bytes;
    encodeTaken(next, bytes);
    send(bytes);
  }
  /// The next frame; nothing at the end of the connection. Its body is valid until the next call.
  std::optional<Frame> receive() {
    Frame frame;
    FrameReader::Result result = FrameReader::Result::kMore;
    while ((result = reader_.next(frame)) == FrameReader::Result::kMore) {
      const std::span<char> room = reader_.room();
      const ssize_t got = recv(socket_.get(), room.data(), room.size(), 0);
      if (got <= 0) return std::nullopt;
      reader_.put(static_cast<std::size_t>(got));
    }
    EXPECT_EQ(FrameReader::Result::kFrame, result) << reader_.error();
    return frame;
  }
  /// The texts of the events up to this number; batches are acknowledged as they come.
  std::vector<std::string> receiveTo(std::uint64_t end) {
    std::vector<std::string> texts;
    NumberedRecords records;
    while (records.end < end) {
      const std::optional<Frame> frame = receive();
      if (!frame) break;
      if (frame->kind != FrameKind::kBatch || !decode(frame->body, records)) continue;
      for (const Event& event : records.events) texts.emplace_back(event.bytes);
      taken(records.end);
    }
    return texts;
  }

 private:
  const Descriptor socket_;
  FrameReader reader_;
};

class SocketDestination : public testing::Test {
 protected:
  SocketDestination() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const SocketAddress address = unixAddress(path());
    EXPECT_EQ(0, bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address.bytes), address.size));
    EXPECT_EQ(0, listen(listener_.get(), 5));
  }
  ~SocketDestination() override {
    feed_.stop();
    shutdown(listener_.get(), SHUT_RDWR);
    if (sender_.joinable()) sender_.join();
  }

  std::string path() const { return directory_.path() / "s"; }

  void start(const std::string& more = "") {
    std::string faults;
    destination_ = destinationOf("path = \"" + path() + "\"\nlongest_wait = \"20 ms\"\n" + more, faults);
    ASSERT_EQ("", faults);
    sender_ = std::thread([this] { destination_->run(feed_); });
  }
  void add(std::size_t count, std::size_t size = 10) {
    for (std::size_t i = 0; i < count; ++i) {
      texts_.push_back(std::to_string(texts_.size()) + std::string(size, '.'));
      feed_.add(texts_.back(), RecordForm::kEvent);
    }
  }
  bool hasReported(std::string_view text) const {
    return std::ranges::any_of(feed_.reports(), [&](const std::string& report) { return report == text; });
  }
  void expectReport(std::string_view text) const {
    for (int i = 0; i < 500 && !hasReported(text); ++i) std::this_thread::sleep_for(milliseconds(10));
    EXPECT_TRUE(hasReported(text)) << testing::PrintToString(feed_.reports());
  }

  const ScratchDirectory directory_;
  Descriptor listener_;
  MemoryFeed feed_{"web1-7"};
  std::vector<std::string> texts_;
  std::unique_ptr<Destination> destination_;
  std::thread sender_;
};

TEST_F(SocketDestination, DeliversInOrderAndEndsWhenItIsDone) {
  add(200);
  start("token_file = \"" + (directory_.path() / "token").string() + "\"\n");
  expectReport("cannot read the token " + (directory_.path() / "token").string() + ": No such file or directory");
  writeFile(directory_.path() / "token", "secret\nnot this");
  std::optional<Peer> peer;
  std::optional<Frame> frame;
  while (!frame) frame = peer.emplace(listener_.get()).receive();  // those that had no token say nothing
  Hello hello;
  ASSERT_TRUE(frame->kind == FrameKind::kHello && decode(frame->body, hello));
  EXPECT_EQ("web1-7", hello.client);
  EXPECT_EQ("secret", hello.token);
  peer->welcome(0);
  EXPECT_EQ(texts_, peer->receiveTo(200));
  EXPECT_TRUE(feed_.waitDelivered(200));
  EXPECT_TRUE(feed_.isConnected());
  feed_.drain();
  sender_.join();
}

TEST_F(SocketDestination, SendsAgainWhatTheServerDoesNotHave) {
  add(100);
  start();
  {
    Peer peer(listener_.get());
    peer.receive();
    peer.welcome(0);
    peer.receive();
    peer.taken(7);  // of a batch that has more
  }
  Peer peer(listener_.get());
  peer.receive();
  peer.welcome(20);  // it had taken more than it could tell
  EXPECT_EQ(std::vector<std::string>(texts_.begin() + 20, texts_.end()), peer.receiveTo(100));
  EXPECT_TRUE(feed_.waitDelivered(100));
  EXPECT_LE(1, feed_.repetitions());
}

TEST_F(SocketDestination, AnEventThatIsTooLargeStopsNoOther) {
  add(3);
  add(1, 1000);
  add(3);
  start();
  Peer peer(listener_.get());
  peer.receive();
  peer.welcome(0);
  EXPECT_EQ(6, peer.receiveTo(7).size());
  EXPECT_TRUE(feed_.waitDelivered(7));
  EXPECT_EQ(1, feed_.counted("too_large"));
  expectReport("an event of 1001 bytes is left out: the server takes 1000");
}

TEST_F(SocketDestination, BoundsWhatIsUnderWay) {
  add(1000, 500);
  start("window = \"64 KiB\"\n");
  Peer peer(listener_.get());
  peer.receive();
  peer.welcome(0, milliseconds(60));
  std::size_t bytes = 0;
  std::optional<Frame> frame;
  NumberedRecords records;
  while ((frame = peer.receive()) && frame->kind == FrameKind::kBatch) {
    ASSERT_TRUE(decode(frame->body, records));
    bytes += frame->body.size();
  }
  ASSERT_TRUE(frame && frame->kind == FrameKind::kAlive);  // it waits, and says so
  EXPECT_LE(64 << 10, bytes);
  EXPECT_GE((64 << 10) + 1000, bytes);
  peer.taken(records.end);
  EXPECT_EQ(1000 - records.end, peer.receiveTo(1000).size());
}

TEST_F(SocketDestination, TellsWhyItIsNotConnected) {
  start("patience = \"100 ms\"\n");
  const auto meet = [this](const std::string& bytes) {
    Peer peer(listener_.get());
    peer.receive();
    peer.send(bytes);
    while (peer.receive()) {
    }
  };
  std::string refusal;
  std::string welcome;
  std::string taken;
  std::string another;
  encode(Refusal{.code = RefusalCode::kNotAllowed, .reason = "the token is not known"}, refusal);
  encode(Welcome{.patience = std::chrono::seconds(1), .mostBatch = 1000}, welcome);
  encode(Welcome{.version = 2}, another);
  encodeTaken(1, taken);
  struct Case {
    std::string bytes;
    const char* expected;
  };
  const Case cases[] = {
      {refusal, "refused: the token is not known"},
      {another, "the server speaks version 2 of the protocol"},
      {"HTTP/1.1 400 Bad Request", "the server is not understood: what came is no frame"},
      {welcome + welcome, "the server is not understood: a frame came out of turn"},
      {taken, "the server is not understood: a frame came out of turn"},
      {welcome + taken.substr(0, 19) + "\1", "the server is not understood: a frame was damaged on its way"},
      {welcome, "the server is silent"},
  };
  for (const Case& c : cases) {
    meet(c.bytes);
    expectReport(c.expected);
  }
  listener_ = Descriptor();
  expectReport("cannot connect to " + path() + ": Connection refused");
}

TEST(SocketDestinationConfig, TellsWhatIsWrong) {
  struct Case {
    const char *text, *expected;
  };
  constexpr const char* kEither = "a socket needs either an address or the path of a Unix socket\n";
  constexpr const char* kAddress = "the address must be HOST:PORT, such as \"192.0.2.1:4711\" or \"[::1]:4711\"\n";
  const Case cases[] = {
      {"", kEither},
      {"address = 'a:1'\npath = '/s'", kEither},
      {"address = ':4711'", kAddress},
      {"address = 'host'", kAddress},
      {"address = 'host:4711'\nca = 'ca.pem'", "ca needs tls = true\n"},
      {"path = '/s'\ntls = true", "TLS through a Unix socket needs server_name\n"},
      {"address = '[::1]:4711'\ntls = true\nverify = false\ntoken_file = 't'\nwindow = '1 MiB'", ""},
  };
  for (const Case& c : cases) {
    std::string faults;
    EXPECT_TRUE(destinationOf(c.text, faults)->takesAllForms());
    EXPECT_EQ(c.expected, faults) << c.text;
  }
}

}  // namespace
}  // namespace quillon::delivery
