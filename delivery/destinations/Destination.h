#ifndef QUILLON_DELIVERY_DESTINATIONS_DESTINATION_H_
#define QUILLON_DELIVERY_DESTINATIONS_DESTINATION_H_

#include <memory>
#include <string>
#include <vector>

#include "config/TomlTable.h"
#include "delivery/client/Feed.h"

namespace quillon::delivery {

/// A place that events are brought to, as it is configured. Never changes once it was read.
class Destination {
 public:
  Destination() = default;
  Destination(const Destination&) = delete;
  Destination& operator=(const Destination&) = delete;
  virtual ~Destination() = default;

  /// Brings events there until the feed says that it is enough. Failures are its own affair: it waits and tries again,
  /// as long as that can help, and reports what it does. Only returns when told to.
  virtual void run(Feed& feed) const = 0;

  /// False when it takes events alone, so that an adapter that sends attributes or messages cannot have it.
  virtual bool takesAllForms() const { return false; }

  /// The files that it writes, one for each kind of name, so that nobody reads them who sends to it.
  virtual std::vector<std::string> writes() const { return {}; }
};

/// Reads the keys of its own type from the table [destination.NAME]: what is wrong becomes faults of the table. Never
/// null. Relative paths belong to `directory`, see TomlTable::readPath(). The keys type and filter are read already,
/// and the caller calls finish().
using ReadDestination = std::unique_ptr<Destination> (*)(TomlTable& table, const std::string& directory);

// One for each type, in the file of its name.
std::unique_ptr<Destination> readSocketDestination(TomlTable& table, const std::string& directory);
std::unique_ptr<Destination> readSqliteDestination(TomlTable& table, const std::string& directory);
std::unique_ptr<Destination> readNatsDestination(TomlTable& table, const std::string& directory);
std::unique_ptr<Destination> readKafkaDestination(TomlTable& table, const std::string& directory);
std::unique_ptr<Destination> readHttpDestination(TomlTable& table, const std::string& directory);
std::unique_ptr<Destination> readSyslogDestination(TomlTable& table, const std::string& directory);
std::unique_ptr<Destination> readFileDestination(TomlTable& table, const std::string& directory);
std::unique_ptr<Destination> readStdoutDestination(TomlTable& table, const std::string& directory);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_DESTINATIONS_DESTINATION_H_
