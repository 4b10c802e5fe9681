#ifndef QUILLON_DELIVERY_BROKERS_MESSAGEBUILDER_H_
#define QUILLON_DELIVERY_BROKERS_MESSAGEBUILDER_H_

#include <cstdint>
#include <string>

#include "delivery/Record.h"
#include "delivery/cache/format.h"

namespace quillon::delivery {

/// Makes a message for a broker of several events: raw messages as a batch of records, all others as lines of JSON,
/// never both in one.
class MessageBuilder {
 public:
  MessageBuilder(std::uint64_t mostEvents, std::uint64_t mostBytes) : mostEvents_(mostEvents), mostBytes_(mostBytes) {}

  void setMostBytes(std::uint64_t bytes) { mostBytes_ = bytes; }

  /// False when the event does not fit behind the others; then it is for the next message. The first one always fits.
  [[nodiscard]] bool add(const Event& event);
  void clear();

  bool empty() const { return events_ == 0; }
  /// Nothing more should come: it has as many as it may, or ends at a multiple of that.
  bool isFull() const { return events_ >= mostEvents_ || (events_ > 0 && (last_ + 1) % mostEvents_ == 0); }
  std::uint64_t events() const { return events_; }
  bool isRaw() const { return isRaw_; }
  const std::string& bytes() const { return bytes_; }
  /// "FIRST-LAST", of the numbers.
  std::string range() const { return std::to_string(first_) + "-" + std::to_string(last_); }
  std::uint64_t first() const { return first_; }

 private:
  const std::uint64_t mostEvents_;
  std::uint64_t mostBytes_;
  std::uint64_t events_ = 0;
  std::uint64_t first_ = 0, last_ = 0;
  bool isRaw_ = false;
  std::string bytes_;
  Record record_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_BROKERS_MESSAGEBUILDER_H_
