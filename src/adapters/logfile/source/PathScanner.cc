#include "src/adapters/logfile/source/PathScanner.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>

#include "src/adapters/logfile/source/FileIdentity.h"

namespace quillon {
namespace {

/// File systems may count time in steps as long as this.
constexpr std::int64_t kStep = 2'000'000'000;

/// True when nothing of the pattern stands for something else.
bool isName(const std::string& pattern) { return pattern.find_first_of("*?[\\") == std::string::npos; }

bool anyMatches(const std::vector<Glob>& globs, const std::string& path) {
  return std::any_of(globs.begin(), globs.end(), [&](const Glob& glob) { return glob.matches(path); });
}

}  // namespace

PathScanner::PathScanner(const std::vector<std::string>& include, const std::vector<std::string>& exclude)
    : include_(include.begin(), include.end()) {
  std::ranges::copy_if(include, std::back_inserter(names_), isName);
  for (const std::string& pattern : exclude) {
    (pattern.find('/') == std::string::npos ? excludeNames_ : exclude_).emplace_back(pattern);
  }
}

bool PathScanner::matches(const std::string& path) const {
  return anyMatches(include_, path) && !anyMatches(exclude_, path) && !anyMatches(excludeNames_, nameOf(path));
}

void PathScanner::scan(const std::function<void(const std::string&)>& visit) {
  paths_.clear();
  searched_.clear();
  directories_.clear();
  const auto file = [this](const std::string& path) {
    if (!anyMatches(exclude_, path) && !anyMatches(excludeNames_, nameOf(path))) paths_.insert(path);
  };
  const auto directory = [&](const std::string& path) {
    if (!searched_.insert(path).second) return;
    visit(path);
    directories_.emplace(path, stateOf(path));
  };
  for (const Glob& glob : include_) glob.find(file, directory);
  std::ranges::for_each(names_, file);
}

bool PathScanner::hasChanged(const std::function<bool(const std::string&)>& look) const {
  return std::any_of(directories_.begin(), directories_.end(), [&](const auto& entry) {
    if (!look(entry.first)) return false;
    const State& before = entry.second;
    const State now = stateOf(entry.first);
    return now.device != before.device || now.inode != before.inode || now.modified != before.modified ||
           before.modified > before.lookedAt - kStep;
  });
}

PathScanner::State PathScanner::stateOf(const std::string& directory) {
  const std::int64_t lookedAt = fileClock();
  struct stat status;
  if (stat(directory.c_str(), &status) != 0) return {.lookedAt = lookedAt};
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .modified = static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec,
          .lookedAt = lookedAt};
}

}  // namespace quillon
