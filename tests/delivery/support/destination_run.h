#ifndef QUILLON_TESTS_DELIVERY_SUPPORT_DESTINATION_RUN_H_
#define QUILLON_TESTS_DELIVERY_SUPPORT_DESTINATION_RUN_H_

#include <memory>
#include <string>
#include <thread>

#include "delivery/Record.h"
#include "delivery/destinations/Destination.h"
#include "tests/delivery/support/memory_feed.h"

namespace quillon::delivery {

/// The destination that the keys of `toml` describe. What is wrong with them goes into `faults`, a line each.
std::unique_ptr<Destination> readDestination(ReadDestination read, const std::string& toml,
                                             std::string* faults = nullptr, const std::string& directory = "/");

/// A destination at work on a feed, in a thread; stopped at the end.
class DestinationRun {
 public:
  DestinationRun(ReadDestination read, const std::string& toml, MemoryFeed& feed, const std::string& directory = "/");
  ~DestinationRun();

 private:
  const std::unique_ptr<Destination> destination_;
  MemoryFeed& feed_;
  std::thread thread_;
};

/// Adds events of the class "Test" with a slot "n" that counts from `first` on; their positions do so too.
void addEvents(MemoryFeed& feed, int first, int count, RecordForm form = RecordForm::kEvent);

}  // namespace quillon::delivery

#endif  // QUILLON_TESTS_DELIVERY_SUPPORT_DESTINATION_RUN_H_
