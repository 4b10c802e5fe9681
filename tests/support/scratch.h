#ifndef QUILLON_TESTS_SUPPORT_SCRATCH_H_
#define QUILLON_TESTS_SUPPORT_SCRATCH_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace quillon {

/// Where scratch directories are in memory, if there is such a place: files by the thousand need no disk.
inline std::string inMemory() { return access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : testing::TempDir(); }

/// An empty directory for the life of the object.
class ScratchDirectory {
 public:
  explicit ScratchDirectory(const std::string& parent = testing::TempDir()) {
    std::string name = parent + "quillon-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ScratchDirectory& operator=(ScratchDirectory&&) = delete;
  ~ScratchDirectory() { std::filesystem::remove_all(path_); }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// Writes a file and the directories on its way.
inline void writeFile(const std::filesystem::path& file, const std::string& text) {
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
}

inline std::string readFile(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace quillon

#endif  // QUILLON_TESTS_SUPPORT_SCRATCH_H_
