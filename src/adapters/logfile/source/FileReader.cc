#include "src/adapters/logfile/source/FileReader.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <string_view>

#include "foundation/checkpoint.h"

namespace quillon {
namespace {

constexpr std::size_t kTurnBytes = 1 << 20;
constexpr std::size_t kFirstRoom = 256 << 10;
/// From so many bytes of an unfinished line on, it pays to look for its end before it is read again.
constexpr std::uint64_t kLongLine = 65536;

}  // namespace

FileReader::FileReader(FileTracker& tracker, ReadAllowance& allowance, std::size_t longest)
    : tracker_(tracker), allowance_(allowance), longest_(longest), splitter_(longest, kFirstRoom, kTailBytes) {}

bool FileReader::begin(FollowedFile& file, bool final, TimePoint now, bool& more) {
  file_ = &file;
  final_ = final;
  now_ = now;
  atEnd_ = false;
  started_ = false;
  budget_ = kTurnBytes;
  splitter_.reset();
  if (file.seen.offset - file.read.offset <= kLongLine) return true;
  if (!scanAhead(more)) {
    file_ = nullptr;
    return false;
  }
  // As much as is kept of the line, so that it is read to its end within the turn.
  budget_ = kTurnBytes + std::min<std::uint64_t>(longest_, file.seen.offset - file.read.offset);
  return true;
}

bool FileReader::next(Frame& line, TimePoint now, bool& more) {
  while (true) {
    if (splitter_.next(line) || (atEnd_ && final_ && splitter_.finish(line))) {
      file_->read = {.offset = file_->read.offset + line.bytes, .tail = tailHash(line.before)};
      if (file_->seen.offset < file_->read.offset) file_->seen = file_->read;
      return true;
    }
    if (allowance_.isUsedUp(now)) return false;
    more = budget_ == 0 && !atEnd_;
    const Read read = atEnd_ || more ? Read::kEnd : fill();
    if (read == Read::kBytes) continue;
    if (read == Read::kEnd && !atEnd_ && !more) {
      atEnd_ = true;
      continue;
    }
    end(read);
    return false;
  }
}

/// Reads on behind what was read.
FileReader::Read FileReader::fill() {
  const int file = file_->descriptor.get();
  const bool leapt = leaveOut();
  const std::uint64_t offset = file_->read.offset + splitter_.pending();
  const std::size_t overlap = leapt ? 0 : std::min<std::uint64_t>(offset, kTailBytes);
  const auto from = static_cast<off_t>(offset - overlap);
  const std::span<char> room = splitter_.room();
  std::array<char, kTailBytes> before;
  ssize_t count = 0;
  do {
    // The first time, what stands before goes into the splitter too.
    iovec parts[] = {{.iov_base = before.data(), .iov_len = started_ ? overlap : 0},
                     {.iov_base = room.data(), .iov_len = room.size()}};
    count = preadv(file, parts, 2, from);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return Read::kFailed;
  checkpoint("bytes-read");

  const char* const there = started_ ? before.data() : room.data();
  const std::uint64_t expected = started_ ? tailHash(splitter_.lastRead()) : file_->read.tail;
  if (static_cast<std::size_t>(count) < overlap) return Read::kChanged;
  if (overlap > 0 && hashOf({there, overlap}) != expected) return Read::kChanged;
  const std::size_t bytes = static_cast<std::size_t>(count) - overlap;
  if (leapt && (bytes < kTailBytes || hashOf({room.data(), kTailBytes}) != file_->seen.tail)) return Read::kChanged;
  // Looked at after the bytes were read: if the beginning is still the same, so were they.
  if (!file_->head.matchAndGrow(file, std::max(offset + bytes, file_->seen.offset))) return Read::kChanged;
  splitter_.filled(started_ ? bytes : bytes + overlap);
  if (!started_) splitter_.skip(overlap);
  started_ = true;
  budget_ -= std::min(budget_, bytes);
  allowance_.took(bytes);
  return bytes > 0 ? Read::kBytes : Read::kEnd;
}

/// Leaves out what is known to hold no newline, where all that is kept of the line was read. True when there was some;
/// the last bytes of it are read all the same, to see whether it is still the same text.
bool FileReader::leaveOut() {
  const std::uint64_t offset = file_->read.offset + splitter_.pending();
  if (!splitter_.isTooLong() || file_->seen.offset < offset + kLongLine) return false;
  splitter_.leaveOut(file_->seen.offset - kTailBytes - offset);
  return true;
}

/// Looks for the end of a line behind what was seen of it. False when it was not found, `more` when it may be farther
/// on.
bool FileReader::scanAhead(bool& more) {
  Mark& seen = file_->seen;
  while (true) {
    more = budget_ == 0;
    if (more) return false;
    const std::span<char> room = splitter_.room();
    const ssize_t count =
        pread(file_->descriptor.get(), room.data(), room.size(), static_cast<off_t>(seen.offset - kTailBytes));
    if (count < 0) return true;  // reading will tell
    const std::string_view bytes(room.data(), static_cast<std::size_t>(count));
    if (bytes.size() < kTailBytes || hashOf(bytes.substr(0, kTailBytes)) != seen.tail) {
      tracker_.overwritten(*file_, now_);
      return false;
    }
    if (bytes.find('\n', kTailBytes) != std::string_view::npos) return true;
    if (bytes.size() == kTailBytes) return final_;
    budget_ -= std::min(budget_, bytes.size());
    allowance_.took(bytes.size());
    seen = {.offset = seen.offset + bytes.size() - kTailBytes, .tail = tailHash(bytes)};
  }
}

/// The turn is over.
void FileReader::end(Read why) {
  FollowedFile& file = *file_;
  file_ = nullptr;
  const std::uint64_t offset = file.read.offset + splitter_.pending();
  if (started_ && offset >= file.seen.offset) file.seen = {.offset = offset, .tail = tailHash(splitter_.lastRead())};
  file.pass();
  if (why == Read::kFailed) return tracker_.failed(file);
  if (why == Read::kChanged || (atEnd_ && offset < file.seen.offset)) return tracker_.overwritten(file, now_);
  if (atEnd_ && offset < file.size) tracker_.shrunk(file, offset);
  if (file.size < offset) file.size = offset;
}

}  // namespace quillon
