#include "src/adapters/logfile/source/FollowedFile.h"

namespace quillon {

bool FollowedFile::hasSameText(int file, const FileStatus& status) {
  std::uint64_t tail = 0;
  return status.size >= seen.offset && head.matchAndGrow(file, seen.offset) &&
         (seen.offset == 0 || (readTailHash(file, seen.offset, tail) && tail == seen.tail));
}

bool isCopyOf(int file, std::uint64_t size, const FollowedFile& original) {
  if (original.head.length() == 0 || size < original.head.length() || !original.head.matches(file)) return false;
  if (size >= original.seen.offset) {
    std::uint64_t tail = 0;
    if (!readTailHash(file, original.seen.offset, tail) || tail != original.seen.tail) return false;
    if (size == original.seen.offset || !original.descriptor) return true;
  }
  return isBeginningOf(file, size, original.descriptor.get());
}

bool isBeginningOf(int file, std::uint64_t size, int other) {
  Fingerprint head;
  std::uint64_t tail = 0;
  std::uint64_t there = 0;
  return head.matchAndGrow(file, size) && head.matches(other) && readTailHash(file, size, tail) &&
         readTailHash(other, size, there) && tail == there;
}

}  // namespace quillon
