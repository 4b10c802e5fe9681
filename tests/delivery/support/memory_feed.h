#ifndef QUILLON_TESTS_DELIVERY_SUPPORT_MEMORY_FEED_H_
#define QUILLON_TESTS_DELIVERY_SUPPORT_MEMORY_FEED_H_

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "delivery/Record.h"
#include "delivery/client/Feed.h"
#include "foundation/descriptor.h"

namespace quillon::delivery {

/// Feeds a destination from memory, for its tests: a test adds records in one thread, runs the destination in another,
/// and sees what it says was delivered.
class MemoryFeed : public Feed {
 public:
  explicit MemoryFeed(std::string clientId = "test-1");

  /// Adds an event of these bytes; they are read `perRead` at a time.
  void add(std::string bytes, RecordForm form);
  void setPerRead(std::size_t events);
  void stop();
  void drain();
  /// False when that does not happen within `limit`.
  bool waitDelivered(std::uint64_t end, std::chrono::milliseconds limit = std::chrono::seconds(20));
  std::vector<std::string> reports() const;
  std::uint64_t counted(const std::string& name) const;
  bool isConnected() const;
  /// How often again() or rewind() was called.
  int repetitions() const;

  bool read(Events& events) override;
  void delivered(std::uint64_t end) override;
  std::uint64_t delivered() const override;
  void again() override;
  void rewind(std::uint64_t number) override;
  void wait(Clock::time_point until, std::span<pollfd> others) override;
  bool stopping() const override;
  bool draining() const override;
  void report(Level level, std::string_view text) override;
  void connected(bool isConnected) override;
  void count(std::string_view name, std::uint64_t more) override;
  const std::string& clientId() const override { return clientId_; }

 private:
  struct Kept {
    std::string bytes;
    RecordForm form;
  };

  void wake() const;

  const std::string clientId_;
  Descriptor wake_;
  mutable std::mutex mutex_;
  std::condition_variable progress_;
  std::vector<Kept> kept_;  ///< Number n is kept_[n].
  std::vector<Kept> out_;   ///< What the last read() gave.
  std::size_t perRead_ = 1000;
  std::uint64_t read_ = 0;
  std::uint64_t delivered_ = 0;
  int repetitions_ = 0;
  bool stopping_ = false;
  bool draining_ = false;
  bool connected_ = false;
  std::vector<std::string> reports_;
  std::map<std::string, std::uint64_t, std::less<>> counts_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_TESTS_DELIVERY_SUPPORT_MEMORY_FEED_H_
