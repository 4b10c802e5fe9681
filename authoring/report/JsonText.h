#ifndef QUILLON_AUTHORING_REPORT_JSONTEXT_H_
#define QUILLON_AUTHORING_REPORT_JSONTEXT_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/json_text.h"

namespace quillon {

/// A JSON text (RFC 8259) while it is written: sets the commas, and escapes. What is opened must be closed. One thread
/// at a time.
class JsonText {
 public:
  JsonText& open(char bracket) {
    element();
    text_ += bracket;
    return *this;
  }
  JsonText& close(char bracket) {
    text_ += bracket;
    return *this;
  }
  JsonText& key(std::string_view name) {
    string(name);
    text_ += ':';
    return *this;
  }
  JsonText& string(std::string_view text) {
    element();
    text_ += '"';
    appendJson(text_, text);
    text_ += '"';
    return *this;
  }
  JsonText& number(std::uint64_t n) { return raw(std::to_string(n)); }
  JsonText& null() { return raw("null"); }

  std::string take() { return std::move(text_); }

 private:
  JsonText& raw(std::string_view text) {
    element();
    text_ += text;
    return *this;
  }

  /// Something is written next: behind another element it needs a comma.
  void element() {
    if (!text_.empty() && text_.back() != '{' && text_.back() != '[' && text_.back() != ':') text_ += ',';
  }

  std::string text_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_REPORT_JSONTEXT_H_
