#include "src/adapters/logfile/source/glob.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <memory>

namespace quillon {
namespace {

constexpr std::size_t kDeepest = 64;  ///< Directories below each other that `**` goes into.

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

bool isPattern(const std::string& part) { return part.find_first_of("*?[\\") != std::string::npos; }

bool nameMatches(const std::string& part, const char* name) { return fnmatch(part.c_str(), name, FNM_PERIOD) == 0; }

enum class Kind { kNone, kFile, kDirectory };

Kind kindOf(const std::string& path, bool followLinks) {
  struct stat status;
  if ((followLinks ? stat(path.c_str(), &status) : lstat(path.c_str(), &status)) != 0) return Kind::kNone;
  return S_ISDIR(status.st_mode) ? Kind::kDirectory : Kind::kFile;
}

/// The kind of an entry of a directory; most file systems tell it without a further look.
Kind kindOf(const dirent& entry, const std::string& path, bool followLinks) {
  if (entry.d_type == DT_DIR) return Kind::kDirectory;
  if (entry.d_type == DT_REG) return Kind::kFile;
  if (entry.d_type == DT_LNK && !followLinks) return Kind::kFile;
  return kindOf(path, followLinks);
}

std::string_view untilSlash(std::string_view path) { return path.substr(0, path.find('/')); }

std::string_view behindSlash(std::string_view path) {
  const std::size_t slash = path.find('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
}

}  // namespace

Glob::Glob(std::string_view pattern) : absolute_(pattern.starts_with('/')) {
  for (; !pattern.empty(); pattern = behindSlash(pattern)) {
    const std::string_view part = untilSlash(pattern);
    if (part.empty() || (part == "**" && !parts_.empty() && parts_.back() == "**")) continue;
    parts_.emplace_back(part);
  }
}

bool Glob::matches(std::string_view path) const {
  if (absolute_ != path.starts_with('/')) return false;
  return matches(0, absolute_ ? path.substr(1) : path);
}

bool Glob::matches(std::size_t part, std::string_view path) const {
  if (part == parts_.size()) return path.empty();
  if (path.empty()) return false;
  if (parts_[part] == "**") {
    if (part + 1 == parts_.size()) part = parts_.size();  // `**` at the end: all below
    for (std::string_view rest = path; !rest.empty(); rest = behindSlash(rest)) {
      if (part == parts_.size() ? rest.find('/') == std::string_view::npos && !rest.starts_with('.')
                                : matches(part + 1, rest)) {
        return true;
      }
      if (rest.starts_with('.')) return false;
    }
    return false;
  }
  return nameMatches(parts_[part], std::string(untilSlash(path)).c_str()) && matches(part + 1, behindSlash(path));
}

/// One walk through the directories.
class Glob::Finder {
 public:
  Finder(const Glob& glob, const std::function<void(const std::string&)>& file,
         const std::function<void(const std::string&)>& directory)
      : parts_(glob.parts_), file_(file), directory_(directory) {}

  /// Finds what matches from `part` on below `directory`, which is written as it is to come before a name.
  void find(const std::string& directory, std::size_t part, std::size_t depth) {
    const bool last = part + 1 == parts_.size();
    const std::string& pattern = parts_[part];
    if (!isPattern(pattern)) {
      found(directory + pattern, directory, kindOf(directory + pattern, true), part, depth);
      return;
    }
    const bool deep = pattern == "**";
    if (deep && !last) find(directory, part + 1, depth);
    directory_(nameOfDirectory(directory));
    const std::unique_ptr<DIR, DirectoryCloser> entries(opendir(nameOfDirectory(directory).c_str()));
    while (const dirent* const entry = entries ? readdir(entries.get()) : nullptr) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (deep ? name[0] == '.' : !nameMatches(pattern, entry->d_name)) continue;
      const std::string path = directory + name;
      const Kind kind = kindOf(*entry, path, !deep);
      if (!deep) {
        found(path, directory, kind, part, depth);
      } else if (kind == Kind::kDirectory && depth < kDeepest) {
        find(path + '/', part, depth + 1);
      } else if (kind == Kind::kFile && last) {
        file_(path);
      }
    }
  }

 private:
  static std::string nameOfDirectory(const std::string& directory) {
    if (directory.empty()) return ".";
    return directory.size() == 1 ? directory : directory.substr(0, directory.size() - 1);
  }

  /// Something of this kind, or nothing, is at a path that matches as far as `part`.
  void found(const std::string& path, const std::string& directory, Kind kind, std::size_t part, std::size_t depth) {
    const bool last = part + 1 == parts_.size();
    if (last || kind == Kind::kNone) directory_(nameOfDirectory(directory));
    if (last && kind == Kind::kFile) file_(path);
    if (!last && kind == Kind::kDirectory) find(path + '/', part + 1, depth);
  }

  const std::vector<std::string>& parts_;
  const std::function<void(const std::string&)>& file_;
  const std::function<void(const std::string&)>& directory_;
};

void Glob::find(const std::function<void(const std::string&)>& file,
                const std::function<void(const std::string&)>& directory) const {
  if (!parts_.empty()) Finder(*this, file, directory).find(absolute_ ? "/" : "", 0, 0);
}

bool isRotatedName(std::string_view base, std::string_view name) {
  constexpr std::string_view kSeparators = ".-_~";
  constexpr std::array<std::string_view, 8> kWords = {"old", "prev", "bak", "orig", "save", "saved", "last", "backup"};
  const auto isNumber = [](std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789.-_:T") == std::string_view::npos;
  };
  if (name.size() <= base.size()) return false;
  if (name.starts_with(base) && kSeparators.find(name[base.size()]) != std::string_view::npos) {
    const std::string_view rest = name.substr(base.size() + 1);
    return rest.empty() || isNumber(rest) || std::find(kWords.begin(), kWords.end(), rest) != kWords.end();
  }
  const std::size_t dot = base.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return false;
  const std::string_view ending = base.substr(dot);
  if (!name.starts_with(base.substr(0, dot)) || !name.ends_with(ending)) return false;
  const std::string_view middle = name.substr(dot, name.size() - base.size());
  return middle.size() > 1 && kSeparators.find(middle[0]) != std::string_view::npos && isNumber(middle.substr(1));
}

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace quillon
