#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILEIDENTITY_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILEIDENTITY_H_

#include <cstdint>
#include <string>

namespace quillon {

/// What the file system says a file is. The number of a deleted file is given to the next one, often at once; the time
/// of birth then tells them apart, where the file system keeps it.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t born = 0;  ///< Nanoseconds since 1970; 0 when the file system does not keep it.

  /// True unless something says that they are two; a time of birth that is not known says nothing.
  bool mayBe(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && (born == 0 || other.born == 0 || born == other.born);
  }
};

/// A look at a file. Times are nanoseconds since 1970.
struct FileStatus {
  FileIdentity identity;
  std::uint64_t size = 0;
  std::int64_t modified = 0;
  std::int64_t changed = 0;
  bool linked = true;  ///< It has a name somewhere.
};

/// Looks at a regular file; symbolic links are followed. False with errno when there is none; EINVAL when it is
/// something else.
[[nodiscard]] bool lookAtFile(const std::string& path, FileStatus& status);
[[nodiscard]] bool lookAtFile(int descriptor, FileStatus& status);

/// The clock that gives files their times, in nanoseconds since 1970: it moves some milliseconds at a time.
std::int64_t fileClock();

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILEIDENTITY_H_
