#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FINGERPRINT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FINGERPRINT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quillon {

/// Bytes before a position that tailHash() speaks of; fewer near the beginning of a file.
constexpr std::size_t kTailBytes = 64;

/// XXH3 with 64 bits (xxhash.com). It tells files apart that nobody made to look alike.
std::uint64_t hashOf(std::string_view bytes);

/// The hash of the last kTailBytes before a position, or of all when there are fewer.
std::uint64_t tailHash(std::string_view before);

/// The same of a file that is open, before `offset`. False when these bytes are not there.
[[nodiscard]] bool readTailHash(int descriptor, std::uint64_t offset, std::uint64_t& hash);

/// The beginning of a file. It is taken of what was seen of the file and grows with that, so small files have one too.
class Fingerprint {
 public:
  static constexpr std::size_t kMostBytes = 1024;

  Fingerprint() = default;
  Fingerprint(std::uint32_t length, std::uint64_t hash) : length_(length), hash_(hash) {}

  /// Bytes that it was taken of.
  std::uint32_t length() const { return length_; }
  std::uint64_t hash() const { return hash_; }

  /// True when the file begins with the bytes that this was taken of. Grows to `seen` bytes of it, kMostBytes at most.
  bool matchAndGrow(int descriptor, std::uint64_t seen);
  bool matches(int descriptor) const { return Fingerprint(*this).matchAndGrow(descriptor, 0); }

 private:
  std::uint32_t length_ = 0;
  std::uint64_t hash_ = 0;
};

/// True when a file that begins with these bytes is compressed, by gzip, bzip2, xz, zstd, lz4 or compress: a log that
/// was packed when it was rotated, and no text.
bool isCompressed(std::string_view beginning);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FINGERPRINT_H_
