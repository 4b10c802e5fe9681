#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_NATSSOURCE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_NATSSOURCE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "config/TomlTable.h"
#include "delivery/brokers/nats_options.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// What to read of a stream.
struct NatsSourceOptions {
  delivery::NatsOptions connection;
  std::string stream;
  std::string consumer = "quillon";             ///< The durable one, shared by all who name it.
  std::string subject;                          ///< Of the stream's, those that this matches; empty: all.
  Duration ackWait = std::chrono::seconds(30);  ///< Then the server gives a message to somebody else.
  std::uint64_t batches = 64;                   ///< That may be held at a time.

  bool operator==(const NatsSourceOptions&) const = default;
};
void readNatsSource(TomlTable& table, const std::string& directory, NatsSourceOptions& options);

/// Reads a JetStream stream by a durable pull consumer that any number of others share. A message of the stream is a
/// batch, see record_batch.h; it is acknowledged when all that came of it is stored, and until then the server is told
/// now and then that it is worked on. What nobody acknowledges the server gives out again: nothing is lost, and some of
/// it may come twice.
///
/// Connects in a thread of its own; comes back by itself when a connection is lost.
std::unique_ptr<Source> openNatsSource(const NatsSourceOptions& options, SourceObserver& observer);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_NATSSOURCE_H_
