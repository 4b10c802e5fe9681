#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_VALUE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_VALUE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace quillon {

/// Where values are put together that are not one piece of the message, because white space of more than one blank
/// became one in them. A stack: what is above a mark can be dropped.
using Scratch = std::string;

/// A captured value while it grows piece by piece: a view of the message as long as the pieces lie side by side there,
/// else a stretch of the scratch area. "Jul  1" is built from "Jul", " " and "1" and needs the scratch; "Jul 11" does
/// not.
class Value {
 public:
  void clear() { *this = Value(); }
  bool empty() const { return size_ == 0; }

  /// `piece` is a part of the message.
  void append(std::string_view piece, Scratch& scratch) {
    if (piece.empty()) return;
    if (size_ == 0 && !copied_) {
      begin_ = piece.data();
    } else if (copied_ || begin_ + size_ != piece.data()) {
      copy(scratch);
      scratch.append(piece);
    }
    size_ += piece.size();
  }

  /// Appends one blank, for the white space `run` of the message.
  void appendBlank(std::string_view run, Scratch& scratch) {
    if (run == " ") return append(run, scratch);
    copy(scratch);
    scratch += ' ';
    ++size_;
  }

  /// Appends a value that was built after this one.
  void append(const Value& rest, Scratch& scratch) {
    if (rest.copied_) copy(scratch);  // which may move the area, so it comes first
    append(rest.view(scratch), scratch);
  }

  std::string_view view(const Scratch& scratch) const {
    return copied_ ? std::string_view(scratch).substr(at_, size_) : std::string_view(begin_, size_);
  }

 private:
  void copy(Scratch& scratch) {
    if (copied_) return;
    at_ = scratch.size();
    scratch.append(begin_, size_);
    copied_ = true;
  }

  const char* begin_ = "";
  std::size_t at_ = 0;  ///< In the scratch area, once copied.
  std::size_t size_ = 0;
  bool copied_ = false;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_VALUE_H_
