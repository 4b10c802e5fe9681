#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_KAFKASOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_KAFKASOURCE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "config/TomlTable.h"
#include "delivery/brokers/kafka_options.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// What to read of a topic.
struct KafkaSourceOptions {
  delivery::KafkaOptions connection;
  std::string topic;
  std::string group = "quillon";
  std::uint64_t batches = 64;  ///< Messages of the brokers that may be held at a time.

  bool operator==(const KafkaSourceOptions&) const = default;
};
void readKafkaSource(TomlTable& table, const std::string& directory, KafkaSourceOptions& options);

/// Reads a topic as a member of a consumer group. A message of the topic is a batch, see record_batch.h. Its offset is
/// committed when all that came of it, and of those before it in the partition, is stored. What was not committed comes
/// again, here or at another member: nothing is lost, and some of it may come twice.
///
/// Null, with the reason in `error`, when the library refuses the options.
std::unique_ptr<Source> openKafkaSource(const KafkaSourceOptions& options, SourceObserver& observer,
                                        std::string& error);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_KAFKASOURCE_H_
