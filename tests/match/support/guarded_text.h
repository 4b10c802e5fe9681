#ifndef QUILLON_TESTS_MATCH_SUPPORT_GUARDED_TEXT_H_
#define QUILLON_TESTS_MATCH_SUPPORT_GUARDED_TEXT_H_

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace quillon {

/// Messages as they lie in a reader's buffer: either another text follows at once, which must have no influence, or the
/// end is the end of the readable memory, so that whoever reads on is caught.
class GuardedText {
 public:
  GuardedText() : memory_(static_cast<char*>(mmap(nullptr, 2 * kRoom, PROT_READ | PROT_WRITE, kFlags, -1, 0))) {
    if (memory_ == MAP_FAILED || mprotect(memory_ + kRoom, kRoom, PROT_NONE) != 0) std::abort();
  }
  GuardedText(const GuardedText&) = delete;
  GuardedText& operator=(const GuardedText&) = delete;
  ~GuardedText() { munmap(memory_, 2 * kRoom); }

  /// `text` in its place, valid until the next call. One that is too long is followed by a NUL.
  std::string_view put(std::string_view text) {
    static constexpr std::string_view kNext = "ab \nab: x]\xC3 aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa b";
    const std::size_t behind = (number_++ % 2) * kNext.size();
    if (text.size() + behind > kRoom) return long_ = text;
    char* const place = memory_ + kRoom - behind - text.size();
    std::memcpy(place, text.data(), text.size());
    std::memcpy(place + text.size(), kNext.data() + kNext.size() - behind, behind);
    return {place, text.size()};
  }

 private:
  static constexpr std::size_t kRoom = 16 << 10;  // whole pages, of any size in use
  static constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS;

  char* const memory_;
  std::size_t number_ = 0;
  std::string long_;
};

}  // namespace quillon

#endif  // QUILLON_TESTS_MATCH_SUPPORT_GUARDED_TEXT_H_
