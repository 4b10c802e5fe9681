#include "delivery/brokers/MessageBuilder.h"

#include "delivery/brokers/record_batch.h"
#include "delivery/record_json.h"

namespace quillon::delivery {

bool MessageBuilder::add(const Event& event) {
  const bool isRaw = event.kind == static_cast<std::uint32_t>(RecordForm::kRaw);
  if (!empty() && (isFull() || isRaw != isRaw_)) return false;
  const std::size_t before = bytes_.size();
  if (isRaw) {
    appendRecord(bytes_, event.bytes);
  } else if (decode(event.bytes, record_)) {
    appendJson(bytes_, record_);
    bytes_ += '\n';
  }
  if (!empty() && bytes_.size() > mostBytes_) {
    bytes_.resize(before);
    return false;
  }
  if (empty()) first_ = event.number;
  last_ = event.number;
  isRaw_ = isRaw;
  ++events_;
  return true;
}

void MessageBuilder::clear() {
  bytes_.clear();
  events_ = 0;
}

}  // namespace quillon::delivery
