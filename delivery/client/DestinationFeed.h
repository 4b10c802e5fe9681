#ifndef QUILLON_DELIVERY_CLIENT_DESTINATIONFEED_H_
#define QUILLON_DELIVERY_CLIENT_DESTINATIONFEED_H_

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "delivery/Record.h"
#include "delivery/cache/Cache.h"
#include "delivery/client/Bell.h"
#include "delivery/client/DeliveryConfig.h"
#include "delivery/client/Feed.h"

namespace quillon::delivery {

/// What the client has for each destination: its place in the cache, its filters, and what it has told. The functions
/// of Feed are for the destination's thread, the others for any.
class DestinationFeed : public Feed {
 public:
  struct Observer {
    std::function<void(Level, std::string_view)> report;
    std::function<void()> progress;  ///< delivered() has grown.
  };

  /// Refers to `config` for its life.
  DestinationFeed(const DestinationConfig& config, std::string clientId, std::unique_ptr<Reader> reader,
                  Observer observer);

  /// There may be more to read.
  void wake() { bell_.ring(); }
  /// No more events will come.
  void drain();
  void stop();

  /// What was acknowledged, for all threads.
  std::uint64_t acknowledged() const { return acknowledged_.load(); }

  struct Figures {
    bool isConnected = false;
    std::uint64_t delivered = 0;
    std::uint64_t filtered = 0;
    std::vector<std::pair<std::string, std::uint64_t>> counts;
  };
  Figures figures() const;

  bool read(Events& events) override;
  void delivered(std::uint64_t end) override;
  std::uint64_t delivered() const override { return reader_->acknowledged(); }
  void again() override;
  void rewind(std::uint64_t number) override;
  void wait(Clock::time_point until, std::span<pollfd> others) override;
  bool stopping() const override { return isStopping_; }
  bool draining() const override { return isDraining_; }
  void report(Level level, std::string_view text) override;
  void connected(bool isConnected) override { isConnected_ = isConnected; }
  void count(std::string_view name, std::uint64_t more) override;
  const std::string& clientId() const override { return clientId_; }

 private:
  /// What was given out and is not acknowledged yet.
  struct Given {
    std::uint64_t end;
    std::size_t events;
  };

  void filter(std::vector<Event>& events);
  void acknowledge(std::uint64_t end);

  const DestinationConfig& config_;
  const std::string clientId_;
  const std::unique_ptr<Reader> reader_;
  const Observer observer_;
  Bell bell_;
  std::atomic<bool> isStopping_ = false;
  std::atomic<bool> isDraining_ = false;
  std::atomic<bool> isConnected_ = false;
  std::atomic<std::uint64_t> acknowledged_;
  std::atomic<std::uint64_t> delivered_ = 0;  ///< Events.
  std::atomic<std::uint64_t> filtered_ = 0;

  Reader::Events read_;
  Record record_;
  std::deque<Given> given_;
  std::uint64_t readEnd_;   ///< All below were given out or do not pass.
  bool isFailing_ = false;  ///< The cache could not be read.
  std::vector<pollfd> polled_;
  std::string toldLast_;
  Clock::time_point toldAt_;

  mutable std::mutex mutex_;  ///< For what follows.
  std::map<std::string, std::uint64_t, std::less<>> counts_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_DESTINATIONFEED_H_
