#include "src/adapters/logfile/source/FollowedFile.h"

#include <algorithm>

namespace quillon {

bool FollowedFile::hasSameText(int file, const FileStatus& status) {
  std::uint64_t tail = 0;
  return status.size >= seen.offset && head.matchAndGrow(file, seen.offset) &&
         (seen.offset == 0 || (readTailHash(file, seen.offset, tail) && tail == seen.tail));
}

/// Gives up the place whose neighbours are closest to each other, for how far back they are.
void FollowedFile::pass() {
  if (read.offset <= passed[0].offset) return;
  std::size_t given = passed.size() - 1;
  double least = 1;
  for (std::size_t i = 1; i < passed.size() && passed.back().offset > 0; ++i) {
    const std::uint64_t before = i + 1 < passed.size() ? passed[i + 1].offset : 0;
    const double apart = static_cast<double>(passed[i - 1].offset - before) / static_cast<double>(read.offset - before);
    if (apart >= least) continue;
    least = apart;
    given = i;
  }
  const auto end = passed.begin() + static_cast<std::ptrdiff_t>(given);
  std::move_backward(passed.begin(), end, end + 1);
  passed[0] = read;
}

bool isCopyOf(int file, std::uint64_t size, const FollowedFile& original) {
  if (original.head.length() == 0 || size < std::min<std::uint64_t>(original.head.length(), kTailBytes)) return false;
  const bool hasHead = size >= original.head.length();
  if (hasHead && !original.head.matches(file)) return false;
  if (size >= original.seen.offset) {
    std::uint64_t tail = 0;
    if (!readTailHash(file, original.seen.offset, tail) || tail != original.seen.tail) return false;
    if (size == original.seen.offset || !original.descriptor) return true;
  }
  if (hasHead && original.descriptor && isBeginningOf(file, size, original.descriptor.get())) return true;
  if (size > original.seen.offset) return false;  // of what it has more nothing is known
  for (const Mark& mark : original.passed) {
    std::uint64_t tail = 0;
    if (mark.offset > size) continue;
    // A place far from its end would prove little of a text that only begins as the original did.
    return mark.offset >= std::max(size / 2, std::uint64_t{1}) && readTailHash(file, mark.offset, tail) &&
           tail == mark.tail;
  }
  return false;
}

bool isBeginningOf(int file, std::uint64_t size, int other) {
  Fingerprint head;
  std::uint64_t tail = 0;
  std::uint64_t there = 0;
  return head.matchAndGrow(file, size) && head.matches(other) && readTailHash(file, size, tail) &&
         readTailHash(other, size, there) && tail == there;
}

}  // namespace quillon
