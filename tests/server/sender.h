#ifndef QUILLON_TESTS_SERVER_SENDER_H_
#define QUILLON_TESTS_SERVER_SENDER_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "delivery/destinations/Destination.h"
#include "tests/delivery/support/memory_feed.h"
#include "tests/server/processes.h"

namespace quillon {

/// A socket destination at work.
class Sender {
 public:
  Sender(const std::string& options, const std::filesystem::path& directory, const std::string& id) : feed_(id) {
    const toml::table document = toml::parse("longest_wait = \"20 ms\"\n" + options);
    std::vector<ConfigFault> faults;
    TomlTable table(document, "", faults);
    destination_ = delivery::readSocketDestination(table, directory);
    for (const ConfigFault& fault : faults) ADD_FAILURE() << fault.text;
    thread_ = std::thread([this] { destination_->run(feed_); });
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  ~Sender() {
    feed_.stop();
    thread_.join();
  }
  delivery::MemoryFeed& feed() { return feed_; }
  bool hasReported(const std::string& text) {
    return waitUntil([&] {
      return std::ranges::any_of(feed_.reports(),
                                 [&](const std::string& said) { return said.find(text) != said.npos; });
    });
  }

 private:
  delivery::MemoryFeed feed_;
  std::unique_ptr<delivery::Destination> destination_;
  std::thread thread_;
};

}  // namespace quillon

#endif  // QUILLON_TESTS_SERVER_SENDER_H_
