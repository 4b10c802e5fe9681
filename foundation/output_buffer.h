#ifndef QUILLON_FOUNDATION_OUTPUT_BUFFER_H_
#define QUILLON_FOUNDATION_OUTPUT_BUFFER_H_

#include <cstddef>
#include <memory>
#include <string_view>

namespace quillon {

/// Output to a descriptor, in pieces as large as they can be. The first write that fails ends it: what comes later is
/// dropped. What flush() has not written is lost with this object.
class OutputBuffer {
 public:
  explicit OutputBuffer(int descriptor);

  void put(char c) {
    if (used_ == kRoom) flush();
    buffer_[used_++] = c;
  }
  void put(std::string_view text);
  void flush();

  /// The errno of the write that failed; 0 when none has.
  int error() const { return error_; }

 private:
  static constexpr std::size_t kRoom = 65536;

  void write(std::string_view text);

  const int descriptor_;
  std::unique_ptr<char[]> buffer_;
  std::size_t used_ = 0;
  int error_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_OUTPUT_BUFFER_H_
