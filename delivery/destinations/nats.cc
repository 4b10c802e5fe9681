#include <poll.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <charconv>
#include <deque>
#include <limits>
#include <optional>
#include <utility>

#include "delivery/brokers/MessageBuilder.h"
#include "delivery/brokers/NatsConnection.h"
#include "delivery/destinations/Backoff.h"
#include "delivery/destinations/DeadLetters.h"
#include "delivery/destinations/Destination.h"
#include "delivery/destinations/FeedCursor.h"

namespace quillon::delivery {
namespace {

using Clock = Feed::Clock;

/// The keys of a destination of the type "nats".
struct NatsDestinationOptions {
  NatsOptions connection;
  NatsStream stream;
  std::string subject;
  std::uint64_t batchEvents = 256;                               ///< In a message at most.
  std::uint64_t batchBytes = 512 << 10;                          ///< The same; less where the server's limit is lower.
  Feed::Clock::duration linger = std::chrono::milliseconds(20);  ///< That a message waits to become full.
  std::uint64_t window = 256;                                    ///< Messages that may wait for their acknowledgement.
  Feed::Clock::duration ackWait = std::chrono::seconds(5);       ///< Then a message is published again.
  std::string deadLetters;  ///< File for events that are too large for the server; empty: they are dropped.
};

/// How often the stream is asked for its sequence, to see whether it has lost something.
constexpr std::chrono::seconds kCheckEvery(10);
/// Of acknowledged messages it is known where they are in the stream.
constexpr std::size_t kRemembered = 1 << 16;
/// Bytes that wait for their acknowledgement, besides the limit in messages.
constexpr std::size_t kWindowBytes = 64 << 20;
/// Header lines of a message count for the server's limit too.
constexpr std::int64_t kHeaderRoom = 1024;
/// An acknowledgement is waited for up to 2^this times as long as at first.
constexpr int kLongestWaits = 4;

/// The answer to a message.
struct Acknowledgement {
  std::string error;  ///< Empty when it is in the stream.
  std::string stream;
  std::uint64_t sequence = 0;
  bool isRepetition = false;
};

Acknowledgement readAcknowledgement(natsMsg* message) {
  Acknowledgement read;
  if (natsMsg_GetDataLength(message) == 0) {
    const char* status = nullptr;
    natsMsgHeader_Get(message, "Status", &status);
    read.error = status && std::string_view(status) == "503" ? "no stream takes the subject" : "an empty answer";
    return read;
  }
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(natsMsg_GetData(message),
                                                 static_cast<std::size_t>(natsMsg_GetDataLength(message)));
  const auto isText = [](const rapidjson::Value& object, const char* name) {
    return object.HasMember(name) && object[name].IsString();
  };
  if (document.HasParseError() || !document.IsObject()) {
    read.error = "an answer that is no JSON";
  } else if (document.HasMember("error")) {
    const rapidjson::Value& error = document["error"];
    read.error = error.IsObject() && isText(error, "description") ? error["description"].GetString() : "an error";
  } else if (!isText(document, "stream") || !document.HasMember("seq") || !document["seq"].IsUint64()) {
    read.error = "an answer without stream and sequence";
  } else {
    read.stream = document["stream"].GetString();
    read.sequence = document["seq"].GetUint64();
    read.isRepetition = document.HasMember("duplicate") && document["duplicate"].IsTrue();
  }
  return read;
}

/// A message that was published, until all before it and itself are acknowledged.
struct Outgoing {
  std::string bytes;
  std::string id;
  bool isRaw = false;
  std::uint64_t first = 0;   ///< Event.
  std::uint64_t end = 0;     ///< For Feed::delivered().
  Clock::time_point sendAt;  ///< Again, if it was not acknowledged until then.
  std::uint64_t after = 0;   ///< What was acknowledged before it was published first has lower sequences than this has.
  int sent = 0;              ///< How often.
  bool isAcknowledged = false;
};

class Publisher {
 public:
  Publisher(const NatsDestinationOptions& options, Feed& feed)
      : options_(options),
        feed_(feed),
        cursor_(feed),
        builder_(options.batchEvents, options.batchBytes),
        deadLetters_(options.deadLetters) {}

  void run() {
    while (!feed_.stopping()) {
      const Clock::time_point now = Clock::now();
      if (!connect(now)) continue;
      takeAnswers(now);
      if (isReady_ && now >= checkAt_) check(now);
      publishLate(now);
      while (hasRoom() && build(now)) publishNew(now);
      settle();
      if (feed_.draining() && outgoing_.empty() && builder_.empty() && !cursor_.peek()) return;
      wait(now);
    }
  }

 private:
  /// True when there is a connection, whether or not it is up at the moment.
  bool connect(Clock::time_point now) {
    if (connection_ && !connection_->isClosed()) {
      followState(now);
      return true;
    }
    if (connection_) tellLost(connection_->lastError());
    connection_.reset();
    isReady_ = false;
    std::string error;
    connection_ = NatsConnection::open(options_.connection, feed_.clientId(), error);
    epoch_ = 0;
    if (connection_) return true;
    tellLost(error);
    pause(feed_, now + backoff_.next());
    return false;
  }

  /// Sees whether the connection was lost or has come back, and what is to be done then.
  void followState(Clock::time_point now) {
    const bool isUp = connection_->isConnected();
    const std::uint64_t epoch = connection_->epoch();
    if (!isUp) {
      isReady_ = false;
      tellLost(connection_->lastError());
      return;
    }
    // The library is connected a moment before it says so; only then is its inbox heard of again.
    if (epoch == epoch_ || now < readyAt_) return;
    isReady_ = false;
    std::string error;
    if (!ensureStream(*connection_, options_.stream, options_.subject, error)) {
      tellLost(error);
      readyAt_ = now + backoff_.next();
      return;
    }
    if (std::exchange(wasReady_, true)) feed_.count("reconnects");
    epoch_ = epoch;
    isReady_ = true;
    isTold_ = false;
    backoff_.reset();
    feed_.connected(true);
    builder_.setMostBytes(std::min<std::uint64_t>(options_.batchBytes, limit()));
    checkAt_ = now;
    for (Outgoing& one : outgoing_) one.sendAt = now;  // nobody knows what arrived
  }

  void tellLost(const std::string& why) {
    if (!isTold_) feed_.report(Feed::Level::kWarning, why + "; trying again");
    isTold_ = true;
    feed_.connected(false);
  }

  /// Bytes of a message that the server takes.
  std::uint64_t limit() const {
    return static_cast<std::uint64_t>(
        std::max<std::int64_t>(natsConnection_GetMaxPayload(connection_->get()) - kHeaderRoom, kHeaderRoom));
  }

  bool hasRoom() const { return isReady_ && outgoing_.size() < options_.window && outgoingBytes_ < kWindowBytes; }

  /// Fills the next message. True when it is to be published now.
  bool build(Clock::time_point now) {
    while (!builder_.isFull()) {
      const Event* const event = cursor_.peek();
      if (!event) break;
      if (builder_.empty()) lingerUntil_ = now + options_.linger;
      if (!builder_.add(*event)) return true;
      if (builder_.bytes().size() > limit()) {
        if (!refuse(*event)) return false;
        continue;
      }
      cursor_.take();
      builtEnd_ = cursor_.end();
    }
    return !builder_.empty() && (builder_.isFull() || now >= lingerUntil_ || feed_.draining());
  }

  /// An event that alone is more than a message may have. False when the feed says stop.
  bool refuse(const Event& event) {
    builder_.clear();
    const std::string why = "an event of " + std::to_string(event.bytes.size()) + " bytes is too large for the server";
    if (options_.deadLetters.empty()) {
      feed_.report(Feed::Level::kError, why + ", and dropped, since there is no dead_letters");
      feed_.count("refused");
    } else if (!deadLetters_.put(feed_, {&event, 1}, why)) {
      return false;
    }
    cursor_.take();
    return true;
  }

  void publishNew(Clock::time_point now) {
    Outgoing& one = outgoing_.emplace_back();
    one.bytes = builder_.bytes();
    one.id = feed_.clientId() + ":" + builder_.range();
    one.isRaw = builder_.isRaw();
    one.first = builder_.first();
    one.end = builtEnd_;
    outgoingBytes_ += one.bytes.size();
    builder_.clear();
    publish(outgoing_.size() - 1, now);
  }

  void publish(std::size_t index, Clock::time_point now) {
    Outgoing& one = outgoing_[index];
    if (one.sent == 0) one.after = highest_;
    if (one.sent > 0) feed_.count("republished");
    // The more patiently the more often: the server may be slow because of what it is sent.
    one.sendAt = now + options_.ackWait * (1 << std::min(one.sent++, kLongestWaits));
    const natsStatus status =
        connection_->publish(options_.subject, connection_->inbox() + "." + std::to_string(taken_ + index), one.bytes,
                             one.id, one.isRaw ? "application/x-quillon-records" : "application/x-ndjson");
    if (status != NATS_OK) feed_.report(Feed::Level::kWarning, "cannot publish: " + natsError(status));
  }

  /// What nobody has acknowledged in time: the library does not do that, and would wait for ever.
  void publishLate(Clock::time_point now) {
    if (!isReady_) return;
    for (std::size_t i = 0; i < outgoing_.size(); ++i) {
      if (!outgoing_[i].isAcknowledged && outgoing_[i].sendAt <= now) publish(i, now);
    }
  }

  void takeAnswers(Clock::time_point now) {
    for (const NatsPtr<natsMsg>& message : connection_->take()) {
      const std::string_view subject = natsMsg_GetSubject(message.get());
      std::uint64_t number = 0;
      const char* const digits = subject.data() + std::min(subject.size(), connection_->inbox().size() + 1);
      std::from_chars(digits, subject.data() + subject.size(), number);
      if (number < taken_ || number - taken_ >= outgoing_.size()) continue;  // acknowledged before
      answered(outgoing_[number - taken_], readAcknowledgement(message.get()), now);
    }
  }

  void answered(Outgoing& one, const Acknowledgement& answer, Clock::time_point now) {
    if (one.isAcknowledged) return;
    if (!answer.error.empty()) {
      feed_.report(Feed::Level::kWarning, "the server does not take what is published to " + options_.subject + ": " +
                                              answer.error + "; trying again");
      one.sendAt = std::min(one.sendAt, now + refused_.next());
      return;
    }
    refused_.reset();
    deadLetters_.endBurst(feed_);
    one.isAcknowledged = true;
    stream_ = answer.stream;
    // Sequences only grow. One that comes twice, or is lower than what was there before the message was sent, shows
    // that the stream has lost its end.
    if (!answer.isRepetition && answer.sequence <= one.after) lostFrom_ = std::min(lostFrom_, answer.sequence);
    highest_ = std::max(highest_, answer.sequence);
    placed_.push_back({answer.sequence, one.first});
    if (placed_.size() > kRemembered) {
      forgotten_ = std::max(forgotten_, placed_.front().sequence);
      placed_.pop_front();
    }
  }

  /// Gives the feed what is acknowledged, as far as nothing before it is missing.
  void settle() {
    if (lostFrom_ != kNothing) return goBack();
    const Outgoing* last = nullptr;
    while (!outgoing_.empty() && outgoing_.front().isAcknowledged) {
      last = &outgoing_.front();
      feedEnd_ = last->end;
      outgoingBytes_ -= last->bytes.size();
      outgoing_.pop_front();
      ++taken_;
    }
    if (last) feed_.delivered(feedEnd_);
    // What was refused, or does not pass the filters.
    if (outgoing_.empty() && builder_.empty() && cursor_.end() > feed_.delivered()) feed_.delivered(cursor_.end());
  }

  /// Asks the stream how far it is.
  void check(Clock::time_point now) {
    checkAt_ = now + kCheckEvery;
    if (stream_.empty() || highest_ == 0) return;
    jsStreamInfo* info = nullptr;
    if (js_GetStreamInfo(&info, connection_->jetStream(), stream_.c_str(), nullptr, nullptr) != NATS_OK) return;
    const NatsPtr<jsStreamInfo> found(info);
    if (info->State.LastSeq < highest_) lostFrom_ = info->State.LastSeq + 1;
  }

  /// The stream has lost messages from the sequence lostFrom_ on that it had acknowledged.
  void goBack() {
    std::uint64_t number = forgotten_ >= lostFrom_ ? 0 : outgoing_.empty() ? cursor_.end() : outgoing_.front().first;
    for (const Placed& placed : placed_) {
      if (placed.sequence >= lostFrom_) number = std::min(number, placed.first);
    }
    feed_.report(Feed::Level::kWarning, "the stream " + stream_ + " has lost what it had acknowledged, from " +
                                            std::to_string(lostFrom_) + " on; sending again from event " +
                                            std::to_string(number) + " on");
    feed_.count("replays");
    feed_.rewind(number);
    cursor_.reset();
    builder_.clear();
    taken_ += outgoing_.size();
    outgoing_.clear();
    outgoingBytes_ = 0;
    std::erase_if(placed_, [this](const Placed& placed) { return placed.sequence >= lostFrom_; });
    highest_ = lostFrom_ - 1;
    lostFrom_ = kNothing;
  }

  void wait(Clock::time_point now) {
    Clock::time_point until = now + std::chrono::seconds(1);
    for (const Outgoing& one : outgoing_) {
      if (!one.isAcknowledged) until = std::min(until, one.sendAt);
    }
    if (!builder_.empty()) until = std::min(until, lingerUntil_);
    if (!isReady_) until = std::min(until, now + std::chrono::milliseconds(100));
    pollfd answers{connection_->descriptor(), POLLIN, 0};
    if (hasRoom()) return feed_.wait(until, {&answers, 1});
    constexpr std::int64_t kLookMs = 100;  // for a feed that says stop
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    poll(&answers, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, kLookMs)));
  }

  struct Placed {
    std::uint64_t sequence;  ///< In the stream,
    std::uint64_t first;     ///< of the message that begins with this event.
  };
  static constexpr std::uint64_t kNothing = std::numeric_limits<std::uint64_t>::max();

  const NatsDestinationOptions& options_;
  Feed& feed_;
  FeedCursor cursor_;
  MessageBuilder builder_;
  DeadLetters deadLetters_;
  Backoff backoff_{std::chrono::milliseconds(100), std::chrono::seconds(5)};
  Backoff refused_{std::chrono::milliseconds(100), std::chrono::seconds(5)};

  std::unique_ptr<NatsConnection> connection_;
  Clock::time_point readyAt_;  ///< Not before that it is tried again to make it so.
  Clock::time_point checkAt_;
  std::uint64_t epoch_ = 0;  ///< Of the connection that is, or was, ready.
  bool isReady_ = false;     ///< Connected, and the stream is there.
  bool wasReady_ = false;
  bool isTold_ = false;

  Clock::time_point lingerUntil_;
  std::uint64_t builtEnd_ = 0;
  std::deque<Outgoing> outgoing_;
  std::uint64_t taken_ = 0;  ///< Messages that were removed at the front: those there are have the numbers behind it.
  std::size_t outgoingBytes_ = 0;
  std::uint64_t feedEnd_ = 0;

  std::string stream_;           ///< That acknowledges,
  std::uint64_t highest_ = 0;    ///< and the highest sequence that it gave.
  std::deque<Placed> placed_;    ///< In the order of acknowledgements.
  std::uint64_t forgotten_ = 0;  ///< Highest sequence that is no longer there.
  std::uint64_t lostFrom_ = kNothing;
};

/// Publishes to JetStream, many events a message: events and attributes as lines of JSON (see record_json.h), raw
/// messages as they are (see record_batch.h). What is acknowledged is delivered, and nothing else.
///
/// A message has the id "CLIENT:FIRST-LAST", of the numbers of its events, and keeps it when it is published again: so
/// the server knows a repetition. Messages end at multiples of `batch_events` where they can, so that after a restart
/// the same events make the same messages.
///
/// A server may lose what it has acknowledged, since it does not wait for its disk. That shows in the sequence of the
/// stream, which goes back: then the events concerned are sent again, as far as the cache still has them.
class NatsDestination : public Destination {
 public:
  explicit NatsDestination(NatsDestinationOptions options) : options_(std::move(options)) {}

  void run(Feed& feed) const override;
  bool takesAllForms() const override { return true; }

 private:
  const NatsDestinationOptions options_;
};

void NatsDestination::run(Feed& feed) const { Publisher(options_, feed).run(); }

}  // namespace

std::unique_ptr<Destination> readNatsDestination(TomlTable& table, const std::string& directory) {
  NatsDestinationOptions options;
  readNatsOptions(table, directory, options.connection);
  readNatsStream(table, options.stream);
  table.require("subject");
  if (table.readName("subject", options.subject) && options.subject.find_first_of("*> \t\r\n") != std::string::npos) {
    table.report("subject", "a subject to publish to has no white space, * or >");
  }
  table.readNumber("batch_events", options.batchEvents, 1, 65'536);
  table.readSize("batch_bytes", options.batchBytes, 1024, 64 << 20);
  table.readDuration("linger", options.linger, std::chrono::milliseconds(0), std::chrono::seconds(60));
  table.readNumber("window", options.window, 1, 65'536);
  table.readDuration("ack_wait", options.ackWait, std::chrono::milliseconds(100), std::chrono::hours(1));
  table.readPath("dead_letters", directory, options.deadLetters);
  return std::make_unique<NatsDestination>(std::move(options));
}

}  // namespace quillon::delivery
