#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "delivery/destinations/http_body.h"
#include "tests/delivery/support/destination_run.h"
#include "tests/delivery/support/http_server.h"
#include "tests/support/scratch.h"

namespace quillon::delivery {
namespace {

using std::chrono::milliseconds;

class Http : public testing::Test {
 protected:
  std::string file(const std::string& name) const { return (directory_.path() / name).string(); }
  /// Keys of the destination; `more` are further lines.
  std::string keys(const std::string& more = "") const {
    return "url = '" + server_.url() + "'\ndead_letters = '" + file("dead") + "'\nretry_most = '300 ms'\n" + more;
  }
  /// The bodies of all requests, as the numbers in their lines: "0,1|2,".
  std::string numbers() const {
    std::string text;
    for (const HttpServer::Request& request : server_.requests()) {
      text += text.empty() ? "" : "|";
      std::istringstream body(request.body);
      for (std::string line; std::getline(body, line);) {
        const std::size_t at = line.find("\"n\":\"") + 5;
        text += line.substr(at, line.find('"', at) - at) + ",";
      }
    }
    return text;
  }

  const ScratchDirectory directory_;
  HttpServer server_;
  MemoryFeed feed_;
};

TEST_F(Http, SendsBatchesWithinTheirLimitsInOrder) {
  addEvents(feed_, 0, 7);
  feed_.setPerRead(2);  // what is read is not what is sent
  writeFile(file("token"), "s3cret\n");
  DestinationRun run(readHttpDestination,
                     keys("batch_events = 3\nheaders = ['X-Who: me']\ntoken_file = '" + file("token") + "'"), feed_);
  ASSERT_TRUE(feed_.waitDelivered(7));
  EXPECT_EQ("0,1,2,|3,4,5,|6,", numbers());
  EXPECT_TRUE(feed_.isConnected());
  const std::string head = server_.requests().front().head;
  for (const char* line : {"POST /in HTTP/1.1\r\n", "\r\nContent-Encoding: gzip", "\r\nX-Who: me",
                           "\r\nAuthorization: Bearer s3cret", "\r\nContent-Type: application/x-ndjson"}) {
    EXPECT_NE(std::string::npos, head.find(line)) << line << " is not in\n" << head;
  }
}

TEST_F(Http, TriesAgainUntilTheServerHasIt) {
  const std::string half(1000, '.');
  server_.answer({{"500 Oops"},
                  {"429 Too Many\r\nRetry-After: 1"},
                  {"200 OK", half, {}, true},
                  {"200 OK", "", milliseconds(2000)}});
  addEvents(feed_, 0, 2);
  DestinationRun run(readHttpDestination, keys("timeout = '500 ms'\ngzip = false"), feed_);
  ASSERT_TRUE(feed_.waitDelivered(2));
  // An error, a request to wait, an answer that is cut off, and one that comes too late: the fifth is heard.
  EXPECT_EQ("0,1,|0,1,|0,1,|0,1,|0,1,", numbers());
  const auto requests = server_.requests();
  EXPECT_LE(milliseconds(1000), requests[2].at - requests[1].at);  // as the server asked
  EXPECT_GE(milliseconds(900), requests[1].at - requests[0].at);   // and no longer than the configuration allows
  EXPECT_FALSE(std::filesystem::exists(file("dead")));
  EXPECT_EQ(4U, feed_.counted("retries"));
}

TEST_F(Http, WaitsUntilTheDateThatTheServerNames) {
  const std::time_t at = std::time(nullptr) + 2;
  char date[64];
  std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&at));
  server_.answer({{std::string("503 Busy\r\nRetry-After: ") + date}});
  addEvents(feed_, 0, 1);
  DestinationRun run(readHttpDestination, keys(), feed_);
  ASSERT_TRUE(feed_.waitDelivered(1));
  EXPECT_LE(milliseconds(900),
            server_.requests()[1].at - server_.requests()[0].at);  // between 1 and 2 s, by the second
}

TEST_F(Http, WhatIsRefusedGoesToTheDeadLetters) {
  server_.answer({{"400 Bad Request", "no \"slot\"\nmore"}, {"413 Too Large"}, {"200 OK"}});
  addEvents(feed_, 0, 3);
  DestinationRun run(readHttpDestination, keys("batch_events = 1"), feed_);
  ASSERT_TRUE(feed_.waitDelivered(3));
  EXPECT_EQ(
      "{\"number\":0,\"why\":\"400: no "
      "\\\"slot\\\"\",\"record\":{\"class\":\"Test\",\"event_id\":0,\"slots\":{\"n\":\"0\"},"
      "\"source\":\"test/1\",\"position\":\"0\"}}\n"
      "{\"number\":1,\"why\":\"413\",\"record\":{\"class\":\"Test\",\"event_id\":0,\"slots\":{\"n\":\"1\"},"
      "\"source\":\"test/1\",\"position\":\"1\"}}\n",
      readFile(file("dead")));
  EXPECT_EQ(2U, feed_.counted("refused"));
  const std::vector<std::string> reports = {"refused: 400: no \"slot\"; such events go to " + file("dead"),
                                            "takes events again; 2 that it refused went to " + file("dead")};
  EXPECT_EQ(reports, feed_.reports());  // once, whatever their number
}

TEST_F(Http, StopsWhileTheServerIsSilent) {
  server_.answer({{"200 OK", "", std::chrono::seconds(30)}});
  addEvents(feed_, 0, 1);
  const auto begin = std::chrono::steady_clock::now();
  {
    DestinationRun run(readHttpDestination, keys(), feed_);
    while (server_.requests().empty()) std::this_thread::sleep_for(milliseconds(5));
  }
  EXPECT_GT(std::chrono::seconds(5), std::chrono::steady_clock::now() - begin);
  EXPECT_EQ(0U, feed_.delivered());
}

TEST_F(Http, SpeaksOtlp) {
  Record record;
  record.className = "Login";
  record.eventId = 3;
  record.values = {{"user", "a\"b"}, {"msg", "hello"}};
  record.source = "web/auth";
  record.position = "7";
  std::string bytes;
  encode(record, bytes);
  const Event event{0, 1, bytes};
  const auto attribute = [](const std::string& key, const std::string& value) {
    return R"({"key":")" + key + R"(","value":{"stringValue":")" + value + R"("}})";
  };
  std::string body;
  appendOtlp(body, {&event, 1}, std::chrono::system_clock::time_point(std::chrono::seconds(5)));
  EXPECT_EQ(R"({"resourceLogs":[{"resource":{"attributes":[)" + attribute("service.name", "quillon") +
                R"(]},"scopeLogs":[{"scope":{"name":"quillon"},"logRecords":[)"
                R"({"observedTimeUnixNano":"5000000000","body":{"stringValue":"hello"},"attributes":[)" +
                attribute("user", "a\\\"b") + "," + attribute("msg", "hello") + "," + attribute("event.name", "Login") +
                "," + attribute("quillon.event_id", "3") + "," + attribute("quillon.source", "web/auth") + "," +
                attribute("quillon.position", "7") + "]}]}]}]}",
            body);

  server_.answer({{"200 OK", R"({"partialSuccess":{"rejectedLogRecords":"2","errorMessage":"old"}})"}});
  addEvents(feed_, 0, 3);
  DestinationRun run(readHttpDestination, keys("form = 'otlp'"), feed_);
  ASSERT_TRUE(feed_.waitDelivered(3));
  EXPECT_EQ(2U, feed_.counted("rejected"));
}

/// A server whose certificate somebody has signed for a name, and who may ask for one of its clients.
TEST(HttpTls, ConnectsToWhomItTrusts) {
  const ScratchDirectory directory;
  const std::string at = directory.path().string();
  const std::string make = "cd " + at + R"( && exec 2>make.log
    authority() { openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=$1 -keyout $1.key -out $1.pem; }
    signed() { # NAME AUTHORITY DAYS SUBJECT
      openssl req -newkey rsa:2048 -nodes -subj /CN=$4 -keyout $1.key -out $1.csr
      echo subjectAltName=DNS:$4 > $1.ext
      openssl x509 -req -in $1.csr -CA $2.pem -CAkey $2.key -CAcreateserial -days $3 -extfile $1.ext -out $1.pem; }
    authority ours; authority others
    signed good ours 2 localhost; signed wrong ours 2 elsewhere; signed late ours -1 localhost; signed client ours 2 me)";
  ASSERT_EQ(0, std::system(make.c_str())) << readFile(directory.path() / "make.log");
  struct Case {
    const char *server, *keys;
    const char* expected;  ///< In what is reported; empty: it is delivered.
  };
  const Case cases[] = {
      {"good", "ca = 'ours.pem'\ncertificate = 'client.pem'\nkey = 'client.key'", ""},
      {"wrong", "verify = false\ncertificate = 'client.pem'\nkey = 'client.key'", ""},
      {"good", "ca = 'others.pem'", "self-signed certificate in certificate chain"},
      {"good", "", "self-signed certificate in certificate chain"},
      {"wrong", "ca = 'ours.pem'", "no alternative certificate subject name matches target host name 'localhost'"},
      {"late", "ca = 'ours.pem'", "certificate has expired"},
      {"good", "ca = 'ours.pem'", "certificate required"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.server) + " " + c.keys);
    std::string error;
    const auto tls = Tls::server(
        {.ca = at + "/ours.pem", .certificate = at + "/" + c.server + ".pem", .key = at + "/" + c.server + ".key"},
        error);
    ASSERT_TRUE(tls) << error;
    const HttpServer server(tls);
    MemoryFeed feed;
    addEvents(feed, 0, 1);
    DestinationRun run(readHttpDestination,
                       "url = '" + server.url() + "'\ndead_letters = 'dead'\nretry_most = '200 ms'\n" + c.keys, feed,
                       at);
    if (*c.expected == '\0') {
      EXPECT_TRUE(feed.waitDelivered(1));
      continue;
    }
    // Who refuses a client may close before that has read why: then a later try tells.
    const auto isTold = [&] {
      const std::vector<std::string> reports = feed.reports();
      return std::any_of(reports.begin(), reports.end(),
                         [&](const std::string& report) { return report.find(c.expected) != std::string::npos; });
    };
    for (int i = 0; i < 1000 && !isTold(); ++i) std::this_thread::sleep_for(milliseconds(10));
    EXPECT_TRUE(isTold()) << feed.reports().front();
    EXPECT_EQ(0U, feed.delivered());
  }
}

TEST(HttpOptions, WhatIsWrongIsTold) {
  struct Case {
    const char *toml, *expected;
  };
  const Case cases[] = {
      {"", "[destination.test] needs url\n[destination.test] needs dead_letters\n"},
      {"url = 'ftp://x'\ndead_letters = 'd'", "the url must begin with http:// or https://\n"},
      {"url = 'http://x'\ndead_letters = 'd'\nheaders = ['a']", "a header must be \"NAME: VALUE\": \"a\"\n"},
      {"url = 'http://x'\ndead_letters = 'd'\ntoken = \"a\\r\\nb: c\"", "a token has no control characters\n"},
      {"url = 'http://x'\ndead_letters = 'd'\ntoken = 'a'\ntoken_file = 'b'",
       "there must be one of token and token_file\n"},
  };
  for (const Case& c : cases) {
    std::string faults;
    readDestination(readHttpDestination, c.toml, &faults);
    EXPECT_EQ(c.expected, faults) << c.toml;
  }
}

}  // namespace
}  // namespace quillon::delivery
