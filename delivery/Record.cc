#include "delivery/Record.h"

#include <algorithm>
#include <cstddef>

namespace quillon::delivery {
namespace {

constexpr char kVersion = 1;

void putNumber(std::string& bytes, std::uint32_t number) {
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xff);
}

void putText(std::string& bytes, std::string_view text) {
  putNumber(bytes, static_cast<std::uint32_t>(text.size()));
  bytes += text;
}

/// Takes from the front of bytes; what is not there any more fails it and is empty.
class Taker {
 public:
  explicit Taker(std::string_view bytes) : bytes_(bytes) {}

  std::string_view bytes(std::size_t size) {
    isGood_ = isGood_ && size <= bytes_.size();
    if (!isGood_) return {};
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
  }
  std::uint32_t number() {
    std::uint32_t number = 0;
    int shift = 0;
    for (const char c : bytes(4)) {
      number |= std::uint32_t{static_cast<unsigned char>(c)} << shift;
      shift += 8;
    }
    return number;
  }
  std::string_view text() { return bytes(number()); }

  bool isGood() const { return isGood_; }
  std::size_t left() const { return bytes_.size(); }

 private:
  std::string_view bytes_;
  bool isGood_ = true;
};

}  // namespace

void encode(const Record& record, std::string& bytes) {
  bytes += kVersion;
  bytes += static_cast<char>(record.form);
  bytes.append(record.set.begin(), record.set.end());
  putNumber(bytes, record.eventId);
  putText(bytes, record.source);
  putText(bytes, record.position);
  putText(bytes, record.className);
  putNumber(bytes, static_cast<std::uint32_t>(record.values.size()));
  for (const NamedValue& value : record.values) {
    putText(bytes, value.name);
    putText(bytes, value.value);
  }
  putText(bytes, record.text);
}

bool decode(std::string_view bytes, Record& record) {
  Taker taker(bytes);
  if (taker.bytes(1) != std::string_view(&kVersion, 1)) return false;
  const std::string_view form = taker.bytes(1);
  if (form.empty() || form[0] < 1 || form[0] > 3) return false;
  record.form = static_cast<RecordForm>(form[0]);
  const std::string_view set = taker.bytes(record.set.size());
  std::ranges::copy(set, record.set.begin());
  record.eventId = taker.number();
  record.source = taker.text();
  record.position = taker.text();
  record.className = taker.text();
  const std::uint32_t count = taker.number();
  record.values.clear();
  for (std::uint32_t i = 0; i < count && taker.isGood(); ++i) {
    const std::string_view name = taker.text();
    record.values.push_back({name, taker.text()});
  }
  record.text = taker.text();
  return taker.isGood() && taker.left() == 0;
}

}  // namespace quillon::delivery
