#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "delivery/brokers/kafka_client.h"
#include "delivery/brokers/record_batch.h"
#include "delivery/destinations/Backoff.h"
#include "delivery/destinations/DeadLetters.h"
#include "delivery/destinations/Destination.h"
#include "delivery/destinations/FeedCursor.h"
#include "delivery/record_json.h"
#include "foundation/descriptor.h"

namespace quillon::delivery {
namespace {

using Clock = Feed::Clock;

/// The keys of a destination of the type "kafka".
struct KafkaDestinationOptions {
  KafkaOptions connection;
  std::string topic;
  bool isKeyed = false;                                   ///< By the source, so that its events keep their order.
  std::uint64_t batchEvents = 256;                        ///< Raw messages in one of the broker's.
  std::uint64_t mostBytes = 1'000'000;                    ///< Of one of the broker's messages.
  Clock::duration linger = std::chrono::milliseconds(5);  ///< That the library waits for more.
  std::uint64_t window = 10'000;                          ///< Messages that may wait for their delivery.
  std::string deadLetters;  ///< File for events that the brokers will never take; empty: they are dropped.
};

struct KafkaDestroy {
  void operator()(rd_kafka_t* producer) const {
    rd_kafka_purge(producer, RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
    rd_kafka_destroy(producer);
  }
};

/// A message that was given to the library, until all before it and itself are delivered.
struct Outgoing {
  std::string records;  ///< A batch of records, see record_batch.h.
  std::string source;   ///< Of all of them, where messages are keyed.
  bool isRaw = false;
  std::uint64_t first = 0;  ///< Event.
  std::uint64_t end = 0;    ///< For Feed::delivered().
  std::uint64_t events = 0;
  bool isGiven = false;  ///< To the library.
  bool isDelivered = false;
};

class Producer {
 public:
  Producer(const KafkaDestinationOptions& options, Feed& feed)
      : options_(options), feed_(feed), cursor_(feed), deadLetters_(options.deadLetters) {}

  void run() {
    while (!feed_.stopping()) {
      if (!producer_ && !open()) continue;
      drainBell();
      rd_kafka_poll(producer_.get(), 0);
      if (rd_kafka_fatal_error(producer_.get(), nullptr, 0) != RD_KAFKA_RESP_ERR_NO_ERROR) {
        reopen();
        continue;
      }
      giveWaiting();
      while (hasRoom() && build()) giveWaiting();
      settle();
      if (feed_.draining() && outgoing_.empty() && !cursor_.peek()) break;
      wait();
    }
  }

 private:
  bool open() {
    std::string error;
    KafkaPtr<rd_kafka_conf_t> config = makeKafkaConfig(options_.connection, feed_.clientId(),
                                                       {{"enable.idempotence", "true"},
                                                        {"message.timeout.ms", "0"},  // for as long as it takes
                                                        {"message.max.bytes", std::to_string(options_.mostBytes)},
                                                        {"linger.ms", std::to_string(lingerMs())}},
                                                       error);
    char why[512] = "";
    if (config) {
      rd_kafka_conf_set_opaque(config.get(), this);
      rd_kafka_conf_set_dr_msg_cb(config.get(), onDelivery);
      rd_kafka_conf_set_error_cb(config.get(), onError);
      rd_kafka_conf_set_log_cb(config.get(), nullptr);  // what matters comes as an error too
      producer_.reset(rd_kafka_new(RD_KAFKA_PRODUCER, config.get(), why, sizeof why));
    }
    if (!producer_) {
      feed_.report(Feed::Level::kError, (config ? std::string(why) : error) + "; trying again");
      pause(feed_, Clock::now() + backoff_.next());
      return false;
    }
    static_cast<void>(config.release());  // it went with the producer
    topic_.reset(rd_kafka_topic_new(producer_.get(), options_.topic.c_str(), nullptr));
    const std::uint64_t ring = 1;
    const KafkaPtr<rd_kafka_queue_t> queue(rd_kafka_queue_get_main(producer_.get()));
    rd_kafka_queue_io_event_enable(queue.get(), bell_.get(), &ring, sizeof ring);
    return true;
  }

  std::int64_t lingerMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(options_.linger).count();
  }

  /// The producer is of no use any more: another one begins with what it has not delivered.
  void reopen() {
    char why[512] = "";
    rd_kafka_fatal_error(producer_.get(), why, sizeof why);
    feed_.report(Feed::Level::kWarning, std::string(why) + "; beginning anew");
    feed_.count("restarts");
    topic_.reset();
    producer_.reset();
    for (Outgoing& one : outgoing_) one.isGiven = false;
    waiting_ = 0;
    pause(feed_, Clock::now() + backoff_.next());
  }

  bool hasRoom() const { return waiting_ == outgoing_.size() && outgoing_.size() < options_.window; }

  /// Makes the next message. False when there is nothing for one.
  bool build() {
    const Event* event = cursor_.peek();
    if (!event) return false;
    Outgoing& one = outgoing_.emplace_back();
    one.isRaw = isRaw(*event);
    one.first = event->number;
    for (; event && (one.events == 0 || fits(one, *event)); event = cursor_.peek()) {
      if (one.events == 0 && options_.isKeyed) one.source = sourceOf(*event);
      appendRecord(one.records, event->bytes);
      ++one.events;
      const bool endsBatch = (event->number + 1) % options_.batchEvents == 0;
      cursor_.take();
      one.end = cursor_.end();
      if (!one.isRaw || endsBatch) break;
    }
    return true;
  }

  static bool isRaw(const Event& event) { return event.kind == static_cast<std::uint32_t>(RecordForm::kRaw); }

  bool fits(const Outgoing& one, const Event& event) {
    constexpr std::size_t kOverhead = 512;  // of the library, and of a record in a batch
    return one.isRaw && isRaw(event) && one.events < options_.batchEvents &&
           one.records.size() + event.bytes.size() + kOverhead <= options_.mostBytes &&
           (!options_.isKeyed || sourceOf(event) == one.source);
  }

  std::string sourceOf(const Event& event) {
    return decode(event.bytes, record_) ? std::string(record_.source) : std::string();
  }

  /// Gives the library what it does not have, as far as it takes it.
  void giveWaiting() {
    for (; waiting_ < outgoing_.size(); ++waiting_) {
      Outgoing& one = outgoing_[waiting_];
      if (one.isGiven || one.isDelivered) continue;
      if (Clock::now() < giveAt_) return;
      const std::string json = one.isRaw ? "" : jsonOf(one);
      const std::string& value = one.isRaw ? one.records : json;
      // The library hands its opaque back and never looks into it: a number will do. NOLINTNEXTLINE(*-int-to-ptr)
      void* const number = reinterpret_cast<void*>(static_cast<std::uintptr_t>(taken_ + waiting_));
      const int refused =
          rd_kafka_produce(topic_.get(), RD_KAFKA_PARTITION_UA, RD_KAFKA_MSG_F_COPY, const_cast<char*>(value.data()),
                           value.size(), one.source.empty() ? nullptr : one.source.data(), one.source.size(), number);
      const rd_kafka_resp_err_t error = refused == 0 ? RD_KAFKA_RESP_ERR_NO_ERROR : rd_kafka_last_error();
      if (error == RD_KAFKA_RESP_ERR__QUEUE_FULL) return;
      one.isGiven = error == RD_KAFKA_RESP_ERR_NO_ERROR;
      if (error != RD_KAFKA_RESP_ERR_NO_ERROR && !failed(one, error)) return;
    }
  }

  std::string jsonOf(const Outgoing& one) {
    RecordBatchReader batch(one.records);
    std::string_view bytes;
    std::string json;
    if (batch.next(bytes) && decode(bytes, record_)) appendJson(json, record_);
    return json;
  }

  static void onDelivery(rd_kafka_t* /*producer*/, const rd_kafka_message_t* message, void* self) {
    static_cast<Producer*>(self)->reported(reinterpret_cast<std::uintptr_t>(message->_private), message->err);
  }

  void reported(std::uint64_t number, rd_kafka_resp_err_t error) {
    if (number < taken_ || number - taken_ >= outgoing_.size()) return;
    Outgoing& one = outgoing_[number - taken_];
    if (!one.isGiven || one.isDelivered) return;  // of a producer that is gone
    if (error == RD_KAFKA_RESP_ERR_NO_ERROR) {
      one.isDelivered = true;
      feed_.connected(true);
      backoff_.reset();
      deadLetters_.endBurst(feed_);
      return;
    }
    one.isGiven = false;
    if (!failed(one, error)) waiting_ = std::min<std::size_t>(waiting_, number - taken_);
  }

  /// The library, or a broker, does not take the message. True when that is settled: nobody ever will.
  bool failed(Outgoing& one, rd_kafka_resp_err_t error) {
    const std::string why = rd_kafka_err2str(error);
    if (error != RD_KAFKA_RESP_ERR_MSG_SIZE_TOO_LARGE && error != RD_KAFKA_RESP_ERR_INVALID_MSG_SIZE &&
        error != RD_KAFKA_RESP_ERR_INVALID_RECORD) {
      feed_.report(Feed::Level::kWarning, options_.topic + ": " + why + "; trying again");
      giveAt_ = Clock::now() + backoff_.next();
      return false;
    }
    one.isDelivered = refuse(one, why);
    return one.isDelivered;
  }

  bool refuse(const Outgoing& one, const std::string& why) {
    if (options_.deadLetters.empty()) {
      feed_.report(Feed::Level::kError, why + "; dropped, since there is no dead_letters");
      feed_.count("refused", one.events);
      return true;
    }
    std::vector<Event> events;
    events.reserve(one.events);
    RecordBatchReader batch(one.records);
    for (std::string_view bytes; batch.next(bytes);) events.push_back({one.first + events.size(), 0, bytes});
    return deadLetters_.put(feed_, events, why);
  }

  static void onError(rd_kafka_t* /*producer*/, int error, const char* reason, void* self) {
    Feed& feed = static_cast<Producer*>(self)->feed_;
    if (error == RD_KAFKA_RESP_ERR__FATAL) return;  // run() looks for these itself
    if (error == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN) feed.connected(false);
    feed.report(Feed::Level::kWarning, std::string(reason) + "; trying again");
  }

  void settle() {
    std::uint64_t end = 0;
    while (!outgoing_.empty() && outgoing_.front().isDelivered) {
      end = outgoing_.front().end;
      outgoing_.pop_front();
      ++taken_;
      waiting_ -= waiting_ > 0 ? 1 : 0;
    }
    if (end > 0) feed_.delivered(end);
    if (outgoing_.empty() && cursor_.end() > feed_.delivered()) feed_.delivered(cursor_.end());  // what was filtered
  }

  void drainBell() const {
    eventfd_t ignored = 0;
    eventfd_read(bell_.get(), &ignored);
  }

  void wait() {
    constexpr std::chrono::milliseconds kLook(100);  // for a feed that says stop, and for a library that is full
    pollfd bell{bell_.get(), POLLIN, 0};
    if (hasRoom()) return feed_.wait(Clock::now() + std::chrono::seconds(1), {&bell, 1});
    poll(&bell, 1, static_cast<int>(kLook.count()));
  }

  const KafkaDestinationOptions& options_;
  Feed& feed_;
  FeedCursor cursor_;
  DeadLetters deadLetters_;
  Backoff backoff_{std::chrono::milliseconds(100), std::chrono::seconds(5)};
  /// Rung by the library when it has something to say.
  const Descriptor bell_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::unique_ptr<rd_kafka_t, KafkaDestroy> producer_;
  KafkaPtr<rd_kafka_topic_t> topic_;  ///< Goes before its producer.
  std::deque<Outgoing> outgoing_;
  std::uint64_t taken_ = 0;  ///< Messages that were removed at the front: those there are have the numbers behind it.
  std::size_t waiting_ = 0;  ///< Of those there are, the first that the library may not have.
  Clock::time_point giveAt_;
  Record record_;
};

/// Produces with the library's idempotent producer, which neither repeats nor reorders what it sends again. An event is
/// a message of its own, an object of JSON (see record_json.h); raw messages travel several in one (see
/// record_batch.h). Delivered is what the brokers have told to be, and all before it.
class KafkaDestination : public Destination {
 public:
  explicit KafkaDestination(KafkaDestinationOptions options) : options_(std::move(options)) {}

  void run(Feed& feed) const override { Producer(options_, feed).run(); }
  bool takesAllForms() const override { return true; }

 private:
  const KafkaDestinationOptions options_;
};

}  // namespace

std::unique_ptr<Destination> readKafkaDestination(TomlTable& table, const std::string& directory) {
  KafkaDestinationOptions options;
  readKafkaOptions(table, directory, options.connection);
  table.require("topic");
  table.readName("topic", options.topic);
  table.readWord("order", options.isKeyed, {{"none", false}, {"source", true}});
  table.readNumber("batch_events", options.batchEvents, 1, 65'536);
  table.readSize("max_message", options.mostBytes, 1024, 1'000'000'000);
  table.readDuration("linger", options.linger, std::chrono::milliseconds(0), std::chrono::seconds(60));
  table.readNumber("window", options.window, 1, 100'000);
  table.readPath("dead_letters", directory, options.deadLetters);
  return std::make_unique<KafkaDestination>(std::move(options));
}

}  // namespace quillon::delivery
