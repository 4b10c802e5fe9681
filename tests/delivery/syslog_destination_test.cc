#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "delivery/Record.h"
#include "delivery/destinations/Destination.h"
#include "foundation/descriptor.h"
#include "tests/delivery/support/memory_feed.h"

namespace quillon::delivery {
namespace {

/// A receiver on a free port of this machine.
class Receiver {
 public:
  Receiver() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address));
    socklen_t size = sizeof address;
    getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    EXPECT_EQ(0, listen(listener_.get(), 5));
  }

  int port() const { return port_; }
  void accept() { connection_ = Descriptor(::accept(listener_.get(), nullptr, nullptr)); }
  void close() { connection_ = Descriptor(); }

  /// The next message, by the length before it.
  std::string next() {
    std::size_t length = 0;
    for (char c = '0'; c != ' '; c = take(1)[0]) length = 10 * length + static_cast<std::size_t>(c - '0');
    return take(length);
  }

 private:
  std::string take(std::size_t size) {
    std::string text(size, ' ');
    EXPECT_EQ(static_cast<ssize_t>(size), recv(connection_.get(), text.data(), size, MSG_WAITALL));
    return text;
  }

  Descriptor listener_;
  Descriptor connection_;
  int port_ = 0;
};

std::unique_ptr<Destination> read(const std::string& keys, std::string& faults) {
  const toml::table document = toml::parse(keys);
  std::vector<ConfigFault> found;
  TomlTable table(document, "", found);
  auto destination = readSyslogDestination(table, "/etc");
  table.finish();
  for (const ConfigFault& fault : found) faults += fault.text + "\n";
  return destination;
}

std::string event(std::string_view className, std::string_view value) {
  Record record;
  record.className = className;
  record.source = "web 1/auth";
  record.values = {{"n", value}};
  std::string bytes;
  encode(record, bytes);
  return bytes;
}

TEST(SyslogDestination, SendsFramedMessagesAndConnectsAgain) {
  Receiver receiver;
  std::string faults;
  const auto destination = read(
      "address = \"127.0.0.1:" + std::to_string(receiver.port()) + "\"\nfacility = \"local3\"\nseverity = \"err\"\n",
      faults);
  ASSERT_EQ("", faults);
  MemoryFeed feed;
  std::thread thread([&] { destination->run(feed); });
  receiver.accept();
  feed.add(event("A", "\xC3\xA9\n"), RecordForm::kEvent);
  feed.add(event(std::string(40, 'x'), "2"), RecordForm::kEvent);
  std::string message = receiver.next();
  // Of the time only the form is known.
  const std::size_t time = message.find(' ') + 1;
  for (std::size_t i = time; i < std::min(message.size(), message.find(' ', time)); ++i) {
    if (message[i] >= '0' && message[i] <= '9') message[i] = 'd';
  }
  EXPECT_EQ(
      "<155>1 dddd-dd-ddTdd:dd:dd.ddddddZ web_1 quillon - A - "  // 19 * 8 + 3
      "{\"class\":\"A\",\"event_id\":0,\"slots\":{\"n\":\"\xC3\xA9\\n\"},\"source\":\"web 1/auth\"}",
      message);
  EXPECT_NE(std::string::npos, receiver.next().find(" - " + std::string(32, 'x') + " - {"));
  EXPECT_TRUE(feed.waitDelivered(2));
  EXPECT_TRUE(feed.isConnected());
  receiver.close();
  receiver.accept();
  feed.add(event("B", "3"), RecordForm::kEvent);
  EXPECT_NE(std::string::npos, receiver.next().find(" B - {"));
  EXPECT_TRUE(feed.waitDelivered(3));
  feed.add(std::string("no record"), RecordForm::kEvent);
  EXPECT_TRUE(feed.waitDelivered(4));
  feed.drain();
  thread.join();
  EXPECT_EQ(1U, feed.counted("unreadable"));
  EXPECT_EQ(2U, feed.counted("connections"));
}

TEST(SyslogDestination, KeysAreChecked) {
  std::string faults;
  read("address = \":514\"\nca = \"x\"\nfacility = \"local8\"\n", faults);
  EXPECT_EQ(0U, faults.find("the address must be HOST:PORT")) << faults;
  EXPECT_NE(std::string::npos, faults.find("ca needs tls = true\nunknown value \"local8\"; did you mean")) << faults;
}

}  // namespace
}  // namespace quillon::delivery
