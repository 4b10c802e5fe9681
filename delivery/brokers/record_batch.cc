#include "delivery/brokers/record_batch.h"

#include <cstdint>

namespace quillon::delivery {
namespace {

constexpr std::size_t kSizeBytes = 4;

}  // namespace

void appendRecord(std::string& batch, std::string_view record) {
  if (batch.empty()) batch = kRecordBatchMagic;
  const auto size = static_cast<std::uint32_t>(record.size());
  for (unsigned shift = 0; shift < 32; shift += 8) batch += static_cast<char>((size >> shift) & 0xFF);
  batch += record;
}

RecordBatchReader::RecordBatchReader(std::string_view batch) : rest_(batch) {
  isWhole_ = rest_.starts_with(kRecordBatchMagic);
  rest_.remove_prefix(isWhole_ ? kRecordBatchMagic.size() : rest_.size());
}

bool RecordBatchReader::next(std::string_view& record) {
  if (rest_.empty()) return false;
  std::uint32_t size = 0;
  for (std::size_t i = 0; i < kSizeBytes && i < rest_.size(); ++i) {
    size |= std::uint32_t{static_cast<unsigned char>(rest_[i])} << (8 * i);
  }
  if (rest_.size() < kSizeBytes || rest_.size() - kSizeBytes < size) {
    isWhole_ = false;
    rest_ = {};
    return false;
  }
  record = rest_.substr(kSizeBytes, size);
  rest_.remove_prefix(kSizeBytes + size);
  return true;
}

}  // namespace quillon::delivery
