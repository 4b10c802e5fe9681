#ifndef QUILLON_FOUNDATION_DESCRIPTOR_H_
#define QUILLON_FOUNDATION_DESCRIPTOR_H_

#include <span>
#include <string_view>
#include <utility>

namespace quillon {

/// Owns a file descriptor, or none. Closing is all that it does by itself; for one thread at a time, as any value.
class Descriptor {
 public:
  Descriptor() = default;
  /// Takes over `descriptor`; a negative one, such as open() returns when it fails, is none.
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() { static_cast<void>(close()); }

  /// -1 when there is none.
  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }

  /// Gives what is held to the caller, who closes it.
  [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

  /// Closes what is held, before the end of this object. True when there was nothing to close or it went well;
  /// otherwise errno has the reason, and the descriptor is gone all the same.
  [[nodiscard]] bool close();

 private:
  int descriptor_ = -1;
};

/// True when `descriptor` is open on the same regular file as `other` is, or as the path `other` leads to. A program
/// that wrote to the one while it reads the other would read what it has written, without end.
[[nodiscard]] bool areOneFile(int descriptor, int other);
[[nodiscard]] bool areOneFile(int descriptor, const char* other);

/// Writes all of `text`, however many writes that takes; waits where the descriptor does not block. 0, or the errno of
/// the write that failed.
[[nodiscard]] int writeAll(int descriptor, std::string_view text);
/// The same of all `parts`, one behind the other, with as few writes as the system takes: one for up to 1024 parts, so
/// that nobody else's text comes between them in a file that several append to.
[[nodiscard]] int writeAll(int descriptor, std::span<const std::string_view> parts);

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_DESCRIPTOR_H_
