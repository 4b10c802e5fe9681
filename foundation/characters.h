#ifndef QUILLON_FOUNDATION_CHARACTERS_H_
#define QUILLON_FOUNDATION_CHARACTERS_H_

#include <charconv>
#include <cstddef>
#include <string_view>

/// For any thread.
namespace quillon {

/// Blank, tab, newline, vertical tab, form feed and carriage return, whatever the locale. A byte of 0x80 or above is
/// never white space, so that no multibyte character is split.
constexpr bool isWhiteSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// The decimal number at the start of `text`, as far as its digits go; what does not fit is the largest int.
constexpr int leadingNumber(const char* text) {
  constexpr int kLargest = 2147483647;
  int number = 0;
  for (; isDigit(*text); ++text) {
    const int digit = *text - '0';
    number = number > (kLargest - digit) / 10 ? kLargest : number * 10 + digit;
  }
  return number;
}

/// The decimal text of a number, for as long as this object lives.
class Decimal {
 public:
  explicit Decimal(int n) : end_(std::to_chars(text_, text_ + sizeof text_, n).ptr) {}
  Decimal(const Decimal&) = delete;
  Decimal& operator=(const Decimal&) = delete;
  std::string_view view() const { return {text_, static_cast<std::size_t>(end_ - text_)}; }

 private:
  char text_[12];
  const char* end_;
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_CHARACTERS_H_
