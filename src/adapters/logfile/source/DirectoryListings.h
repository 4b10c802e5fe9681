#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DIRECTORYLISTINGS_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DIRECTORYLISTINGS_H_

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace quillon {

/// What is in directories, read once for all that ask during one look at the files. While names change, as rotation
/// has them do, one reading may miss a file that is there all the time: two have to be equal, or a few milliseconds
/// have to be over.
class DirectoryListings {
 public:
  /// The names in the directory that a file could have got that was `base` before it was rotated; see isRotatedName().
  std::vector<std::string> rotatedNames(const std::string& directory, const std::string& base);
  /// The name of the file with this number; empty when there is none.
  std::string nameOfInode(const std::string& directory, std::uint64_t inode);

  /// False when the directory has changed since then; it will be read again.
  bool isStill(const std::string& directory);

  /// Directories are read again when they are asked for.
  void forget() { directories_.clear(); }

 private:
  struct Listing {
    std::map<std::string, std::uint64_t> byName;
    std::unordered_map<std::uint64_t, std::string> byInode;
  };

  const Listing& listing(const std::string& directory);

  std::unordered_map<std::string, Listing> directories_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DIRECTORYLISTINGS_H_
