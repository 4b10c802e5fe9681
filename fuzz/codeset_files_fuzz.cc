// The files that lead to a table: three parts, separated by a 0xFF byte, are the alias file, a redirection file "T" and
// the name that is looked up.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "codeset/codeset.h"
#include "codeset/init.h"

namespace {

// A directory of this process, gone when it ends.
class Directory {
 public:
  Directory() {
    if (!mkdtemp(path_.data())) std::abort();
    setenv("NXLDIR", path_.c_str(), 1);
    unsetenv("BINDIR");
  }
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  void write(const char* name, const std::string& text) const {
    std::FILE* file = std::fopen((path_ + "/" + name).c_str(), "wb");
    if (!file) std::abort();
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
  }

 private:
  std::string path_ = (std::filesystem::temp_directory_path() / "fuzz-codeset-XXXXXX").string();
};

std::string takePart(std::string& text) {
  const std::size_t end = text.find('\xFF');
  const std::string part = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  return part;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Directory directory;
  std::string text(reinterpret_cast<const char*>(data), size);
  directory.write("aliases", takePart(text));
  directory.write("T", takePart(text));
  const std::string name = takePart(text);

  for (const int length : {1, 8, 128}) {
    char buffer[128];
    if (get_table_name(name.c_str(), buffer, length) != 0) std::abort();
    if (std::string(buffer).size() >= static_cast<std::size_t>(length)) std::abort();
  }
  nxl_cs_free(nxl_cs_new(name.c_str()));
  nxl_cs_free(nxl_cs_new("./T"));
  return 0;
}
