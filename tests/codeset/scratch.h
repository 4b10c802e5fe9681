#ifndef QUILLON_TESTS_CODESET_SCRATCH_H_
#define QUILLON_TESTS_CODESET_SCRATCH_H_

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include "codeset/codeset.h"
#include "tests/support/scratch.h"

using quillon::Codeset;

/// A test in an empty current directory, in the C locale, with none of the variables that choose codesets. All is put
/// back afterwards.
class Scratch : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::current_path(directory_.path());
    for (const char* variable : {"NXL_CODESET", "NXLDIR", "BINDIR", "LANG"}) set(variable, "");
    set("LC_ALL", "C");
  }

  void TearDown() override {
    nxl_uninit();
    std::filesystem::current_path(previous_);
    for (const auto& [variable, value] : saved_) {
      value ? setenv(variable.c_str(), value->c_str(), 1) : unsetenv(variable.c_str());
    }
  }

  void set(const char* variable, const std::string& value) {
    const char* old = std::getenv(variable);
    saved_.emplace(variable, old ? std::optional<std::string>(old) : std::nullopt);
    setenv(variable, value.c_str(), 1);
  }

  std::string dir() const { return directory_.path(); }

 private:
  const quillon::ScratchDirectory directory_;
  const std::filesystem::path previous_ = std::filesystem::current_path();
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
