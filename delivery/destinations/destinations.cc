#include "delivery/destinations/destinations.h"

namespace quillon::delivery {

void readDestinationType(TomlTable& table, ReadDestination& reader) {
  // A type that the build can leave out has its row between #if and #endif.
  table.readWord<ReadDestination>("type", reader,
                                  {
                                      {"file", readFileDestination},
                                      {"stdout", readStdoutDestination},
                                      {"socket", readSocketDestination},
                                  });
}

}  // namespace quillon::delivery
