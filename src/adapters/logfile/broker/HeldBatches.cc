#include "src/adapters/logfile/broker/HeldBatches.h"

#include <utility>

#include "delivery/Record.h"
#include "delivery/brokers/record_batch.h"

namespace quillon {

bool HeldBatches::add(std::uint64_t id, std::string bytes, const std::string& sender, std::uint64_t number) {
  const std::size_t size = bytes.size();
  auto owned = std::make_unique<Batch>(Batch{id, std::move(bytes)});
  Batch& batch = *owned;
  batch.bytes.append(Message::kSlack, '\0');
  batches_[id] = std::move(owned);
  bytes_ += batch.bytes.size();
  const std::string_view whole = std::string_view(batch.bytes).substr(0, size);
  bool isWhole = true;
  if (whole.starts_with(delivery::kRecordBatchMagic)) {
    delivery::RecordBatchReader reader(whole);
    delivery::Record record;
    for (std::string_view one; reader.next(one);) {
      if (delivery::decode(one, record) && record.form == delivery::RecordForm::kRaw) {
        put(batch, record.source, std::string(record.position), record.text);
      } else {
        isWhole = false;
      }
    }
    isWhole = isWhole && reader.isWhole();
  } else {
    putLines(batch, whole, sender, number);
  }
  if (batch.left == 0) finish(batch);
  return isWhole;
}

void HeldBatches::putLines(Batch& batch, std::string_view text, const std::string& sender, std::uint64_t number) {
  for (std::size_t line = 1; !text.empty(); ++line) {
    const std::string_view one = text.substr(0, text.find('\n'));
    put(batch, sender, std::to_string(number) + ":" + std::to_string(line), one);
    text.remove_prefix(std::min(one.size() + 1, text.size()));
  }
}

void HeldBatches::put(Batch& batch, std::string_view source, std::string position, std::string_view text) {
  auto found = numbers_.find(source);
  if (found == numbers_.end()) {
    streams_.push_back({std::string(source), {}});
    found = numbers_.emplace(source, streams_.size()).first;
  }
  Stream& stream = streams_[found->second - 1];
  queue_.push_back({found->second, stream.first + stream.items.size()});
  stream.items.push_back({&batch, std::move(position), text});
  ++batch.left;
}

bool HeldBatches::next(Message& message) {
  if (queue_.empty()) return false;
  const Queued queued = queue_.front();
  queue_.pop_front();
  const Stream& stream = streams_[queued.stream - 1];
  message = Message();
  message.text = stream.items[queued.offset - stream.first].text;
  message.path = stream.source;
  message.stream = queued.stream;
  message.position = {queued.stream, queued.offset, 0};
  message.roomy = true;
  return true;
}

std::optional<Origin> HeldBatches::origin(const Position& position) const {
  if (position.file == 0 || position.file > streams_.size()) return std::nullopt;
  const Stream& stream = streams_[position.file - 1];
  if (position.offset < stream.first || position.offset - stream.first >= stream.items.size()) return std::nullopt;
  return Origin{stream.source, stream.items[position.offset - stream.first].position};
}

void HeldBatches::stored(const Position& position) {
  if (position.file == 0 || position.file > streams_.size()) return;
  Stream& stream = streams_[position.file - 1];
  for (; stream.first <= position.offset && !stream.items.empty(); ++stream.first) {
    Batch& batch = *stream.items.front().batch;
    stream.items.pop_front();
    if (--batch.left == 0) finish(batch);
  }
}

void HeldBatches::finish(const Batch& batch) {
  done_.push_back(batch.id);
  bytes_ -= batch.bytes.size();
  batches_.erase(batch.id);
}

std::vector<std::uint64_t> HeldBatches::takeDone() { return std::exchange(done_, {}); }

}  // namespace quillon
