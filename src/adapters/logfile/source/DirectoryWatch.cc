#include "src/adapters/logfile/source/DirectoryWatch.h"

#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

namespace quillon {
namespace {

constexpr std::uint32_t kEvents = IN_CREATE | IN_MODIFY | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE |
                                  IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

/// File systems that another machine, or another layer, may write to. Those without a name in the kernel's headers:
/// CIFS, SMB2, Lustre, GFS2, shared folders of a virtual machine.
bool isChangedElsewhere(const std::string& directory) {
  constexpr std::array<std::uint32_t, 16> kTypes = {
      NFS_SUPER_MAGIC, SMB_SUPER_MAGIC, FUSE_SUPER_MAGIC,  V9FS_MAGIC,           CEPH_SUPER_MAGIC, CODA_SUPER_MAGIC,
      AFS_SUPER_MAGIC, AFS_FS_MAGIC,    NCP_SUPER_MAGIC,   0xFF534D42U,          0xFE534D42U,      0x0BD00BD0U,
      0x01161970U,     0x786F4256U,     OCFS2_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC};
  struct statfs status;
  if (statfs(directory.c_str(), &status) != 0) return true;
  return std::find(kTypes.begin(), kTypes.end(), static_cast<std::uint32_t>(status.f_type)) != kTypes.end();
}

}  // namespace

DirectoryWatch::DirectoryWatch(bool enabled) {
  if (enabled) events_ = Descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
}

bool DirectoryWatch::watch(const std::string& directory, bool& exhausted) {
  if (!events_) return false;
  const int number = inotify_add_watch(events_.get(), directory.c_str(), kEvents);
  if (number < 0) exhausted |= errno == ENOSPC || errno == ENOMEM;
  Watched& watched = directories_[directory];
  if (watched.number == number) return false;
  if (watched.number >= 0) {
    const auto [first, last] = names_.equal_range(watched.number);
    const auto old = std::find_if(first, last, [&](const auto& entry) { return entry.second == directory; });
    if (old != last) names_.erase(old);
  }
  watched = {.number = number, .told = number >= 0 && !isChangedElsewhere(directory)};
  if (number >= 0) names_.emplace(number, directory);
  return number >= 0;
}

void DirectoryWatch::keepOnly(const std::set<std::string>& directories) {
  for (auto i = directories_.begin(); i != directories_.end();) {
    if (directories.contains(i->first)) {
      ++i;
      continue;
    }
    const int number = i->second.number;
    const auto [first, last] = names_.equal_range(number);
    const auto name = std::find_if(first, last, [&](const auto& entry) { return entry.second == i->first; });
    if (name != last) names_.erase(name);
    if (number >= 0 && !names_.contains(number)) inotify_rm_watch(events_.get(), number);
    i = directories_.erase(i);
  }
}

bool DirectoryWatch::covers(const std::string& directory) const {
  const auto found = directories_.find(directory);
  return found != directories_.end() && found->second.told;
}

bool DirectoryWatch::read(const std::function<void(const Event&)>& take) {
  bool complete = true;
  alignas(inotify_event) std::array<char, 65536> buffer;
  while (events_) {
    const ssize_t count = ::read(events_.get(), buffer.data(), buffer.size());
    if (count <= 0) break;
    for (const char* at = buffer.data(); at < buffer.data() + count;) {
      const auto& event = *reinterpret_cast<const inotify_event*>(at);
      at += sizeof event + event.len;
      if ((event.mask & (IN_Q_OVERFLOW | IN_DELETE_SELF | IN_MOVE_SELF)) != 0) complete = false;
      const auto [first, last] = names_.equal_range(event.wd);
      if ((event.mask & IN_IGNORED) != 0) {
        for (auto i = first; i != last; ++i) directories_.erase(i->second);
        names_.erase(first, last);
        continue;
      }
      if (event.len == 0) continue;
      for (auto i = first; i != last; ++i) {
        take({.path = (i->second == "/" ? "" : i->second) + '/' + event.name,
              .appeared = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0,
              .directory = (event.mask & IN_ISDIR) != 0});
      }
    }
  }
  return complete;
}

}  // namespace quillon
