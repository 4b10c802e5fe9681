#include "config/line_output_config.h"

#include <cstdint>

namespace quillon {

void readLineOutput(TomlTable& table, const std::string& directory, LineOutputOptions& options) {
  table.readPath("path", directory, options.path);
  table.readWord("rotate", options.rotation,
                 {{"never", Rotation::kNone}, {"daily", Rotation::kDaily}, {"size", Rotation::kSize}});
  table.readSize("max_size", options.maxSize, 4096, std::uint64_t{1} << 50);
  std::uint64_t keep = options.keep;
  table.readNumber("keep", keep, 1, 1000);
  options.keep = static_cast<unsigned>(keep);
  if (!options.path.empty()) return;
  for (const char* key : {"rotate", "max_size", "keep"}) {
    if (table.has(key)) {
      table.report(key, table.keyName(key) + " needs " + table.keyName("path") + ": only files rotate");
    }
  }
}

}  // namespace quillon
