#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_HELDBATCHES_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_HELDBATCHES_H_

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Batches of messages that a broker has given out, each kept until the last of its messages is stored, since only then
/// the broker may forget it.
///
/// Messages that one source of one shipper took in are a stream, and Position::file is its number; Position::offset
/// counts within it. So what is stored of one says nothing of another.
class HeldBatches {
 public:
  /// Takes a batch over, as record_batch.h describes it; of other texts each line is a message, from `sender` and
  /// numbered by `number` and its line. `id` names the batch to the caller. False when bytes of it are damaged: what
  /// stands before them is there.
  bool add(std::uint64_t id, std::string bytes, const std::string& sender, std::uint64_t number);

  /// The next message that was not given yet; valid until it is stored. False when there is none.
  bool next(Message& message);

  /// Where the message that ends here was taken in, if it was not stored yet.
  std::optional<Origin> origin(const Position& position) const;

  /// All messages up to this one are. Batches of which nothing is missing any more are to be had from takeDone().
  void stored(const Position& position);
  std::vector<std::uint64_t> takeDone();

  std::size_t batches() const { return batches_.size(); }
  std::size_t bytes() const { return bytes_; }
  /// Messages that next() will give.
  bool hasNext() const { return !queue_.empty(); }

 private:
  struct Batch;
  struct Item {
    Batch* batch;
    std::string position;
    std::string_view text;  ///< In the batch.
  };
  /// What one source of one shipper took in.
  struct Stream {
    std::string source;
    std::deque<Item> items;   ///< That are not stored,
    std::uint64_t first = 1;  ///< the first of which has this offset.
  };
  struct Batch {
    std::uint64_t id;
    std::string bytes;
    std::size_t left = 0;  ///< Messages that are not stored.
  };
  struct Queued {
    std::uint64_t stream;
    std::uint64_t offset;
  };

  void put(Batch& batch, std::string_view source, std::string position, std::string_view text);
  void putLines(Batch& batch, std::string_view text, const std::string& sender, std::uint64_t number);
  void finish(const Batch& batch);

  std::map<std::uint64_t, std::unique_ptr<Batch>> batches_;  ///< By id.
  std::size_t bytes_ = 0;
  std::map<std::string, std::uint64_t, std::less<>> numbers_;  ///< Of streams, by source; from 1.
  std::deque<Stream> streams_;
  std::deque<Queued> queue_;  ///< What was not given yet, in its order.
  std::vector<std::uint64_t> done_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_BROKER_HELDBATCHES_H_
