#ifndef QUILLON_TOOLS_QUILLON_CODESET_OUTPUT_FILE_H_
#define QUILLON_TOOLS_QUILLON_CODESET_OUTPUT_FILE_H_

#include <string>

#include "foundation/descriptor.h"

namespace quillon {

/// A file that is there as a whole or not at all: it is written beside its place under a name of its own and put there
/// when it is complete. Without that the other file goes with the process, also at a signal that ends it. A device or a
/// pipe is written into. A process makes one such file.
class OutputFile {
 public:
  /// error() tells whether it could be opened.
  explicit OutputFile(std::string path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Where to write.
  int descriptor() const { return descriptor_.get(); }

  /// The errno of what failed first; 0 when nothing has.
  int error() const { return error_; }

  /// Puts the file into its place; the result is error().
  int finish();

 private:
  const std::string path_;
  Descriptor descriptor_;
  bool temporary_ = false;
  int error_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_CODESET_OUTPUT_FILE_H_
