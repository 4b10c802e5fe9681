// The event server as a program, and clients that are as they should be, or not.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "cds/CdsId.h"
#include "delivery/destinations/Destination.h"
#include "delivery/protocol/frames.h"
#include "delivery/record_json.h"
#include "delivery/transport/Lookup.h"
#include "tests/delivery/support/memory_feed.h"
#include "tests/server/processes.h"
#include "tests/server/sender.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

using delivery::RecordForm;

class Serving : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return directory_.path() / name; }
  std::string said() const { return readFile(path("log")); }
  bool says(const std::string& text) const {
    return waitUntil([&] { return said().find(text) != std::string::npos; });
  }

  /// `listeners` are its tables [listen.NAME].
  void start(const std::string& listeners, const std::string& server = "") {
    std::filesystem::create_directory(path("cds"));
    writeFile(path("server.toml"), "[server]\n" + server + listeners +
                                       "[cds]\npath = \"cds\"\nparked = \"parked\"\n"
                                       "[delivery]\ncache = \"cache\"\nreplay_window = \"1 h\"\n"
                                       "[destination.out]\ntype = \"file\"\npath = \"out\"\n");
    process_ = std::make_unique<Process>(path("server.toml"), path("log"));
    ASSERT_TRUE(says("listening at")) << said();
  }
  void startUnix(const std::string& server = "") { start("[listen.l]\ntype = \"unix\"\npath = \"s\"\n", server); }

  /// Certificates in `directory_`: ca.pem, server.pem, expired.pem, client.pem with their keys, and other-ca.pem.
  void makeCertificates() {
    writeFile(
        path("make"),
        "cd $(dirname $0); set -e; exec 2>/dev/null; ec='-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes'\n"
        "for ca in ca other-ca; do openssl req -x509 $ec -keyout $ca.key -out $ca.pem -days 2 -subj /CN=$ca; done\n"
        "for who in server:2 expired:-1 client:2; do name=${who%:*}\n"
        "openssl req $ec -keyout $name.key -out $name.csr -subj /CN=$name -addext "
        "subjectAltName=DNS:localhost,IP:127.0.0.1\n"
        "openssl x509 -req -in $name.csr -CA ca.pem -CAkey ca.key -CAcreateserial -copy_extensions copy "
        "-days ${who#*:} -out $name.pem\ndone\n");
    ASSERT_EQ(0, std::system(("sh " + path("make")).c_str()));
  }

  delivery::SetId park(Sender& sender, const std::string& definitions, int count) const {
    const delivery::SetId set = cdsId(definitions).bytes();
    for (int i = 0; i < count; ++i) sender.feed().add(attributeBytes(set, i), RecordForm::kAttributes);
    return set;
  }

  const ScratchDirectory directory_;
  std::unique_ptr<Process> process_;
};

TEST_F(Serving, RefusesWhoMayNotAndTellsBothWhy) {
  makeCertificates();
  writeFile(path("tokens"), "# who may\nsecret\nanother\n");
  writeFile(path("token"), "secret\n");
  writeFile(path("wrong"), "guess\n");
  const auto listener = [this](const char* name, int port, const char* more) {
    return std::string("[listen.") + name + "]\ntype = \"tls\"\naddress = \"127.0.0.1:" + std::to_string(port) +
           "\"\n" + more;
  };
  constexpr const char* kServer = "certificate = \"server.pem\"\nkey = \"server.key\"\n";
  const int plain = freePort();
  const int expired = freePort();
  const int strict = freePort();
  start(
      listener("plain", plain, kServer) +
      listener("expired", expired, "certificate = \"expired.pem\"\nkey = \"expired.key\"\n") +
      listener("strict", strict, (std::string(kServer) + "client_ca = \"ca.pem\"\ntoken_file = \"tokens\"\n").c_str()));
  struct Case {
    int port;
    const char *client, *expected, *server;
  };
  constexpr const char* kOwn = "ca = \"ca.pem\"\ncertificate = \"client.pem\"\nkey = \"client.key\"\n";
  const std::string own = kOwn;
  const std::string wrong = own + "token_file = \"wrong\"\n";
  const std::string right = own + "token_file = \"token\"\n";
  const Case cases[] = {
      {plain, "", "the certificate of the other end is refused: unable to get local issuer certificate", "alert"},
      {plain, "ca = \"other-ca.pem\"\n", "is refused: unable to get local issuer certificate", "alert unknown ca"},
      {plain, "ca = \"ca.pem\"\nserver_name = \"elsewhere\"\n",
       "is refused: hostname mismatch, it is not for elsewhere", "alert bad certificate"},
      {expired, "ca = \"ca.pem\"\n", "is refused: certificate has expired", "expired: 127.0.0.1 is refused"},
      {strict, "ca = \"ca.pem\"\n", "certificate required", "peer did not return a certificate"},
      {strict, "ca = \"ca.pem\"\ncertificate = \"none.pem\"\n", "cannot use the certificate", ""},
      {strict, kOwn, "refused: a token is needed", "a token is needed"},
      {strict, wrong.c_str(), "refused: the token is not known", "the token is not known"},
      {strict, right.c_str(), "", "web1 has connected from 127.0.0.1"},
      {plain, "verify = false\n", "", "web1 has connected from 127.0.0.1"},
  };
  int number = 0;
  for (const Case& c : cases) {
    Sender sender("address = \"127.0.0.1:" + std::to_string(c.port) + "\"\ntls = true\n" + c.client, directory_.path(),
                  "web1");
    sender.feed().add(eventBytes(number++), RecordForm::kEvent);
    const std::string expected = c.expected;
    EXPECT_TRUE(expected.empty() ? sender.feed().waitDelivered(1) : sender.hasReported(expected))
        << c.client << testing::PrintToString(sender.feed().reports());
    EXPECT_EQ(expected.empty() ? 1 : 0, sender.feed().delivered()) << c.client;
    EXPECT_TRUE(says(c.server)) << said();
  }
  // A plain client of a TLS server gets no answer that it could take for one.
  Sender sender("address = \"127.0.0.1:" + std::to_string(plain) + "\"\n", directory_.path(), "web2");
  EXPECT_TRUE(sender.hasReported("connection"));
}

constexpr const char* kClass =
    "CLASS C\n  SELECT\n    1: ATTR(=,\"_event_id\"), VALUE(=,\"0\");\n    2: ATTR(=,\"n\");\n  MAP\n    m = "
    "$V2;\nEND\n";

TEST_F(Serving, RecordsWaitForTheirDefinitions) {
  startUnix();
  Sender sender("path = \"s\"\n", directory_.path(), "web1");
  const std::string set = delivery::hex(park(sender, kClass, 30));
  ASSERT_TRUE(sender.feed().waitDelivered(30));
  EXPECT_TRUE(says("set " + set + " is not known: its records wait for the class definitions")) << said();
  EXPECT_EQ(30, recordsIn(path("parked/" + set)).size());
  EXPECT_EQ("", readFile(path("out")));
  writeFile(path("cds/bad.cds"), std::string(kClass) + "CLASS\n");
  writeFile(path("cds/good.cds"), kClass);
  process_->signal(SIGHUP);
  EXPECT_TRUE(says("cds/bad.cds:8:1: ")) << said();
  const auto lines = [this] {
    const std::string out = readFile(path("out"));
    return std::ranges::count(out, '\n');
  };
  EXPECT_TRUE(waitUntil([&] { return lines() == 30; })) << readFile(path("out"));
  // And what comes now becomes an event at once; what cannot is put aside, and nothing stops.
  park(sender, kClass, 1);
  sender.feed().add("no record", RecordForm::kEvent);
  std::string wrong = attributeBytes(cdsId(kClass).bytes(), 1);
  wrong[18] = 9;  // the number of the class
  sender.feed().add(wrong, RecordForm::kAttributes);
  sender.feed().add(eventBytes(5), RecordForm::kEvent);
  ASSERT_TRUE(sender.feed().waitDelivered(34));
  EXPECT_TRUE(waitUntil([&] { return lines() == 32; })) << readFile(path("out"));
  EXPECT_NE(std::string::npos, readFile(path("out")).find("\"slots\":{\"m\":\"29\"}"));
  EXPECT_EQ(2, recordsIn(path("parked/refused")).size());
  EXPECT_TRUE(says("number 31 of web1 is no record; it is put aside")) << said();
  EXPECT_TRUE(says("number 32 of web1 is of a class that its set does not have, set " + set + ", class 9")) << said();
  process_->signal(SIGTERM);
  EXPECT_EQ(0, process_->wait()) << said();
}

TEST_F(Serving, OneClientCannotHoldUpAnother) {
  startUnix("patience = \"300 ms\"\nconnections = 4\nmax_batch = \"64 KiB\"\n");
  const auto connect = [this] {
    Descriptor socket = delivery::beginConnecting(delivery::unixAddress(path("s")));
    EXPECT_TRUE(socket);
    return socket;
  };
  const auto say = [](const Descriptor& socket, std::string_view bytes) {
    send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  };
  std::string hello;
  encode(delivery::Hello{.patience = std::chrono::seconds(5), .client = "rude", .token = ""}, hello);
  const Descriptor silent = connect();
  const Descriptor half = connect();
  say(half, hello);
  say(half, std::string_view("Q\4\0\0\0\1\0\0", 8));  // a frame that never becomes whole
  Sender good("path = \"s\"\npatience = \"10 s\"\n", directory_.path(), "good");
  for (int i = 0; i < 100; ++i) good.feed().add(eventBytes(i), RecordForm::kEvent);
  EXPECT_TRUE(good.feed().waitDelivered(100));
  EXPECT_TRUE(says("rude is refused: a frame was not whole in time")) << said();

  const Descriptor large = connect();
  say(large, hello + std::string("Q\4\0\0\0\0\0\7garbage-", 16));
  EXPECT_TRUE(says("rude is refused: a frame of kind 4 came with 117440512 bytes; at most 65536 are taken")) << said();
  {
    const Descriptor garbage = connect();
    say(garbage, std::string(100'000, 'x'));
    EXPECT_TRUE(says("is refused: what came is no frame")) << said();
  }
  std::vector<Descriptor> many;
  for (int i = 0; i < 6; ++i) many.push_back(connect());
  EXPECT_TRUE(says("is refused: there are too many connections")) << said();
  many.clear();
  for (int i = 100; i < 200; ++i) good.feed().add(eventBytes(i), RecordForm::kEvent);
  EXPECT_TRUE(good.feed().waitDelivered(200));
  EXPECT_EQ(0, good.feed().counted("refused"));
  // Its newer connection takes over from one that nobody has seen end.
  Sender again("path = \"s\"\npatience = \"10 s\"\n", directory_.path(), "good");
  EXPECT_TRUE(good.hasReported("refused: another connection of the same client took over"));
}

}  // namespace
}  // namespace quillon
