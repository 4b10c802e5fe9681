#include "src/adapters/logfile/source/fingerprint.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace quillon {
namespace {

/// Bytes of the file from `offset` on, fewer at its end.
std::string_view readAt(int descriptor, std::uint64_t offset, char* room, std::size_t size) {
  const ssize_t count = pread(descriptor, room, size, static_cast<off_t>(offset));
  return {room, count > 0 ? static_cast<std::size_t>(count) : 0};
}

}  // namespace

std::uint64_t hashOf(std::string_view bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }

std::uint64_t tailHash(std::string_view before) {
  return hashOf(before.substr(before.size() - std::min(before.size(), kTailBytes)));
}

bool readTailHash(int descriptor, std::uint64_t offset, std::uint64_t& hash) {
  std::array<char, kTailBytes> room;
  const std::size_t size = std::min<std::uint64_t>(offset, kTailBytes);
  const std::string_view bytes = readAt(descriptor, offset - size, room.data(), size);
  hash = hashOf(bytes);
  return bytes.size() == size;
}

bool Fingerprint::matchAndGrow(int descriptor, std::uint64_t seen) {
  std::array<char, kMostBytes> room;
  const std::size_t wanted = std::max<std::size_t>(length_, std::min<std::uint64_t>(seen, kMostBytes));
  const std::string_view bytes = readAt(descriptor, 0, room.data(), wanted);
  if (bytes.size() < wanted || (length_ > 0 && hashOf(bytes.substr(0, length_)) != hash_)) return false;
  if (wanted > length_) *this = Fingerprint(static_cast<std::uint32_t>(wanted), hashOf(bytes));
  return true;
}

bool isCompressed(std::string_view beginning) {
  using std::string_view_literals::operator""sv;
  for (const std::string_view magic : {"\x1f\x8b"sv, "\x1f\x9d"sv,
                                       "\xfd"
                                       "7zXZ\0"sv,
                                       "\x28\xb5\x2f\xfd"sv, "\x04\x22\x4d\x18"sv}) {
    if (beginning.starts_with(magic)) return true;
  }
  return beginning.starts_with("BZh") && beginning.substr(4).starts_with("1AY&SY");
}

}  // namespace quillon
