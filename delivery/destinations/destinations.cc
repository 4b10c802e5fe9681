#include "delivery/destinations/destinations.h"

namespace quillon::delivery {

void readDestinationType(TomlTable& table, ReadDestination& reader) {
  // Those that the build can leave out are there all the same, and say that they are not, see left_out.cc.
  table.readWord<ReadDestination>("type", reader,
                                  {
                                      {"file", readFileDestination},
                                      {"stdout", readStdoutDestination},
                                      {"socket", readSocketDestination},
                                      {"syslog", readSyslogDestination},
                                      {"sqlite", readSqliteDestination},
                                      {"http", readHttpDestination},
                                      {"nats", readNatsDestination},
                                      {"kafka", readKafkaDestination},
                                  });
}

}  // namespace quillon::delivery
