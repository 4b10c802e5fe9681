#ifndef QUILLON_TESTS_CODESET_SCRATCH_H_
#define QUILLON_TESTS_CODESET_SCRATCH_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "codeset/codeset.h"

struct FreeCodeset {
  void operator()(nxl_cs* cs) const { nxl_cs_free(cs); }
};
using Codeset = std::unique_ptr<nxl_cs, FreeCodeset>;

/// A test in an empty current directory, in the C locale, with none of the variables that choose codesets. All is put
/// back afterwards.
class Scratch : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "codeset-test-XXXXXX").string();
    ASSERT_NE(nullptr, mkdtemp(name.data()));
    dir_ = name;
    previous_ = std::filesystem::current_path();
    std::filesystem::current_path(dir_);
    for (const char* variable : {"NXL_CODESET", "NXLDIR", "BINDIR", "LANG"}) set(variable, "");
    set("LC_ALL", "C");
  }

  void TearDown() override {
    nxl_uninit();
    std::filesystem::current_path(previous_);
    std::filesystem::remove_all(dir_);
    for (const auto& [variable, value] : saved_) {
      value ? setenv(variable.c_str(), value->c_str(), 1) : unsetenv(variable.c_str());
    }
  }

  void set(const char* variable, const std::string& value) {
    const char* old = std::getenv(variable);
    saved_.emplace(variable, old ? std::optional<std::string>(old) : std::nullopt);
    setenv(variable, value.c_str(), 1);
  }

  /// Writes a file below the scratch directory, with the directories on its way.
  void write(const std::filesystem::path& file, const std::string& text) {
    if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
  }

  const std::string& dir() const { return dir_; }

 private:
  std::string dir_;
  std::filesystem::path previous_;
  std::map<std::string, std::optional<std::string>> saved_;
};

/// A table file of the smallest size whose header words say nothing but its kind.
inline std::string tableImage(int kind, std::size_t size = 1760) {
  std::string image(size, '\0');
  image.replace(8, 3, "ucv");
  image[48] = static_cast<char>(kind);
  return image;
}

#endif  // QUILLON_TESTS_CODESET_SCRATCH_H_
