#include "src/adapters/logfile/source/DirectoryListings.h"

#include <dirent.h>

#include <memory>

#include "src/adapters/logfile/source/glob.h"

namespace quillon {
namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

std::vector<std::string> DirectoryListings::rotatedNames(const std::string& directory, const std::string& base) {
  const auto& names = listing(directory).byName;
  const std::string stem = base.substr(0, base.rfind('.') == 0 ? base.size() : base.rfind('.'));
  std::vector<std::string> found;
  for (auto i = names.lower_bound(stem); i != names.end() && i->first.starts_with(stem); ++i) {
    if (isRotatedName(base, i->first)) found.push_back(i->first);
  }
  return found;
}

std::string DirectoryListings::nameOfInode(const std::string& directory, std::uint64_t inode) {
  const auto& inodes = listing(directory).byInode;
  const auto found = inodes.find(inode);
  return found == inodes.end() ? "" : found->second;
}

const DirectoryListings::Listing& DirectoryListings::listing(const std::string& directory) {
  const auto [entry, isNew] = directories_.try_emplace(directory);
  Listing& names = entry->second;
  if (!isNew) return names;
  const std::unique_ptr<DIR, DirectoryCloser> entries(opendir(directory.c_str()));
  while (const dirent* const file = entries ? readdir(entries.get()) : nullptr) {
    if (file->d_type != DT_REG && file->d_type != DT_UNKNOWN) continue;
    names.byName.emplace(file->d_name, file->d_ino);
    names.byInode.emplace(file->d_ino, file->d_name);
  }
  return names;
}

}  // namespace quillon
