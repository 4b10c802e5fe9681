#include "src/adapters/logfile/broker/NatsSource.h"

#include <rapidjson/document.h>

#include <charconv>
#include <future>
#include <map>
#include <utility>
#include <vector>

#include "delivery/brokers/NatsConnection.h"
#include "foundation/json_text.h"
#include "src/adapters/logfile/broker/HeldBatches.h"

namespace quillon {
namespace {

using delivery::NatsConnection;
using delivery::NatsPtr;
using std::chrono::milliseconds;

/// How long the server keeps a request for messages, and how long after that it is taken for lost.
constexpr std::chrono::seconds kRequestLasts(10);
constexpr std::chrono::seconds kRequestLost(15);
/// Between two tries of what has failed.
constexpr std::chrono::seconds kTryAgain(1);
/// While there is nothing to poll.
constexpr milliseconds kLook(50);
/// For acknowledgements that are on their way at the end.
constexpr int kFlushMs = 2000;
/// Bytes of messages that are held, beside the limit in batches.
constexpr std::size_t kMostBytes = 128 << 20;

std::int64_t nanoseconds(Duration time) { return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count(); }

/// The sequence in the stream, from the subject that a message is acknowledged by:
/// "$JS.ACK.STREAM.CONSUMER.TIMES.SEQUENCE.CONSUMERS.TIME.PENDING", or, of later servers, with the domain and the hash
/// of an account before the stream. 0 when it is none.
std::uint64_t sequenceIn(std::string_view subject) {
  if (!subject.starts_with("$JS.ACK.")) return 0;
  std::vector<std::string_view> words;
  for (std::size_t dot = 0; dot != std::string_view::npos; subject.remove_prefix(dot + 1)) {
    dot = subject.find('.');
    words.push_back(subject.substr(0, dot));
    if (dot == std::string_view::npos) break;
  }
  const std::size_t at = words.size() == 9 ? 5 : words.size() >= 11 ? 7 : 0;
  std::uint64_t sequence = 0;
  if (at > 0) std::from_chars(words[at].data(), words[at].data() + words[at].size(), sequence);
  return sequence;
}

class NatsSource : public Source {
 public:
  NatsSource(const NatsSourceOptions& options, SourceObserver& observer) : options_(options), observer_(observer) {
    connect();
  }

  ~NatsSource() override {
    if (opening_.valid()) opening_.wait();
    if (connection_) natsConnection_FlushTimeout(connection_->get(), kFlushMs);
  }

  bool next(TimePoint now, Message& message) override {
    allowance_.begin();
    if (isStopped_) return false;
    tend(now);
    if (!held_.next(message)) return false;
    allowance_.took(message.text.size());
    count(message, message.text.size());
    return true;
  }

  int descriptor() const override { return connection_ ? connection_->descriptor() : -1; }
  TimePoint deadline() const override { return held_.hasNext() ? TimePoint::min() : tendAt_; }

  void finish(Finish how) override {
    if (how == Finish::kStop) isStopped_ = true;
    isDraining_ = true;
  }
  bool ended() const override { return isStopped_ || (isDrained_ && !held_.hasNext()); }

  std::optional<Origin> origin(const Position& position) const override { return held_.origin(position); }
  bool comesAgain(const Position& /*position*/) const override { return true; }

  void stored(const Position& position) override {
    held_.stored(position);
    acknowledgeDone();
  }

 private:
  /// Opens a connection in a thread of its own, since that may wait for a server that does not answer.
  void connect() {
    opening_ = std::async(std::launch::async, [options = options_.connection] {
      Opened opened;
      opened.connection = NatsConnection::open(options, "quillon-adapter", opened.error);
      return opened;
    });
  }

  void tend(TimePoint now) {
    tendAt_ = now + kTryAgain;
    if (!connection_ && !takeConnection(now)) return;
    if (connection_->isClosed()) {
      tell(connection_->lastError());
      connection_.reset();
      isReady_ = false;
      connectAt_ = now + kTryAgain;
      return;
    }
    for (const NatsPtr<natsMsg>& message : connection_->take()) arrived(message.get(), now);
    if (!connection_->isConnected()) {
      tell(connection_->lastError());
      return;
    }
    if (connection_->epoch() != epoch_) {  // what was asked for there will not come
      epoch_ = connection_->epoch();
      isReady_ = false;
      asked_ = 0;
      ensureAt_ = now;
    }
    if (!isReady_ && now >= ensureAt_) ensureConsumer(now);
    if (isReady_) ask(now);
    keepAlive(now);
    if (isDraining_) tendAt_ = std::min(tendAt_, now + kLook);
  }

  bool takeConnection(TimePoint now) {
    tendAt_ = now + kLook;
    if (!opening_.valid()) {
      if (now >= connectAt_) connect();
      return false;
    }
    if (opening_.wait_for(milliseconds(0)) != std::future_status::ready) return false;
    Opened opened = opening_.get();
    connection_ = std::move(opened.connection);
    epoch_ = 0;
    if (connection_) return true;
    tell(opened.error);
    connectAt_ = now + kTryAgain;
    return false;
  }

  /// Asks for the consumer; one that is there and is the same is not made again.
  void ensureConsumer(TimePoint now) {
    std::string json = "{\"stream_name\":\"";
    appendJson(json, options_.stream);
    json += "\",\"config\":{\"durable_name\":\"";
    appendJson(json, options_.consumer);
    json += "\",\"deliver_policy\":\"all\",\"ack_policy\":\"explicit\",\"max_deliver\":-1,\"max_ack_pending\":-1,";
    if (!options_.subject.empty()) {
      json += "\"filter_subject\":\"";
      appendJson(json, options_.subject);
      json += "\",";
    }
    json += "\"replay_policy\":\"instant\",\"ack_wait\":" + std::to_string(nanoseconds(options_.ackWait)) + "}}";
    ensureAt_ = now + kRequestLasts / 2;
    static_cast<void>(
        connection_->publish("$JS.API.CONSUMER.DURABLE.CREATE." + options_.stream + "." + options_.consumer,
                             connection_->inbox() + ".c", json));
  }

  void ask(TimePoint now) {
    if (asked_ > 0 && now < askedAt_ + kRequestLost) return;
    if (held_.batches() * 2 > options_.batches || held_.bytes() > kMostBytes) return;
    asked_ = options_.batches - held_.batches();
    askedAt_ = now;
    const std::string json =
        "{\"batch\":" + std::to_string(asked_) +
        (isDraining_ ? ",\"no_wait\":true}" : ",\"expires\":" + std::to_string(nanoseconds(kRequestLasts)) + "}");
    static_cast<void>(connection_->publish("$JS.API.CONSUMER.MSG.NEXT." + options_.stream + "." + options_.consumer,
                                           connection_->inbox() + ".m", json));
  }

  void arrived(natsMsg* message, TimePoint now) {
    if (std::string_view(natsMsg_GetSubject(message)) == connection_->inbox() + ".c") return answered(message, now);
    const char* const reply = natsMsg_GetReply(message);
    const std::uint64_t sequence = reply ? sequenceIn(reply) : 0;
    if (sequence == 0) {  // "no messages", "request timeout": nothing more comes for this request
      asked_ = 0;
      if (isDraining_) isDrained_ = true;
      return;
    }
    if (asked_ > 0) --asked_;
    const auto [kept, isNew] = kept_.insert_or_assign(sequence, reply);
    if (!isNew) return;  // given out again while it is still worked on
    const std::string_view data(natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    if (!held_.add(sequence, std::string(data), options_.stream, sequence)) {
      observer_.notice(SourceObserver::Level::kError, "message " + std::to_string(sequence) + " of the stream " +
                                                          options_.stream + " is damaged: what stands behind is lost");
    }
    acknowledgeDone();  // of an empty one
  }

  /// To the request for the consumer.
  void answered(natsMsg* message, TimePoint now) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(natsMsg_GetData(message),
                                                   static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    if (document.HasParseError() || !document.IsObject()) {
      ensureAt_ = now + kTryAgain;
      return tell("no JetStream there");
    }
    if (!document.HasMember("error")) {
      isReady_ = true;
      told_.clear();
      return;
    }
    const rapidjson::Value& error = document["error"];
    const bool isText = error.IsObject() && error.HasMember("description") && error["description"].IsString();
    tell("the consumer " + options_.consumer + " of the stream " + options_.stream + ": " +
         (isText ? error["description"].GetString() : "an error"));
    ensureAt_ = now + kTryAgain;
  }

  void acknowledgeDone() {
    for (const std::uint64_t sequence : held_.takeDone()) {
      const auto found = kept_.find(sequence);
      if (found == kept_.end()) continue;
      if (connection_) static_cast<void>(connection_->publish(found->second, "", "+ACK"));
      kept_.erase(found);
    }
  }

  /// Tells the server that what is held is worked on, three times before it gives that to somebody else.
  void keepAlive(TimePoint now) {
    if (now < aliveAt_) return;
    aliveAt_ = now + options_.ackWait / 3;
    for (const auto& [sequence, reply] : kept_) static_cast<void>(connection_->publish(reply, "", "+WPI"));
  }

  void tell(const std::string& text) {
    if (told_ == text) return;
    told_ = text;
    observer_.notice(SourceObserver::Level::kWarning, text + "; trying again");
  }

  struct Opened {
    std::unique_ptr<NatsConnection> connection;
    std::string error;
  };

  const NatsSourceOptions options_;
  SourceObserver& observer_;
  std::future<Opened> opening_;
  std::unique_ptr<NatsConnection> connection_;
  std::uint64_t epoch_ = 0;  ///< Of the connection, when it was asked for the consumer.
  bool isReady_ = false;     ///< The consumer is there.
  std::uint64_t asked_ = 0;  ///< Messages that may still come.
  TimePoint askedAt_, ensureAt_, connectAt_, aliveAt_;
  TimePoint tendAt_ = TimePoint::min();
  HeldBatches held_;
  std::map<std::uint64_t, std::string> kept_;  ///< Of what is held, by its sequence, the subject to acknowledge it.
  std::string told_;
  bool isDraining_ = false;
  bool isDrained_ = false;
  bool isStopped_ = false;
};

}  // namespace

std::unique_ptr<Source> openNatsSource(const NatsSourceOptions& options, SourceObserver& observer) {
  return std::make_unique<NatsSource>(options, observer);
}

void readNatsSource(TomlTable& table, const std::string& directory, NatsSourceOptions& options) {
  delivery::readNatsOptions(table, directory, options.connection);
  const auto readToken = [&table](std::string_view key, std::string& name) {
    if (table.readName(key, name) && name.find_first_of(" .*>/\\\t\r\n") != std::string::npos) {
      table.report(key, std::string(key) + " is a name without white space and . * > / \\");
    }
  };
  table.require("stream");
  readToken("stream", options.stream);
  readToken("consumer", options.consumer);
  table.readName("subject", options.subject);
  table.readDuration("ack_wait", options.ackWait, std::chrono::seconds(1), std::chrono::hours(24));
  table.readNumber("batches", options.batches, 1, 10'000);
}

}  // namespace quillon
