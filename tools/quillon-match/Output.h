#ifndef QUILLON_TOOLS_QUILLON_MATCH_OUTPUT_H_
#define QUILLON_TOOLS_QUILLON_MATCH_OUTPUT_H_

#include <span>
#include <string_view>

#include "foundation/descriptor.h"

namespace quillon {

/// Whole lines to a descriptor, which stays the caller's. The first write that fails ends it: what comes later is
/// dropped. One thread at a time.
class Output {
 public:
  explicit Output(int descriptor) : descriptor_(descriptor) {}

  void write(std::string_view lines) { write({&lines, 1}); }
  /// One line, in parts.
  void write(std::span<const std::string_view> parts) {
    if (error_ == 0) error_ = writeAll(descriptor_, parts);
  }

  /// The errno of the write that failed; 0 when none has.
  int error() const { return error_; }

 private:
  const int descriptor_;
  int error_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_MATCH_OUTPUT_H_
