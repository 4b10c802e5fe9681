#ifndef QUILLON_CONFIG_LINE_OUTPUT_CONFIG_H_
#define QUILLON_CONFIG_LINE_OUTPUT_CONFIG_H_

#include <string>

#include "config/TomlTable.h"
#include "foundation/line_output.h"

namespace quillon {

/// Takes the keys path, rotate, max_size and keep from a table. A relative path belongs to `directory`.
void readLineOutput(TomlTable& table, const std::string& directory, LineOutputOptions& options);

}  // namespace quillon

#endif  // QUILLON_CONFIG_LINE_OUTPUT_CONFIG_H_
