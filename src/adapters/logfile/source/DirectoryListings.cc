#include "src/adapters/logfile/source/DirectoryListings.h"

#include <dirent.h>

#include <chrono>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include "src/adapters/logfile/source/glob.h"

namespace quillon {
namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

/// A directory in which all is renamed at the moment is read so many times more, with such pauses.
constexpr int kTries = 10;
constexpr std::chrono::milliseconds kPause(1);

std::map<std::string, std::uint64_t> read(const std::string& directory) {
  std::map<std::string, std::uint64_t> names;
  const std::unique_ptr<DIR, DirectoryCloser> entries(opendir(directory.c_str()));
  while (const dirent* const file = entries ? readdir(entries.get()) : nullptr) {
    if (file->d_type == DT_REG || file->d_type == DT_UNKNOWN) names.emplace(file->d_name, file->d_ino);
  }
  return names;
}

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

bool DirectoryListings::isStill(const std::string& directory) {
  if (listing(directory).byName == read(directory)) return true;
  directories_.erase(directory);
  return false;
}

const DirectoryListings::Listing& DirectoryListings::listing(const std::string& directory) {
  const auto [entry, isNew] = directories_.try_emplace(directory);
  Listing& listing = entry->second;
  if (!isNew) return listing;
  listing.byName = read(directory);
  for (int n = 0; n < kTries; ++n) {
    auto again = read(directory);
    if (again == listing.byName) break;
    listing.byName = std::move(again);
    std::this_thread::sleep_for(kPause);
  }
  for (const auto& [name, inode] : listing.byName) listing.byInode.emplace(inode, name);
  return listing;
}

}  // namespace quillon
