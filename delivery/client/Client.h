#ifndef QUILLON_DELIVERY_CLIENT_CLIENT_H_
#define QUILLON_DELIVERY_CLIENT_CLIENT_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "delivery/Record.h"
#include "delivery/cache/format.h"
#include "delivery/client/DeliveryConfig.h"
#include "delivery/client/Feed.h"

namespace quillon::delivery {

/// Brings events to their destinations: filters, then a bounded buffer in memory, then the cache on disk, then a thread
/// for each destination, which has a place of its own in the cache. One more thread writes the cache. A destination
/// that is slow or gone holds up no other.
///
/// All functions are for any number of threads, unless they say otherwise.
class Client {
 public:
  using Clock = std::chrono::steady_clock;
  /// Called from any thread, one at a time; must not call the client.
  using Report = std::function<void(Feed::Level, std::string_view)>;

  /// Null when the cache cannot be opened, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<Client> start(const DeliveryConfig& config, Report report, std::string& error);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  /// Stops at once; what is in the buffer is lost. See stop().
  ~Client();

  /// Where sources are, as the cache had it when it was opened: from there on they have to go on.
  const Positions& positions() const;

  /// False when no destination's filters let the event pass, or when it is too much for the rate limit; that was
  /// counted. Ask it for each event before it is added to a batch.
  [[nodiscard]] bool wants(const Record& record);

  /// Stands for a batch. Tickets grow.
  using Ticket = std::uint64_t;
  enum class Result {
    kTaken,
    kFull,      ///< The buffer is, or stop() was called: try again when descriptor() is readable.
    kTooLarge,  ///< Of more than kMaxBatchBytes; will never be taken.
  };
  /// Takes a batch of records, each added with its bytes and its form as kind, and positions, whole or not at all.
  /// `batch` is empty afterwards if it was taken.
  [[nodiscard]] Result send(Batch& batch, Ticket& ticket);

  /// All batches up to this ticket are safe in the cache, in the sense of its option `sync`. Never goes back.
  Ticket safe() const;
  /// All batches up to this one are with the destination number `destination` of the configuration, or were dropped for
  /// it: by its filters, or because the cache was full, which it notices when it reads on.
  Ticket delivered(std::size_t destination) const;

  /// Readable when safe() has grown or there is room again since takeProgress() was called last. For one thread.
  int descriptor() const;
  void takeProgress();

  /// False when it is `until` before that.
  bool waitSafe(Ticket ticket, Clock::time_point until);
  bool waitDelivered(Ticket ticket, Clock::time_point until);

  /// Takes no more, writes the buffer into the cache, and gives destinations until `until` to deliver all that there
  /// is. What they could not waits in the cache for the next start.
  enum class Rest {
    kNone,      ///< Everything is with every destination.
    kInCache,   ///< Everything is safe, in the sense of `sync`.
    kInBuffer,  ///< Something could not be written, and is lost: what safe() does not count.
  };
  /// For one thread.
  Rest stop(Clock::time_point until);

  struct Figures {
    struct Destination {
      std::string name;
      bool isConnected = false;
      std::uint64_t delivered = 0;                                ///< Events.
      std::uint64_t filtered = 0;                                 ///< That did not pass its filters.
      std::uint64_t waiting = 0;                                  ///< In the cache, at most.
      std::vector<std::pair<std::string, std::uint64_t>> counts;  ///< Of its own.
    };
    std::vector<Destination> destinations;
    std::uint64_t taken = 0;     ///< Events.
    std::uint64_t filtered = 0;  ///< That no destination wants.
    std::uint64_t rateLimited = 0;
    std::uint64_t damaged = 0, dropped = 0, failures = 0;  ///< See CacheCounts.
    std::uint64_t cacheBytes = 0;
    std::uint64_t buffered = 0;  ///< Bytes, now.
  };
  Figures figures() const;

 private:
  class Impl;
  explicit Client(std::unique_ptr<Impl> impl);
  const std::unique_ptr<Impl> impl_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_CLIENT_H_
