#include "src/adapters/logfile/broker/KafkaSource.h"

#include <sys/eventfd.h>

#include <map>
#include <utility>

#include "delivery/brokers/kafka_client.h"
#include "foundation/descriptor.h"
#include "src/adapters/logfile/broker/HeldBatches.h"

namespace quillon {
namespace {

using delivery::KafkaPtr;

/// How often the library is asked when it has not rung: for errors, and while batches are held.
constexpr std::chrono::milliseconds kLook(500);
/// Bytes of messages that are held, beside the limit in batches.
constexpr std::size_t kMostBytes = 128 << 20;

struct ConsumerDestroy {
  void operator()(rd_kafka_t* consumer) const {
    rd_kafka_consumer_close(consumer);  // commits what is stored, and leaves the group
    rd_kafka_destroy(consumer);
  }
};

class KafkaSource : public Source {
 public:
  KafkaSource(const KafkaSourceOptions& options, SourceObserver& observer) : options_(options), observer_(observer) {}

  /// False when the library refuses the options, with the reason in `error`.
  bool open(std::string& error) {
    KafkaPtr<rd_kafka_conf_t> config = delivery::makeKafkaConfig(
        options_.connection, "quillon-adapter",
        {{"group.id", options_.group},
         {"enable.auto.offset.store", "false"},  // what is committed is what we say is stored
         {"enable.auto.commit", "true"},
         {"auto.commit.interval.ms", "1000"},
         {"auto.offset.reset", "earliest"},
         {"enable.partition.eof", "true"},
         // While the outputs take nothing nothing is asked for, and that is no reason to be thrown out of the group.
         {"max.poll.interval.ms", "86400000"}},
        error);
    if (!config) return false;
    rd_kafka_conf_set_opaque(config.get(), this);
    rd_kafka_conf_set_error_cb(config.get(), onError);
    rd_kafka_conf_set_log_cb(config.get(), nullptr);
    char why[512];
    consumer_.reset(rd_kafka_new(RD_KAFKA_CONSUMER, config.get(), why, sizeof why));
    if (!consumer_) {
      error = why;
      return false;
    }
    static_cast<void>(config.release());  // it went with the consumer
    rd_kafka_poll_set_consumer(consumer_.get());
    const std::uint64_t ring = 1;
    const KafkaPtr<rd_kafka_queue_t> queue(rd_kafka_queue_get_consumer(consumer_.get()));
    rd_kafka_queue_io_event_enable(queue.get(), bell_.get(), &ring, sizeof ring);
    const KafkaPtr<rd_kafka_topic_partition_list_t> topics(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_list_add(topics.get(), options_.topic.c_str(), RD_KAFKA_PARTITION_UA);
    const rd_kafka_resp_err_t failed = rd_kafka_subscribe(consumer_.get(), topics.get());
    if (failed != RD_KAFKA_RESP_ERR_NO_ERROR) error = rd_kafka_err2str(failed);
    return failed == RD_KAFKA_RESP_ERR_NO_ERROR;
  }

  bool next(TimePoint now, Message& message) override {
    if (isStopped_) return false;
    if (!held_.hasNext()) poll(now);
    if (!held_.next(message)) return false;
    count(message, message.text.size());
    return true;
  }

  int descriptor() const override { return bell_.get(); }
  TimePoint deadline() const override { return pollAt_; }

  void finish(Finish how) override {
    if (how == Finish::kStop) isStopped_ = true;
    isDraining_ = true;
  }
  /// Draining, it ends when every partition that it has was at its end.
  bool ended() const override { return isStopped_ || (isDraining_ && !held_.hasNext() && isAtEnd()); }

  std::optional<Origin> origin(const Position& position) const override { return held_.origin(position); }
  bool comesAgain(const Position& /*position*/) const override { return true; }

  void stored(const Position& position) override {
    held_.stored(position);
    store();
  }

 private:
  /// A message of a topic, until it and all before it in its partition are stored.
  struct Kept {
    std::int64_t offset;
    bool isStored;
  };
  struct Partition {
    std::map<std::uint64_t, Kept> kept;  ///< By the batch's id, which grow.
    bool isAtEnd = false;
  };

  void poll(TimePoint now) {
    eventfd_t ignored = 0;
    eventfd_read(bell_.get(), &ignored);
    pollAt_ = now + kLook;
    // Callbacks and rebalances are served here too, so the first call is made in any case.
    for (std::uint64_t n = 0; n == 0 || (n < options_.batches && hasRoom()); ++n) {
      if (!hasRoom()) return;
      const KafkaPtr<rd_kafka_message_t> message(rd_kafka_consumer_poll(consumer_.get(), 0));
      if (!message) return;
      take(*message);
    }
    pollAt_ = now;  // there may be more
  }

  bool hasRoom() const { return held_.batches() < options_.batches && held_.bytes() < kMostBytes; }

  void take(const rd_kafka_message_t& message) {
    Partition& partition = partitions_[message.partition];
    if (message.err == RD_KAFKA_RESP_ERR__PARTITION_EOF) {
      partition.isAtEnd = true;
      return;
    }
    if (message.err != RD_KAFKA_RESP_ERR_NO_ERROR) return tell(rd_kafka_message_errstr(&message));
    partition.isAtEnd = false;
    told_.clear();
    const std::uint64_t id = ++lastId_;
    partition.kept[id] = {message.offset, false};
    partitionOf_[id] = message.partition;
    const std::string place = options_.topic + "/" + std::to_string(message.partition);
    if (!held_.add(id, std::string(static_cast<const char*>(message.payload), message.len), place,
                   static_cast<std::uint64_t>(message.offset))) {
      observer_.notice(SourceObserver::Level::kError, "message " + std::to_string(message.offset) + " of " + place +
                                                          " is damaged: what stands behind is lost");
    }
    store();  // an empty one
  }

  /// Lets the library commit as far as nothing is missing.
  void store() {
    for (const std::uint64_t id : held_.takeDone()) {
      const auto place = partitionOf_.find(id);
      if (place == partitionOf_.end()) continue;
      Partition& partition = partitions_[place->second];
      partition.kept[id].isStored = true;
      std::int64_t behind = -1;
      while (!partition.kept.empty() && partition.kept.begin()->second.isStored) {
        behind = partition.kept.begin()->second.offset + 1;
        partition.kept.erase(partition.kept.begin());
      }
      if (behind >= 0) commit(place->second, behind);
      partitionOf_.erase(place);
    }
  }

  /// That a partition has gone to somebody else by now is no fault: he reads it again from where it was.
  void commit(std::int32_t partition, std::int64_t offset) {
    const KafkaPtr<rd_kafka_topic_partition_list_t> offsets(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_list_add(offsets.get(), options_.topic.c_str(), partition)->offset = offset;
    static_cast<void>(rd_kafka_offsets_store(consumer_.get(), offsets.get()));
  }

  bool isAtEnd() const {
    for (const auto& [number, partition] : partitions_) {
      if (!partition.isAtEnd) return false;
    }
    return !partitions_.empty();
  }

  static void onError(rd_kafka_t* /*consumer*/, int /*error*/, const char* reason, void* self) {
    static_cast<KafkaSource*>(self)->tell(reason);
  }

  void tell(const std::string& text) {
    if (told_ == text) return;
    told_ = text;
    observer_.notice(SourceObserver::Level::kWarning, text + "; trying again");
  }

  const KafkaSourceOptions options_;
  SourceObserver& observer_;
  /// Rung by the library when it has something to say.
  const Descriptor bell_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  TimePoint pollAt_ = TimePoint::min();
  HeldBatches held_;
  std::uint64_t lastId_ = 0;
  std::map<std::int32_t, Partition> partitions_;
  std::map<std::uint64_t, std::int32_t> partitionOf_;  ///< By the batch's id.
  std::string told_;
  bool isDraining_ = false;
  bool isStopped_ = false;
  std::unique_ptr<rd_kafka_t, ConsumerDestroy> consumer_;  ///< Last: it may still tell of errors when it goes.
};

}  // namespace

std::unique_ptr<Source> openKafkaSource(const KafkaSourceOptions& options, SourceObserver& observer,
                                        std::string& error) {
  auto source = std::make_unique<KafkaSource>(options, observer);
  if (!source->open(error)) return nullptr;
  return source;
}

void readKafkaSource(TomlTable& table, const std::string& directory, KafkaSourceOptions& options) {
  delivery::readKafkaOptions(table, directory, options.connection);
  table.require("topic");
  table.readName("topic", options.topic);
  table.readName("group", options.group);
  table.readNumber("batches", options.batches, 1, 10'000);
}

}  // namespace quillon
