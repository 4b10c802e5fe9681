#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_GLOB_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_GLOB_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

/// A pattern for paths: `*`, `?` and `[...]` as in the shell, within one name; `**` as a name of its own stands for any
/// number of directories, none too. Names that begin with a dot are found only by patterns that do.
class Glob {
 public:
  explicit Glob(std::string_view pattern);

  /// True when all of `path` is what the pattern says.
  bool matches(std::string_view path) const;

  /// Finds what is there: `file` is called for each path that matches and is not a directory, in no order, `directory`
  /// for each directory that was looked into or in which a name is missing. Symbolic links to directories are followed,
  /// except by `**`, which could go in circles.
  void find(const std::function<void(const std::string&)>& file,
            const std::function<void(const std::string&)>& directory) const;

 private:
  bool matches(std::size_t part, std::string_view path) const;

  bool absolute_;
  std::vector<std::string> parts_;  ///< Between the slashes.

  class Finder;
};

/// True when `name` may be that of a file that was `base` before it was rotated: "a.log.1", "a.log-20240131",
/// "a-20240131.log", "a.log.old".
bool isRotatedName(std::string_view base, std::string_view name);

/// The directory part of a path, "." when there is none, and what is behind it.
std::string directoryOf(const std::string& path);
std::string nameOf(const std::string& path);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_GLOB_H_
