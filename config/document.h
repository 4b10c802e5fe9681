#ifndef QUILLON_CONFIG_DOCUMENT_H_
#define QUILLON_CONFIG_DOCUMENT_H_

#include <toml++/toml.h>
#include <optional>
#include <string>
#include <vector>

#include "config/TomlTable.h"

namespace quillon {

/// A configuration as it stands in its file.
struct ConfigDocument {
  toml::table table;
  std::string path;       ///< An absolute path,
  std::string directory;  ///< and that of the directory that it stands in: relative paths within it belong there.
};

/// Nothing, after a fault, when the text is no TOML.
std::optional<toml::table> parseDocument(const std::string& text, std::vector<ConfigFault>& faults);

/// Reads the file `path`. Nothing, after a fault, when it cannot be read or is no TOML.
std::optional<ConfigDocument> readDocument(const std::string& path, std::vector<ConfigFault>& faults);

/// Puts the faults behind the first `from` into the order of the file.
void sortByPlace(std::vector<ConfigFault>& faults, std::size_t from);

}  // namespace quillon

#endif  // QUILLON_CONFIG_DOCUMENT_H_
