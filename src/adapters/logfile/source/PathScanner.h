#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_PATHSCANNER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_PATHSCANNER_H_

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "src/adapters/logfile/source/glob.h"

namespace quillon {

/// Finds the paths that patterns name. Directories are only read again when they have changed.
class PathScanner {
 public:
  /// A pattern of `exclude` without a slash is for names, wherever they are.
  PathScanner(const std::vector<std::string>& include, const std::vector<std::string>& exclude);

  /// True when the path is to be followed.
  bool matches(const std::string& path) const;

  /// Reads all directories that the patterns lead to, and keeps what matches. `visit` is called for each before.
  void scan(const std::function<void(const std::string&)>& visit);
  /// True when a directory for which `look` is true has changed since scan(), or may have: the times of files move in
  /// steps, so a change just after a look may leave no trace.
  bool hasChanged(const std::function<bool(const std::string&)>& look) const;

  /// What scan() found: paths that match. One that a pattern names without wildcards is among them though it is not
  /// there: it will be.
  const std::set<std::string>& paths() const { return paths_; }
  /// The directories it has read, and those in which something was missing.
  const std::set<std::string>& directories() const { return searched_; }

 private:
  struct State {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t modified = 0;
    std::int64_t lookedAt = 0;
  };

  static State stateOf(const std::string& directory);

  std::vector<Glob> include_;
  std::vector<Glob> exclude_;
  std::vector<Glob> excludeNames_;
  std::vector<std::string> names_;  ///< Patterns without wildcards.
  std::set<std::string> paths_;
  std::set<std::string> searched_;
  std::unordered_map<std::string, State> directories_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_PATHSCANNER_H_
