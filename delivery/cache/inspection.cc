#include "delivery/cache/inspection.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

namespace quillon::delivery {
namespace {

constexpr std::size_t kPiece = 4096;  ///< What a disk gives or does not.

std::string pathOf(const std::string& directory, const Segment& segment) {
  return directory + '/' + segmentName(segment.begin);
}

/// Copies what the disk gives of a file, and zeros for the rest.
int copyReadable(Files& files, const std::string& from, const std::string& to) {
  const File source(files, files.openToRead(from));
  if (!source) return source.error();
  const std::int64_t size = files.size(source.get());
  if (size < 0) return static_cast<int>(-size);
  if (const int error = files.remove(to); error != 0 && error != ENOENT) return error;
  const File target(files, files.create(to));
  if (!target) return target.error();
  std::string piece;
  for (std::uint64_t at = 0; at < static_cast<std::uint64_t>(size); at += kPiece) {
    piece.assign(std::min<std::uint64_t>(kPiece, static_cast<std::uint64_t>(size) - at), '\0');
    std::size_t done = 0;
    if (readSome(files, source, at, piece, done) != 0) std::fill(piece.begin(), piece.end(), '\0');
    const std::string_view part = piece;
    if (const int error = writeAll(files, target, {&part, 1})) return error;
  }
  return files.sync(target.get());
}

/// Puts the batches of a segment into another file, such that nothing is missing between them.
class Rewriter {
 public:
  /// The segment goes from `previous`, where the one before ends, to `end`.
  Rewriter(Files& files, File target, std::uint64_t previous, std::uint64_t end)
      : files_(files), target_(std::move(target)), previous_(previous), end_(end) {}

  int add(const SegmentScanner::Found& found) {
    Positions positions;
    bool hasPositions = found.hasPositions && decode(found.positions, positions);
    std::size_t begin = 0;
    do {
      // The events up to the next that is lost.
      std::size_t behind = begin;
      Batch batch;
      while (behind < found.events.size() &&
             found.events[behind].number == found.events[begin].number + (behind - begin)) {
        batch.add(found.events[behind].bytes, found.events[behind].kind);
        ++behind;
      }
      // A segment has to begin with all positions; others stand behind the events that they count.
      const bool isPlace = found.header.hasAllPositions ? begin == 0 : behind == found.events.size();
      BatchHeader header;
      header.first = batch.events() > 0 ? found.events[begin].number : found.header.first;
      header.synced = found.header.synced;
      header.hasAllPositions = isPlace && hasPositions && found.header.hasAllPositions;
      const bool isEmpty = batch.events() == 0 && !(isPlace && hasPositions);
      if (!isEmpty) {
        if (const int error = write(batch, isPlace && hasPositions ? positions : Positions(), header)) return error;
      }
      begin = behind;
    } while (begin < found.events.size());
    return 0;
  }

  /// Up to where the next segment begins nothing is missing either.
  int finish() {
    if (previous_ < end_) {
      BatchHeader header;
      header.first = end_ - 1;
      if (const int error = write(Batch(), Positions(), header)) return error;
    }
    return files_.sync(target_.get());
  }

 private:
  int write(const Batch& batch, const Positions& positions, BatchHeader& header) {
    header.previous = previous_;
    const auto pieces = writer_.write(batch, positions, header);
    previous_ = header.end();
    return writeAll(files_, target_, pieces);
  }

  Files& files_;
  const File target_;
  std::uint64_t previous_;  ///< Number behind the last event written.
  const std::uint64_t end_;
  BatchWriter writer_;
};

/// Makes segments readable that the disk does not give whole.
int replaceUnreadable(Files& files, const std::string& directory, std::string& path) {
  std::vector<std::string> names;
  path = directory;
  if (const int error = files.list(directory, names)) return error;
  for (const std::string& name : names) {
    std::uint64_t first = 0;
    std::string text;
    if (!isSegmentName(name, first)) continue;
    path = directory;
    path.append("/").append(name);
    const int unreadable = readWhole(files, path, text);
    if (unreadable == 0) continue;
    if (unreadable != EIO) return unreadable;
    const std::string aside = path + ".readable";
    if (const int error = copyReadable(files, path, aside)) return error;
    if (const int error = files.rename(path, path + ".unreadable")) return error;
    if (const int error = files.rename(aside, path)) return error;
    if (const int error = files.syncDirectory(directory)) return error;
  }
  return 0;
}

/// Writes a segment anew, behind a copy of it.
int rewrite(Files& files, const std::string& directory, const Segment& segment, std::uint64_t previous,
            const Repair& repair) {
  const std::string path = pathOf(directory, segment);
  const std::string aside = path + ".repaired";
  if (const int error = copyReadable(files, path, repair.original)) return error;
  if (const int error = files.remove(aside); error != 0 && error != ENOENT) return error;
  File target(files, files.create(aside));
  if (!target) return target.error();
  File source(files, files.openToRead(path));
  if (!source) return source.error();
  Rewriter rewriter(files, std::move(target), std::min(previous, segment.begin), segment.end);
  SegmentScanner scanner(files, std::move(source));
  scanner.setLimit(segment.bytes);
  scanner.setNumbers(segment.begin, segment.end);
  SegmentScanner::Found found;
  while (scanner.next(found)) {
    if (const int error = rewriter.add(found)) return error;
  }
  if (scanner.error() != 0) return scanner.error();
  if (const int error = rewriter.finish()) return error;
  if (const int error = files.rename(aside, path)) return error;
  return files.syncDirectory(directory);
}

}  // namespace

int readContents(Files& files, const std::string& directory, CacheContents& contents, std::string& path) {
  path = directory + "/ledger";
  if (const int error = Ledger::read(files, directory, contents.ledger)) return error;
  return loadLog(files, directory, contents.ledger, contents.log, path);
}

int examine(Files& files, const std::string& directory, const Segment& segment, SegmentHealth& health,
            const std::function<void(const Event&)>& visit) {
  health = {};
  File file(files, files.openToRead(pathOf(directory, segment)));
  if (!file) return file.error();
  SegmentScanner scanner(files, std::move(file));
  scanner.setLimit(segment.bytes);
  scanner.setNumbers(segment.begin, std::max(segment.begin, segment.end));
  std::uint64_t next = std::min(segment.previous, segment.begin);
  SegmentScanner::Found found;
  while (scanner.next(found)) {
    const BatchHeader& header = found.header;
    if (header.previous > next) health.lost += header.previous - next;
    health.lost += header.events - found.events.size();
    health.events += found.events.size();
    if (!found.hasPositions) health.hasPositions = false;
    if (found.isWhole && !found.isClean) ++health.blemishes;
    next = health.end = header.end();
    if (!visit) continue;
    for (const Event& event : found.events) visit(event);
  }
  if (scanner.error() != 0) return scanner.error();
  if (segment.end > next) health.lost += segment.end - next;
  health.unfinished = segment.bytes - std::min(segment.bytes, scanner.offset());
  return 0;
}

int repair(Files& files, const std::string& directory, std::vector<Repair>& repairs, std::string& path) {
  if (const int error = replaceUnreadable(files, directory, path)) return error;
  CacheContents contents;
  if (const int error = readContents(files, directory, contents, path)) return error;
  std::uint64_t previous = contents.log.segments.empty() ? 0 : contents.log.segments.front().previous;
  for (const Segment& segment : contents.log.segments) {
    SegmentHealth health;
    path = pathOf(directory, segment);
    if (const int error = examine(files, directory, segment, health)) return error;
    if (segment.end > segment.begin && (health.lost > 0 || health.blemishes > 0 || !health.hasPositions)) {
      Repair done{
          .segment = segment.begin, .events = health.events, .lost = health.lost, .original = path + ".damaged"};
      if (const int error = rewrite(files, directory, segment, previous, done)) return error;
      repairs.push_back(std::move(done));
      health.end = segment.end;
    }
    previous = std::max(previous, health.end);
  }
  return 0;
}

}  // namespace quillon::delivery
