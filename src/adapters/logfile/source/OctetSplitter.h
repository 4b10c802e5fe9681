#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_OCTETSPLITTER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_OCTETSPLITTER_H_

#include "src/adapters/logfile/source/Splitter.h"

namespace quillon {

/// Messages with their length in front, "11 hello\nworld": octet counting of RFC 6587, section 3.4.1. A length is
/// 1 to 10 digits, the first of which is not 0; anything else breaks the stream, since nobody can tell where the next
/// message begins.
class OctetSplitter : public Splitter {
 public:
  explicit OctetSplitter(std::size_t longest, std::size_t firstRoom = 16384) : Splitter(longest, firstRoom, 0) {}

  bool next(Frame& message) override;
  /// What came of a message that was not sent to its end. It is no longer than a message may be and so not marked as
  /// cut; endedShort() tells.
  bool finish(Frame& message) override;
  bool endedShort() const override { return endedShort_; }
  bool isBroken() const override { return broken_; }

 private:
  static constexpr std::size_t kMostDigits = 10;

  bool readLength();
  void take(Frame& message, std::size_t length);

  std::uint64_t length_ = 0;  ///< Of the message at hand; 0 while it is not known.
  std::size_t digits_ = 0;    ///< Bytes that its length and the blank took.
  bool broken_ = false;
  bool endedShort_ = false;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_OCTETSPLITTER_H_
