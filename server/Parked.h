#ifndef QUILLON_SERVER_PARKED_H_
#define QUILLON_SERVER_PARKED_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "delivery/cache/Cache.h"

namespace quillon {

/// Records that are kept aside in a cache of their own, on the disk before the clients that sent them are told so. The
/// number of the last one of each client goes in with it: when a client sends it again after a crash, because the
/// server's own cache does not count it, it is known to be here. For one thread.
class Parked {
 public:
  using Report = std::function<void(const std::string& text)>;

  struct Options {
    std::string directory;
    std::uint64_t maxBytes;
    bool dropsOldest = false;  ///< When it is full; else there is no room.
  };

  /// Null with the reason in `error` when there cannot be one.
  [[nodiscard]] static std::unique_ptr<Parked> open(const Options& options, Report report, std::string& error);

  /// Tells this cache from another one that was in the same place.
  const std::string& identity() const { return identity_; }

  bool has(std::string_view client, std::uint64_t number) const;
  /// Each client, and the number behind its last record.
  std::vector<std::pair<std::string, std::uint64_t>> ends() const;
  /// Nothing will come again that this client has sent.
  void forget(std::string_view client) { batch_.setPosition(clientKey(client), ""); }

  bool hasRoom(std::size_t bytes) const;
  void add(std::string_view client, const delivery::Event& record);
  /// Everything that was added is on the disk. False when that cannot be now, which was reported; to be tried again.
  [[nodiscard]] bool flush();

  /// Reading begins at this number.
  void startAt(std::uint64_t number);
  /// The next record; nothing when there is none at the moment. Its bytes are valid until the next call.
  std::optional<delivery::Event> next();
  /// next() gives this record once more.
  void putBack() { --at_; }
  /// All below are taken care of elsewhere, safely.
  void release(std::uint64_t number) { reader_->acknowledge(number); }
  bool isEmpty() const { return reader_->acknowledged() >= cache_->end(); }
  std::uint64_t records() const;  ///< That wait, at most.

  void tidy() { cache_->tidy(); }

 private:
  static constexpr std::string_view kClient = "client/";
  static std::string clientKey(std::string_view client) { return std::string(kClient).append(client); }

  Parked(std::unique_ptr<delivery::Cache> cache, const Options& options);

  const std::unique_ptr<delivery::Cache> cache_;
  const Options options_;
  const std::unique_ptr<delivery::Reader> reader_;
  std::string identity_;
  delivery::Batch batch_;
  delivery::Reader::Events events_;
  std::size_t at_ = 0;
  std::uint64_t start_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_SERVER_PARKED_H_
