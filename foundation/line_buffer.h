#ifndef QUILLON_FOUNDATION_LINE_BUFFER_H_
#define QUILLON_FOUNDATION_LINE_BUFFER_H_

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

namespace quillon {

/// Text that grows at its end, for a writer that knows how much room it needs at most and then writes as it likes. The
/// room is kept when the text goes. One thread at a time.
class LineBuffer {
 public:
  std::string_view text() const { return {bytes_.get(), size_}; }
  void clear() { size_ = 0; }

  /// Room for `bytes` more behind the text; valid until the next call. Throws std::bad_alloc.
  char* room(std::size_t bytes) {
    if (room_ - size_ < bytes) grow(bytes);
    return bytes_.get() + size_;
  }
  /// The text ends at `end` from now on, which lies in what room() gave.
  void endAt(const char* end) { size_ = static_cast<std::size_t>(end - bytes_.get()); }

  void append(std::string_view text) {
    char* const end = room(text.size());
    if (!text.empty()) std::memcpy(end, text.data(), text.size());
    endAt(end + text.size());
  }

 private:
  void grow(std::size_t bytes) {
    const std::size_t room = std::max(2 * room_, size_ + bytes);
    auto larger = std::make_unique_for_overwrite<char[]>(room);
    if (size_ > 0) std::memcpy(larger.get(), bytes_.get(), size_);
    bytes_ = std::move(larger);
    room_ = room;
  }

  std::unique_ptr<char[]> bytes_;
  std::size_t room_ = 0;
  std::size_t size_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_LINE_BUFFER_H_
