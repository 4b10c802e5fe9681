#ifndef QUILLON_TOOLS_FORMATS_H_
#define QUILLON_TOOLS_FORMATS_H_

#include <string>

class LogDriver;

namespace quillon {

/// Reads the format file `path` into `driver`, and puts the formats into the order of trying unless they are to stay
/// in that of the file. Only errors are told: this is for programs that are about messages. False after one.
[[nodiscard]] bool readFormats(const char* program, const std::string& path, bool inFileOrder, LogDriver& driver);

}  // namespace quillon

#endif  // QUILLON_TOOLS_FORMATS_H_
