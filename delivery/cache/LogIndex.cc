#include "delivery/cache/LogIndex.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <utility>

namespace quillon::delivery {
namespace {

using Found = SegmentScanner::Found;

/// Follows the batches from one to the next, with what is not whole kept back until it is known what it is: never
/// finished, or damaged.
class Chain {
 public:
  /// Below `removed` nothing is missed.
  Chain(LogIndex& index, std::uint64_t removed) : index_(index), removed_(removed) {}

  void add(std::size_t segment, const Found& found) {
    const BatchHeader& header = found.header;
    index_.next = std::max(index_.next, header.end());
    wasSynced_ = std::max(wasSynced_, header.synced);
    Link link{.segment = segment, .header = header, .isWhole = found.isWhole, .positions = {}};
    if (found.hasPositions) {
      Positions changes;
      if (decode(found.positions, changes)) link.positions = std::move(changes);
    }
    waiting_.push_back(std::move(link));
    if (found.isWhole) acceptAll();
  }

  void finish() {
    // What is not whole but was on the disk is damaged, also when only a batch says so that was not finished itself.
    wasSynced_ = std::max(wasSynced_, index_.synced);
    std::size_t count = waiting_.size();
    while (count > 0 && waiting_[count - 1].header.end() > wasSynced_) --count;
    waiting_.resize(count);
    acceptAll();
    if (index_.end < index_.synced && !index_.segments.empty()) {
      index_.end = index_.synced;
      index_.segments.back().end = index_.synced;
    }
    settle();
    if (damage_) index_.setBack = damage_->first;
  }

 private:
  struct Link {
    std::size_t segment;
    BatchHeader header;
    bool isWhole;
    std::optional<Positions> positions;
  };

  void acceptAll() {
    for (const Link& link : waiting_) accept(link);
    waiting_.clear();
  }

  void accept(const Link& link) {
    const BatchHeader& header = link.header;
    Segment& segment = index_.segments[link.segment];
    if (isFirst_) {
      // Batches before this one may be damaged beyond finding.
      index_.end = std::min(header.previous, segment.begin);
      const std::uint64_t known = std::max(index_.synced, removed_);
      if (index_.end > known) missing(known, index_.end);
      isFirst_ = false;
    }
    if (header.previous < index_.end) disown(header.previous);
    if (segment.end == 0) {
      segment.previous = std::min(header.previous, segment.begin);
      segment.hasPositions = header.hasAllPositions && link.isWhole;
    }
    if (header.previous > index_.end) missing(index_.end, header.previous);
    if (!link.isWhole) missing(header.first, header.end());
    index_.synced = std::max(index_.synced, header.synced);
    index_.end = header.end();
    segment.end = header.end();
    settle();
    keep(link);
  }

  void missing(std::uint64_t first, std::uint64_t end) {
    if (!damage_) damage_ = {first, end};
    damage_->end = end;
  }

  /// Nothing from `number` on up to here counts: it was written again behind here.
  void disown(std::uint64_t number) {
    for (Segment& segment : index_.segments) segment.end = std::min(segment.end, number);
    if (damage_ && damage_->first >= number) damage_.reset();
  }

  /// Damage to what was on the disk is told by whoever reads it, and the positions behind it hold.
  void settle() {
    if (!damage_ || damage_->end > index_.synced) return;
    if (hasAllBehind_) {
      index_.positions.clear();
      index_.havePositions = true;
    }
    applyChanges(behind_, index_.positions);
    behind_.clear();
    hasAllBehind_ = false;
    damage_.reset();
  }

  void keep(const Link& link) {
    if (!link.positions) return;
    Positions& kept = damage_ ? behind_ : index_.positions;
    if (link.header.hasAllPositions) {
      kept.clear();
      (damage_ ? hasAllBehind_ : index_.havePositions) = true;
    }
    if (damage_) {
      for (const auto& [name, value] : *link.positions) behind_[name] = value;
    } else {
      applyChanges(*link.positions, kept);
    }
  }

  LogIndex& index_;
  const std::uint64_t removed_;
  std::vector<Link> waiting_;
  bool isFirst_ = true;
  std::uint64_t wasSynced_ = 0;  ///< All events below were on the disk, whatever the positions know of it.
  struct Missing {
    std::uint64_t first, end;
  };
  std::optional<Missing> damage_;  ///< From the first to the last that is missing and was not known to be on the disk.
  Positions behind_;               ///< What has changed behind the first.
  bool hasAllBehind_ = false;
};

struct Head {
  std::optional<BatchHeader> header;
  bool hasPositions = false;  ///< All positions, of a batch that is whole: all events that they count are there.
};

class Loader {
 public:
  Loader(Files& files, const std::string& directory, LogIndex& index, std::string& path)
      : files_(files), directory_(directory), index_(index), path_(path) {}

  int load(const Ledger::Contents& ledger) {
    if (const int error = list()) return error;
    std::vector<Segment>& segments = index_.segments;
    std::vector<Head> heads(segments.size());
    for (std::size_t i = 0; i < segments.size(); ++i) {
      if (const int error = readHead(i, heads[i])) return error;
      if (heads[i].header) index_.synced = std::max(index_.synced, heads[i].header->synced);
    }
    // Segments need no reading up to one whose successor was begun when all of it was on the disk.
    std::size_t start = segments.empty() ? 0 : segments.size() - 1;
    for (std::size_t i = 0; i + 1 < segments.size(); ++i) {
      if (!heads[i].header || !heads[i + 1].header || heads[i + 1].header->previous > index_.synced)
        start = std::min(start, i);
    }
    while (start > 0 && !heads[start].hasPositions) --start;
    std::uint64_t end = UINT64_MAX;
    for (std::size_t i = start; i-- > 0;) {
      end = std::min(end, heads[i + 1].header->previous);  // a batch can disown more than one segment
      segments[i].previous = std::min(heads[i].header->previous, segments[i].begin);
      segments[i].end = end;
      segments[i].hasPositions = heads[i].hasPositions;
    }
    index_.havePositions = segments.empty();
    Chain chain(index_, ledger.removed);
    for (std::size_t i = start; i < segments.size(); ++i) {
      if (const int error = scan(i, chain)) return error;
    }
    chain.finish();
    return 0;
  }

 private:
  int list() {
    std::vector<std::string> names;
    path_ = directory_;
    if (const int error = files_.list(directory_, names)) return error;
    std::ranges::sort(names);
    for (const std::string& name : names) {
      std::uint64_t first = 0;
      if (isSegmentName(name, first)) index_.segments.push_back({.begin = first, .previous = first});
    }
    return 0;
  }

  int open(std::size_t i, std::optional<SegmentScanner>& scanner) {
    Segment& segment = index_.segments[i];
    path_ = directory_ + '/' + segmentName(segment.begin);
    File file(files_, files_.openToRead(path_));
    if (!file) return file.error();
    const std::int64_t size = files_.size(file.get());
    if (size < 0) return static_cast<int>(-size);
    segment.bytes = static_cast<std::uint64_t>(size);
    scanner.emplace(files_, std::move(file));
    scanner->setLimit(segment.bytes);
    scanner->setNumbers(segment.begin, i + 1 < index_.segments.size() ? index_.segments[i + 1].begin : UINT64_MAX);
    return 0;
  }

  int readHead(std::size_t i, Head& head) {
    std::optional<SegmentScanner> scanner;
    if (const int error = open(i, scanner)) return error;
    Found found;
    // Of the last segment the first batch need not have been finished.
    const bool isLast = i + 1 == index_.segments.size();
    if (!scanner->next(found)) return scanner->error();
    if (isLast && !found.isWhole) return 0;
    head.header = found.header;
    head.hasPositions = found.isWhole && found.header.hasAllPositions;
    return 0;
  }

  int scan(std::size_t i, Chain& chain) {
    std::optional<SegmentScanner> scanner;
    if (const int error = open(i, scanner)) return error;
    Found found;
    while (scanner->next(found)) chain.add(i, found);
    return scanner->error();
  }

  Files& files_;
  const std::string& directory_;
  LogIndex& index_;
  std::string& path_;
};

}  // namespace

int loadLog(Files& files, const std::string& directory, const Ledger::Contents& ledger, LogIndex& index,
            std::string& path) {
  index = {};
  index.synced = index.end = ledger.synced;
  if (const int error = Loader(files, directory, index, path).load(ledger)) return error;
  index.next = std::max({index.next, index.end, ledger.numbers});
  for (const auto& [name, number] : ledger.cursors) {
    index.next = std::max(index.next, number);
    if (index.segments.empty()) index.end = std::max(index.end, number);  // all were delivered and are gone
  }
  if (!index.segments.empty()) index.next = std::max(index.next, index.segments.back().begin + 1);
  index.synced = std::min(index.synced, index.end);
  return 0;
}

}  // namespace quillon::delivery
