#ifndef QUILLON_FUZZ_SCRATCH_FILE_H_
#define QUILLON_FUZZ_SCRATCH_FILE_H_

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace quillon {

/// A file in memory that holds `text`, for what can only be read by its path.
class ScratchFile {
 public:
  explicit ScratchFile(std::string_view text) : descriptor_(memfd_create("fuzz", 0)) {
    if (write(descriptor_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() { close(descriptor_); }

  const char* path() const { return path_.c_str(); }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace quillon

#endif  // QUILLON_FUZZ_SCRATCH_FILE_H_
