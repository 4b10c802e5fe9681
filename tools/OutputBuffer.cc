#include "tools/OutputBuffer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quillon {

OutputBuffer::OutputBuffer(int descriptor)
    : descriptor_(descriptor), buffer_(std::make_unique_for_overwrite<char[]>(kRoom)) {}

void OutputBuffer::put(std::string_view text) {
  if (text.size() > kRoom - used_) flush();
  if (text.size() > kRoom) {
    write(text);
  } else {
    std::memcpy(buffer_.get() + used_, text.data(), text.size());
    used_ += text.size();
  }
}

void OutputBuffer::flush() {
  write({buffer_.get(), used_});
  used_ = 0;
}

void OutputBuffer::write(std::string_view text) {
  while (!text.empty() && error_ == 0) {
    const ssize_t written = ::write(descriptor_, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
}

}  // namespace quillon
