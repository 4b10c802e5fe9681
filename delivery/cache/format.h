#ifndef QUILLON_DELIVERY_CACHE_FORMAT_H_
#define QUILLON_DELIVERY_CACHE_FORMAT_H_

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "delivery/cache/Files.h"

/// How a cache looks on the disk.
///
/// A directory holds `lock`, `ledger` (see Ledger.h) and segments, named by the number of their first event in 16 hex
/// digits, as in `000000000000002a.segment`. A segment is batches, one behind the other and nothing else. A batch is
///
///     header     48 bytes
///     table      12 bytes for each event and for the positions: u32 bytes, u32 kind, u32 CRC of the bytes
///     data       the events, then the positions
///     table      the same again
///     trailer    the header again, with another magic
///
///     header:    u32 magic "QBat" (trailer "QEnd"), u32 CRC of what follows in the header,
///                u64 number of its first event, u64 number behind the last event of the batch before,
///                u64 all events below were on the disk, u32 events, u32 bytes of data, u32 CRC of the table,
///                u32 1 when the positions are all there are, 0 when they are those that have changed
///
/// Numbers are little-endian; each CRC is crc32c().
///
/// Events are numbered in their order, and no number is ever given twice, so that what an old file left on the disk,
/// and what a reader has acknowledged, is never taken for something else. Some numbers are left out: behind a batch
/// that could not be written, and whenever a cache is opened. That a batch tells where the one before ended shows what
/// is missing, and disowns what was written behind there but never counted. Each segment begins with all positions, so
/// that older ones can go.
///
/// A batch that ends a segment and is not whole was never finished and is nothing. Elsewhere a damaged byte costs the
/// event that it belongs to, or nothing: headers and tables are there twice.
namespace quillon::delivery {

/// Where the sources are: what each needs to go on from there, by a name. An empty value says that a name is gone.
using Positions = std::map<std::string, std::string, std::less<>>;

struct Event {
  std::uint64_t number = 0;
  std::uint32_t kind = 0;  ///< What the bytes are, in the words of who wrote them.
  std::string_view bytes;
};

struct BatchHeader {
  std::uint64_t first = 0;
  std::uint64_t previous = 0;
  std::uint64_t synced = 0;
  std::uint32_t events = 0;
  std::uint32_t dataBytes = 0;
  std::uint32_t tableCrc = 0;
  bool hasAllPositions = false;

  /// Number behind it: a batch of positions alone takes one too, so that it can be told whether it was on the disk.
  std::uint64_t end() const { return first + std::max<std::uint32_t>(events, 1); }
  /// Of the whole batch.
  std::uint64_t bytes() const;
};

/// The most that a batch may hold, so that whoever reads it knows what memory that takes at most.
constexpr std::uint64_t kMaxBatchBytes = 256 << 20;

/// Events and changed positions that go into a cache together, whole or not at all. Its memory stays with it when it is
/// cleared. A value: for one thread at a time.
class Batch {
 public:
  void add(std::string_view event, std::uint32_t kind = 0);
  /// All of `other`, as if it had been added here.
  void add(const Batch& other);
  /// What the source `name` needs to go on behind the events so far.
  void setPosition(std::string_view name, std::string_view value);
  void clear();

  bool empty() const { return table_.empty() && positions_.empty(); }
  std::size_t events() const { return table_.size(); }
  const Positions& positions() const { return positions_; }
  /// Bytes that it takes on the disk, but for its positions.
  std::uint64_t bytes() const;

 private:
  friend class BatchWriter;
  struct Entry {
    std::uint32_t bytes, kind;
  };

  std::string data_;
  std::vector<Entry> table_;
  Positions positions_;
};

std::string encode(const Positions& positions);
/// False when the text is no such thing; what came before is applied all the same.
[[nodiscard]] bool decode(std::string_view text, Positions& positions);
/// Takes over what has changed.
void applyChanges(const Positions& changes, Positions& positions);

/// Makes the bytes of batches; keeps its memory from one to the next.
class BatchWriter {
 public:
  /// The batch as pieces to be written one behind the other, valid until the next call and while `batch` is.
  /// `header` gives the numbers; the rest of it is filled in.
  std::span<const std::string_view> write(const Batch& batch, const Positions& positions, BatchHeader& header);

 private:
  std::string head_, positions_, tail_;
  std::string_view pieces_[4];
};

/// Finds the batches of a segment, one after the other, whatever it looks like. Time is linear in the segment.
class SegmentScanner {
 public:
  struct Found {
    std::uint64_t offset = 0;   ///< In the segment.
    std::uint64_t skipped = 0;  ///< Bytes before it that are no batch.
    BatchHeader header;
    bool isSkipped = false;     ///< Below what was asked for: nothing of the rest is filled in.
    bool isWhole = false;       ///< All events and the positions are there.
    bool isClean = false;       ///< And no byte of it is damaged.
    std::vector<Event> events;  ///< Those that are intact, in order. Valid until the next call.
    bool hasPositions = false;  ///< They are intact.
    std::string_view positions;
  };

  SegmentScanner(Files& files, File file) : files_(files), file_(std::move(file)) {}

  /// Nothing from there on is looked at. May grow while somebody writes.
  void setLimit(std::uint64_t bytes) { limit_ = bytes; }
  /// Only batches with numbers from `first` on and below `end` are any. So an event that holds a batch of somebody else
  /// is not taken for one, when damage has the scanner look for the next.
  void setNumbers(std::uint64_t first, std::uint64_t end) {
    atLeast_ = std::max(atLeast_, first);
    below_ = end;
  }
  /// The next batch; of one that ends at or below `from` only the header is read. False at the end, or when error()
  /// says why the file cannot be read; then the same call may be made again.
  [[nodiscard]] bool next(Found& found, std::uint64_t from = 0);
  int error() const { return error_; }
  /// Where the next batch begins; behind the last one, what remains up to the limit is none.
  std::uint64_t offset() const { return offset_; }

 private:
  std::string_view view(std::uint64_t offset, std::uint64_t size);
  void load(std::uint64_t offset, std::size_t size);
  bool find(Found& found);
  bool readBatch(Found& found, std::uint64_t from);
  bool readTable(const Found& found, std::string_view bytes, std::string& table, bool& isClean) const;

  Files& files_;
  File file_;
  std::uint64_t limit_ = UINT64_MAX;
  std::uint64_t offset_ = 0;
  std::uint64_t atLeast_ = 0;  ///< Number that the next batch has at least.
  std::uint64_t below_ = UINT64_MAX;
  int error_ = 0;
  std::unique_ptr<char[]> room_;  ///< `inRoom_` bytes of the file from `roomAt_` on.
  std::size_t roomBytes_ = 0;
  std::size_t inRoom_ = 0;
  std::uint64_t roomAt_ = 0;
};

/// "000000000000002a.segment" is 42, and back.
std::string segmentName(std::uint64_t first);
[[nodiscard]] bool isSegmentName(std::string_view name, std::uint64_t& first);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CACHE_FORMAT_H_
