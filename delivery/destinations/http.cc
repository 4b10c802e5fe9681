#define CURL_STRICTER  // its handles are of different types
#include <curl/curl.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>

#include "delivery/destinations/Backoff.h"
#include "delivery/destinations/DeadLetters.h"
#include "delivery/destinations/Destination.h"
#include "delivery/destinations/FeedCursor.h"
#include "delivery/destinations/http_body.h"

namespace quillon::delivery {
namespace {

using Clock = Feed::Clock;

/// The keys of a destination of the type "http".
struct HttpOptions {
  enum class Form {
    kNdjson,  ///< An object of JSON a line, see record_json.h.
    kOtlp,    ///< ExportLogsServiceRequest as JSON, of the OpenTelemetry protocol over HTTP.
  };

  std::string url;
  Form form = Form::kNdjson;
  std::uint64_t batchEvents = 1000;    ///< In a request at most.
  std::uint64_t batchBytes = 1 << 20;  ///< The same before compression; one larger event has a request of its own.
  bool gzip = true;
  Feed::Clock::duration timeout = std::chrono::seconds(30);  ///< Of a request, from its beginning to the whole reply.
  Feed::Clock::duration mostWait = std::chrono::minutes(1);  ///< Between two tries.
  std::string deadLetters;                                   ///< File for what the server refuses.
  bool verify = true;
  std::string ca, certificate, key;  ///< Files in PEM; empty: the system's authorities, no certificate.
  std::vector<std::string> headers;  ///< "Name: value".
  std::string headersFile;           ///< The same, one a line, read for each request.
  std::string token, tokenFile;      ///< Sent as "Authorization: Bearer ...".
};

/// What is kept of an answer, to be told or read; the rest of it is taken and dropped.
constexpr std::size_t kAnswerBytes = 64 << 10;
/// The most of it that is told to the operator.
constexpr std::size_t kToldBytes = 200;
/// A server that asks for more patience than that gets another request all the same.
constexpr std::chrono::hours kLongestRetryAfter(1);

struct Free {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

bool isHeader(std::string_view line) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; };
  return line.find(':') != std::string_view::npos && !line.starts_with(':') &&
         std::none_of(line.begin(), line.end(), isControl);
}

/// Lines without the white space behind them and without empty ones; nothing when the file cannot be read.
std::optional<std::vector<std::string>> linesOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (!line.empty()) lines.push_back(line);
  }
  if (!file.is_open() || file.bad()) return std::nullopt;
  return lines;
}

/// A request and what came back.
struct Exchange {
  CURLcode result = CURLE_OK;  ///< Of the transfer.
  long status = 0;
  std::chrono::seconds retryAfter{0};
  std::string answer;
};

size_t keepAnswer(char* data, size_t /*one*/, size_t size, void* answer) {
  std::string& kept = *static_cast<std::string*>(answer);
  kept.append(data, std::min(size, kAnswerBytes - kept.size()));
  return size;
}

/// A connection that stays open from one request to the next.
class Connection {
 public:
  explicit Connection(const HttpOptions& options) : multi_(curl_multi_init()), easy_(curl_easy_init()) {
    CURL* const easy = easy_.get();
    curl_easy_setopt(easy, CURLOPT_URL, options.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "quillon");
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, milliseconds(options.timeout));
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                     milliseconds(std::min<Clock::duration>(options.timeout, std::chrono::seconds(10))));
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error_);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, keepAnswer);
    if (!options.verify) {
      curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
      curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
    }
    if (!options.ca.empty()) {
      curl_easy_setopt(easy, CURLOPT_CAINFO, options.ca.c_str());
      curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);  // these alone are believed
    }
    if (!options.certificate.empty()) curl_easy_setopt(easy, CURLOPT_SSLCERT, options.certificate.c_str());
    if (!options.key.empty()) curl_easy_setopt(easy, CURLOPT_SSLKEY, options.key.c_str());
  }

  /// Posts the body and waits for the answer, or until the feed says stop.
  Exchange post(const std::string& body, curl_slist* headers, const Feed& feed) {
    Exchange exchange;
    CURL* const easy = easy_.get();
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &exchange.answer);
    error_[0] = '\0';
    curl_multi_add_handle(multi_.get(), easy);
    exchange.result = transfer(feed);
    curl_multi_remove_handle(multi_.get(), easy);
    curl_off_t retryAfter = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &exchange.status);
    curl_easy_getinfo(easy, CURLINFO_RETRY_AFTER, &retryAfter);
    exchange.retryAfter =
        std::chrono::seconds(std::clamp<std::int64_t>(retryAfter, 0, std::chrono::seconds(kLongestRetryAfter).count()));
    return exchange;
  }

  std::string errorOf(const Exchange& exchange) const {
    return error_[0] != '\0' ? error_ : curl_easy_strerror(exchange.result);
  }

 private:
  static long milliseconds(Clock::duration time) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
  }

  CURLcode transfer(const Feed& feed) {
    constexpr int kLookMs = 100;  // for a feed that says stop
    int running = 1;
    while (!feed.stopping()) {
      curl_multi_perform(multi_.get(), &running);
      if (running == 0) break;
      curl_multi_poll(multi_.get(), nullptr, 0, kLookMs, nullptr);
    }
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
      if (message->msg == CURLMSG_DONE) return message->data.result;
    }
    return CURLE_ABORTED_BY_CALLBACK;
  }

  std::unique_ptr<CURLM, Free> multi_;
  std::unique_ptr<CURL, Free> easy_;  // before the other goes
  char error_[CURL_ERROR_SIZE] = {};
};

/// Events for one request. Keeps their bytes, since those of a feed go when the next are read.
class Gathered {
 public:
  void clear() {
    bytes_.clear();
    events_.clear();
    ends_.clear();
  }
  bool empty() const { return ends_.empty(); }

  /// Takes what there is, up to the limits of a request.
  void fill(FeedCursor& cursor, const HttpOptions& options) {
    while (ends_.size() < options.batchEvents) {
      const Event* const event = cursor.peek();
      if (!event || (!empty() && bytes_.size() + event->bytes.size() > options.batchBytes)) break;
      bytes_ += event->bytes;
      ends_.push_back(bytes_.size());
      events_.push_back(*event);
      cursor.take();
    }
    std::size_t begin = 0;
    for (std::size_t i = 0; i < events_.size(); ++i) {
      events_[i].bytes = std::string_view(bytes_).substr(begin, ends_[i] - begin);
      begin = ends_[i];
    }
  }

  std::span<const Event> events() const { return events_; }

 private:
  std::string bytes_;
  std::vector<std::size_t> ends_;
  std::vector<Event> events_;
};

class Sender {
 public:
  Sender(const HttpOptions& options, Feed& feed)
      : options_(options),
        feed_(feed),
        connection_(options),
        deadLetters_(options.deadLetters),
        backoff_(std::chrono::milliseconds(200), options.mostWait) {}

  void run() {
    FeedCursor cursor(feed_);
    Gathered batch;
    while (!feed_.stopping()) {
      batch.clear();
      batch.fill(cursor, options_);
      if (!batch.empty() && !deliver(batch.events())) return;
      if (cursor.end() > feed_.delivered()) feed_.delivered(cursor.end());
      if (!batch.empty()) continue;
      if (feed_.draining()) return;
      feed_.wait(Clock::now() + std::chrono::minutes(1));
    }
  }

 private:
  /// Sends them until the server has answered for them. False when the feed says stop before.
  bool deliver(std::span<const Event> events) {
    const std::string body = bodyOf(events);
    while (!feed_.stopping()) {
      std::chrono::seconds atLeast{0};
      if (const std::optional<curl_slist*> headers = makeHeaders()) {
        const Exchange exchange = connection_.post(body, *headers, feed_);
        if (feed_.stopping() && exchange.result == CURLE_ABORTED_BY_CALLBACK) return false;
        const bool answered = exchange.result == CURLE_OK;
        feed_.connected(answered);
        if (answered && exchange.status >= 200 && exchange.status < 300) {
          accepted(exchange);
          return true;
        }
        if (answered && exchange.status >= 400 && exchange.status < 500 && exchange.status != 429) {
          backoff_.reset();
          return deadLetters_.put(feed_, events, told(exchange));
        }
        feed_.report(Feed::Level::kWarning, answered ? "the server answers " + told(exchange) + "; trying again"
                                                     : connection_.errorOf(exchange) + "; trying again");
        atLeast = exchange.retryAfter;
        isLost_ = true;
      }
      feed_.count("retries");
      pause(feed_, Clock::now() + std::max<Clock::duration>(backoff_.next(), atLeast));
    }
    return false;
  }

  void accepted(const Exchange& exchange) {
    backoff_.reset();
    deadLetters_.endBurst(feed_);
    if (std::exchange(isLost_, false)) feed_.report(Feed::Level::kInfo, "takes events again");
    if (options_.form != HttpOptions::Form::kOtlp) return;
    if (const std::uint64_t rejected = rejectedByOtlp(exchange.answer)) {
      feed_.count("rejected", rejected);
      feed_.report(Feed::Level::kError, "the server has not taken " + std::to_string(rejected) +
                                            " of the events: " + exchange.answer.substr(0, kToldBytes));
    }
  }

  std::string bodyOf(std::span<const Event> events) {
    std::string body;
    if (options_.form == HttpOptions::Form::kOtlp) {
      appendOtlp(body, events, std::chrono::system_clock::now());
    } else {
      appendNdjson(body, events);
    }
    isZipped_ = false;
    if (!options_.gzip) return body;
    std::string zipped = gzipped(body);
    isZipped_ = !zipped.empty();
    return isZipped_ ? zipped : body;
  }

  /// All that go with a request; nothing, after a report, when a file with some of them cannot be read.
  std::optional<curl_slist*> makeHeaders() {
    headers_.reset();
    const bool isOtlp = options_.form == HttpOptions::Form::kOtlp;
    add(isOtlp ? "Content-Type: application/json" : "Content-Type: application/x-ndjson");
    add("Expect:");  // else libcurl waits a second for leave to send
    if (isZipped_) add("Content-Encoding: gzip");
    for (const std::string& header : options_.headers) add(header);
    if (!options_.headersFile.empty()) {
      const auto lines = linesOf(options_.headersFile);
      if (!lines || !std::all_of(lines->begin(), lines->end(), isHeader)) return unreadable(options_.headersFile);
      for (const std::string& line : *lines) add(line);
    }
    std::string token = options_.token;
    if (!options_.tokenFile.empty()) {
      const auto lines = linesOf(options_.tokenFile);
      if (!lines || lines->size() != 1 || !isHeader("x:" + lines->front())) return unreadable(options_.tokenFile);
      token = lines->front();
    }
    if (!token.empty()) add("Authorization: Bearer " + token);
    return headers_.get();
  }

  std::optional<curl_slist*> unreadable(const std::string& path) {
    feed_.report(Feed::Level::kError, "cannot use " + path + ", which headers are read from; trying again");
    return std::nullopt;
  }

  void add(const std::string& header) {
    curl_slist* const longer = curl_slist_append(headers_.get(), header.c_str());
    if (!longer) return;
    static_cast<void>(headers_.release());
    headers_.reset(longer);
  }

  static std::string told(const Exchange& exchange) {
    std::string text = std::to_string(exchange.status);
    std::string_view line = std::string_view(exchange.answer).substr(0, kToldBytes);
    line = line.substr(0, line.find_first_of("\r\n"));
    if (!line.empty()) (text += ": ") += line;
    return text;
  }

  const HttpOptions& options_;
  Feed& feed_;
  Connection connection_;
  std::unique_ptr<curl_slist, Free> headers_;
  DeadLetters deadLetters_;
  Backoff backoff_;
  bool isZipped_ = false;
  bool isLost_ = false;
};

/// Posts batches to a web server, one at a time. What the server answers with 2xx is delivered. After anything that may
/// pass, which is no answer, 429 and 5xx, the same batch is sent again, not before the time that Retry-After names;
/// what it answers with another 4xx goes to the file of dead letters, and counts as delivered.
class HttpDestination : public Destination {
 public:
  explicit HttpDestination(HttpOptions options) : options_(std::move(options)) {}

  void run(Feed& feed) const override;
  bool takesAllForms() const override { return true; }

 private:
  const HttpOptions options_;
};

void HttpDestination::run(Feed& feed) const {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (ready != CURLE_OK) feed.report(Feed::Level::kError, curl_easy_strerror(ready));
  Sender(options_, feed).run();
}

}  // namespace

std::unique_ptr<Destination> readHttpDestination(TomlTable& table, const std::string& directory) {
  HttpOptions options;
  table.require("url");
  if (table.readName("url", options.url) && !options.url.starts_with("http://") &&
      !options.url.starts_with("https://")) {
    table.report("url", "the url must begin with http:// or https://");
  }
  table.readWord("form", options.form, {{"ndjson", HttpOptions::Form::kNdjson}, {"otlp", HttpOptions::Form::kOtlp}});
  table.readNumber("batch_events", options.batchEvents, 1, 100'000);
  table.readSize("batch_bytes", options.batchBytes, 1024, 64 << 20);
  table.read("gzip", options.gzip);
  constexpr std::chrono::milliseconds kDay(std::chrono::hours(24));
  table.readDuration("timeout", options.timeout, std::chrono::milliseconds(100), kDay);
  table.readDuration("retry_most", options.mostWait, std::chrono::milliseconds(200), kDay);
  table.require("dead_letters");
  table.readPath("dead_letters", directory, options.deadLetters);
  table.read("verify", options.verify);
  table.readPath("ca", directory, options.ca);
  table.readPath("certificate", directory, options.certificate);
  table.readPath("key", directory, options.key);
  table.readNames("headers", options.headers);
  for (const std::string& header : options.headers) {
    if (!isHeader(header)) table.report("headers", "a header must be \"NAME: VALUE\": \"" + header + "\"");
  }
  table.readPath("headers_file", directory, options.headersFile);
  table.readName("token", options.token);
  if (!isHeader("x:" + options.token)) table.report("token", "a token has no control characters");
  table.readPath("token_file", directory, options.tokenFile);
  if (!options.token.empty() && !options.tokenFile.empty()) {
    table.report("token_file", "there must be one of token and token_file");
  }
  return std::make_unique<HttpDestination>(std::move(options));
}

}  // namespace quillon::delivery
