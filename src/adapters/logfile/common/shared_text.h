#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SHARED_TEXT_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SHARED_TEXT_H_

#include <array>
#include <string_view>

#include "foundation/strobj.h"

namespace quillon {

/// A constant of `text`. Slot names, constants and words come again in most blocks of a format file, so while there is
/// a SharedTexts the latest ones share their memory.
qlStrobj sharedText(std::string_view text);

/// Remembers the latest texts of sharedText() for as long as it lives, which is one reading: what a reading makes may
/// go to another thread, and shares nothing with what others make. That makes the model of a large file a third
/// smaller. How many are remembered is fixed; which, depends on their hashes.
///
/// Threads: works for the thread that made it. Of several within each other the latest one works.
class SharedTexts {
 public:
  SharedTexts() : outer_(current_) { current_ = this; }
  SharedTexts(const SharedTexts&) = delete;
  SharedTexts& operator=(const SharedTexts&) = delete;
  ~SharedTexts() { current_ = outer_; }

 private:
  friend qlStrobj sharedText(std::string_view text);

  static inline constinit thread_local SharedTexts* current_ = nullptr;

  SharedTexts* const outer_;
  std::array<qlStrobj, 1024> remembered_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SHARED_TEXT_H_
