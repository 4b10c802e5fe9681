#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DIRECTORYWATCH_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DIRECTORYWATCH_H_

#include <functional>
#include <set>
#include <string>
#include <unordered_map>

#include "foundation/descriptor.h"

namespace quillon {

/// Hears from the kernel (inotify) what happens to the files of directories. One watch tells of all files of a
/// directory, so thousands of them cost no more.
class DirectoryWatch {
 public:
  struct Event {
    std::string path;        ///< The directory as it was given to watch(), and the name in it.
    bool appeared = false;   ///< Something got this name: it was made or moved here.
    bool directory = false;  ///< It is a directory.
  };

  /// Does nothing, and covers nothing, when `enabled` is false or the kernel refuses.
  explicit DirectoryWatch(bool enabled);

  /// Readable when there are events; -1 when there never will be any.
  int descriptor() const { return events_.get(); }

  /// Begins to watch, or goes on with it: a directory that was replaced is watched anew. True when it was not watched
  /// before. With `exhausted` set when the kernel has no more watches to give.
  bool watch(const std::string& directory, bool& exhausted);
  /// Stops watching all directories but these.
  void keepOnly(const std::set<std::string>& directories);

  /// True when what happens in the directory will be heard of. Not so for network file systems and others that files
  /// can be changed on without this kernel.
  bool covers(const std::string& directory) const;

  /// Hands over what has happened. False when events were lost, or watches ended by themselves: then anything can have
  /// happened.
  bool read(const std::function<void(const Event&)>& take);

 private:
  struct Watched {
    int number = -1;
    bool told = false;  ///< All that happens is told.
  };

  Descriptor events_;
  std::unordered_map<std::string, Watched> directories_;
  std::unordered_multimap<int, std::string> names_;  ///< A directory may have more than one.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_DIRECTORYWATCH_H_
