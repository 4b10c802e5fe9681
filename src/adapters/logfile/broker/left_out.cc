// Stands in for the parts that this build leaves out.

#include "src/adapters/logfile/broker/KafkaSource.h"
#include "src/adapters/logfile/broker/NatsSource.h"

namespace quillon {
namespace {

[[maybe_unused]] void leftOut(TomlTable& table, const std::string& type) {
  table.report("type", "this build has no part for sources of the type \"" + type + "\"");
  table.takeAll();
}

}  // namespace

#ifndef QUILLON_HAS_NATS
void readNatsSource(TomlTable& table, const std::string& /*directory*/, NatsSourceOptions& /*options*/) {
  leftOut(table, "nats");
}
std::unique_ptr<Source> openNatsSource(const NatsSourceOptions& /*options*/, SourceObserver& /*observer*/) {
  return nullptr;
}
#endif

#ifndef QUILLON_HAS_KAFKA
void readKafkaSource(TomlTable& table, const std::string& /*directory*/, KafkaSourceOptions& /*options*/) {
  leftOut(table, "kafka");
}
std::unique_ptr<Source> openKafkaSource(const KafkaSourceOptions& /*options*/, SourceObserver& /*observer*/,
                                        std::string& error) {
  error = "this build has no part for it";
  return nullptr;
}
#endif

}  // namespace quillon
