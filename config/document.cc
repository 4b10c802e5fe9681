#include "config/document.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

namespace quillon {

namespace fs = std::filesystem;

std::optional<toml::table> parseDocument(const std::string& text, std::vector<ConfigFault>& faults) {
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& error) {  // the library knows no other way
    faults.push_back({{error.source().begin.line, error.source().begin.column}, std::string(error.description())});
    return std::nullopt;
  }
}

std::optional<ConfigDocument> readDocument(const std::string& path, std::vector<ConfigFault>& faults) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) {
    const int error = errno;
    if (!file || file.bad() || fs::is_directory(path)) {
      faults.push_back({{}, "cannot read " + path + ": " + std::strerror(error)});
      return std::nullopt;
    }
  }
  std::error_code failed;
  const fs::path absolute = fs::absolute(path, failed);
  if (failed) {
    faults.push_back({{}, "cannot tell the current directory: " + failed.message()});
    return std::nullopt;
  }
  std::optional<toml::table> table = parseDocument(text.str(), faults);
  if (!table) return std::nullopt;
  return ConfigDocument{std::move(*table), absolute, absolute.parent_path()};
}

void sortByPlace(std::vector<ConfigFault>& faults, std::size_t from) {
  std::stable_sort(faults.begin() + static_cast<std::ptrdiff_t>(from), faults.end(),
                   [](const ConfigFault& a, const ConfigFault& b) {
                     return std::pair(a.place.line, a.place.column) < std::pair(b.place.line, b.place.column);
                   });
}

}  // namespace quillon
