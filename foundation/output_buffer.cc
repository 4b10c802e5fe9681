#include "foundation/output_buffer.h"

#include <cstring>

#include "foundation/descriptor.h"

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
  if (error_ == 0) error_ = writeAll(descriptor_, text);
}

}  // namespace quillon
