#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LOCKFILE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LOCKFILE_H_

#include <memory>
#include <string>

#include "foundation/descriptor.h"

namespace quillon {

/// A lock that one process at a time holds, and a file that says which. What counts is the lock on the file, flock(2),
/// which ends with its process however that ends; the number in the file is for people. So a file that was left behind
/// locks nobody out, even when another program has got the number since.
class LockFile {
 public:
  /// Takes the lock at `path`, making the file when it is not there. Null when it cannot be had, with the reason in
  /// `error`, which names the process that has it.
  [[nodiscard]] static std::unique_ptr<LockFile> take(const std::string& path, std::string& error);

  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;
  /// Gives up the lock and removes the file.
  ~LockFile();

 private:
  LockFile(std::string path, Descriptor file);

  std::string path_;
  Descriptor file_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_LOCKFILE_H_
