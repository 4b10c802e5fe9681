#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SHARED_TEXT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SHARED_TEXT_H_

#include <string_view>

#include "foundation/strobj.h"

namespace quillon {

/// A string of `text`. Slot names, constants and words come again in most blocks of a format file, so the latest ones
/// are remembered and share their memory: that makes the model of a large file about half as big. How many are
/// remembered is fixed; which, depends on their hashes.
qlStrobj sharedText(std::string_view text);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SHARED_TEXT_H_
