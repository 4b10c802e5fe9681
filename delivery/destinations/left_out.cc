// Stands in for the parts that this build leaves out.

#include "delivery/destinations/Destination.h"

namespace quillon::delivery {
namespace {

class Nowhere : public Destination {
  void run(Feed& /*feed*/) const override {}
};

[[maybe_unused]] std::unique_ptr<Destination> leftOut(TomlTable& table, const std::string& type) {
  table.report("type", "this build has no part for destinations of the type \"" + type + "\"");
  table.takeAll();
  return std::make_unique<Nowhere>();
}

}  // namespace

#ifndef QUILLON_HAS_HTTP
std::unique_ptr<Destination> readHttpDestination(TomlTable& table, const std::string& /*directory*/) {
  return leftOut(table, "http");
}
#endif

#ifndef QUILLON_HAS_NATS
std::unique_ptr<Destination> readNatsDestination(TomlTable& table, const std::string& /*directory*/) {
  return leftOut(table, "nats");
}
#endif

#ifndef QUILLON_HAS_KAFKA
std::unique_ptr<Destination> readKafkaDestination(TomlTable& table, const std::string& /*directory*/) {
  return leftOut(table, "kafka");
}
#endif

}  // namespace quillon::delivery
