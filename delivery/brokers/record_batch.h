#ifndef QUILLON_DELIVERY_BROKERS_RECORD_BATCH_H_
#define QUILLON_DELIVERY_BROKERS_RECORD_BATCH_H_

#include <string>
#include <string_view>

namespace quillon::delivery {

/// Records on their way through a broker, several in one of its messages, byte for byte as they are: "QRec", then of
/// each its size as u32, little-endian, and its bytes as Record.h has them.
constexpr std::string_view kRecordBatchMagic = "QRec";

/// Appends one to a batch; an empty text becomes a batch.
void appendRecord(std::string& batch, std::string_view record);

/// Takes a batch apart. A view: the bytes must outlive it.
class RecordBatchReader {
 public:
  explicit RecordBatchReader(std::string_view batch);

  /// The bytes of the next record. False at the end, or where the bytes are no batch any more: then isWhole() is false.
  [[nodiscard]] bool next(std::string_view& record);
  bool isWhole() const { return isWhole_; }

 private:
  std::string_view rest_;
  bool isWhole_ = true;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_BROKERS_RECORD_BATCH_H_
