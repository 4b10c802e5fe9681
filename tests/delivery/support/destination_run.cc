#include "tests/delivery/support/destination_run.h"

#include <cstdlib>
#include <iostream>
#include <utility>
#include <vector>

namespace quillon::delivery {

std::unique_ptr<Destination> readDestination(ReadDestination read, const std::string& toml, std::string* faults,
                                             const std::string& directory) {
  const toml::table document = toml::parse(toml);
  std::vector<ConfigFault> found;
  TomlTable table(document, "destination.test", found);
  std::unique_ptr<Destination> destination = read(table, directory);
  table.finish();
  for (const ConfigFault& fault : found) {
    if (faults) *faults += fault.text + "\n";
    if (!faults) std::cerr << fault.text << "\n";
  }
  if (!faults && !found.empty()) std::abort();
  return destination;
}

DestinationRun::DestinationRun(ReadDestination read, const std::string& toml, MemoryFeed& feed,
                               const std::string& directory)
    : destination_(readDestination(read, toml, nullptr, directory)),
      feed_(feed),
      thread_([this] { destination_->run(feed_); }) {}

DestinationRun::~DestinationRun() {
  feed_.stop();
  thread_.join();
}

void addEvents(MemoryFeed& feed, int first, int count, RecordForm form) {
  for (int n = first; n < first + count; ++n) {
    const std::string number = std::to_string(n);
    Record record;
    record.form = form;
    record.source = "test/1";
    record.position = number;
    if (form == RecordForm::kRaw) {
      record.text = number;
    } else {
      record.className = "Test";
      record.values = {{"n", number}};
    }
    std::string bytes;
    encode(record, bytes);
    feed.add(std::move(bytes), form);
  }
}

}  // namespace quillon::delivery
