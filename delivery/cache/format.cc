#include "delivery/cache/format.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "delivery/cache/crc32c.h"

namespace quillon::delivery {
namespace {

constexpr std::uint32_t kFrontMagic = 0x74614251;  // "QBat"
constexpr std::uint32_t kBackMagic = 0x646E4551;   // "QEnd"
constexpr std::size_t kHeaderBytes = 48;
constexpr std::size_t kEntryBytes = 12;
constexpr std::size_t kReadAhead = 256 << 10;
constexpr std::string_view kSuffix = ".segment";

template <typename Number>
void put(std::string& text, Number number) {
  char bytes[sizeof number];
  for (char& byte : bytes) {
    byte = static_cast<char>(number & 0xFF);
    number = static_cast<Number>(number >> 8);
  }
  text.append(bytes, sizeof bytes);
}

template <typename Number>
Number get(std::string_view text, std::size_t at) {
  Number number = 0;
  for (std::size_t i = sizeof number; i-- > 0;)
    number = static_cast<Number>(number << 8 | static_cast<unsigned char>(text[at + i]));
  return number;
}

void putHeader(std::string& text, const BatchHeader& header, std::uint32_t magic) {
  std::string rest;
  put(rest, header.first);
  put(rest, header.previous);
  put(rest, header.synced);
  put(rest, header.events);
  put(rest, header.dataBytes);
  put(rest, header.tableCrc);
  put(rest, std::uint32_t{header.hasAllPositions});
  put(text, magic);
  put(text, crc32c(rest));
  text += rest;
}

/// The header that `text` begins with; false when there is none of this magic.
bool getHeader(std::string_view text, std::uint32_t magic, BatchHeader& header) {
  if (text.size() < kHeaderBytes || get<std::uint32_t>(text, 0) != magic ||
      get<std::uint32_t>(text, 4) != crc32c(text.substr(8, kHeaderBytes - 8))) {
    return false;
  }
  header.first = get<std::uint64_t>(text, 8);
  header.previous = get<std::uint64_t>(text, 16);
  header.synced = get<std::uint64_t>(text, 24);
  header.events = get<std::uint32_t>(text, 32);
  header.dataBytes = get<std::uint32_t>(text, 36);
  header.tableCrc = get<std::uint32_t>(text, 40);
  header.hasAllPositions = get<std::uint32_t>(text, 44) != 0;
  return header.previous <= header.first && header.first < UINT64_MAX - header.events &&
         header.bytes() <= kMaxBatchBytes;
}

std::uint64_t tableBytes(const BatchHeader& header) { return (std::uint64_t{header.events} + 1) * kEntryBytes; }

}  // namespace

std::uint64_t BatchHeader::bytes() const { return 2 * (kHeaderBytes + tableBytes(*this)) + dataBytes; }

void Batch::add(std::string_view event, std::uint32_t kind) {
  data_ += event;
  table_.push_back({static_cast<std::uint32_t>(event.size()), kind});
}

void Batch::add(const Batch& other) {
  data_ += other.data_;
  table_.insert(table_.end(), other.table_.begin(), other.table_.end());
  for (const auto& [name, value] : other.positions_) setPosition(name, value);
}

void Batch::setPosition(std::string_view name, std::string_view value) {
  const auto found = positions_.find(name);
  if (found != positions_.end()) {
    found->second = value;
  } else {
    positions_.emplace(name, value);
  }
}

void Batch::clear() {
  data_.clear();
  table_.clear();
  positions_.clear();
}

std::uint64_t Batch::bytes() const { return 2 * (kHeaderBytes + (table_.size() + 1) * kEntryBytes) + data_.size(); }

std::string encode(const Positions& positions) {
  std::string text;
  for (const auto& [name, value] : positions) {
    put(text, static_cast<std::uint32_t>(name.size()));
    put(text, static_cast<std::uint32_t>(value.size()));
    text += name;
    text += value;
  }
  return text;
}

bool decode(std::string_view text, Positions& positions) {
  while (text.size() >= 8) {
    const std::uint64_t name = get<std::uint32_t>(text, 0);
    const std::uint64_t value = get<std::uint32_t>(text, 4);
    if (name + value > text.size() - 8) return false;
    positions[std::string(text.substr(8, name))] = text.substr(8 + name, value);
    text.remove_prefix(8 + name + value);
  }
  return text.empty();
}

void applyChanges(const Positions& changes, Positions& positions) {
  for (const auto& [name, value] : changes) {
    if (value.empty()) {
      positions.erase(name);
    } else {
      positions[name] = value;
    }
  }
}

std::span<const std::string_view> BatchWriter::write(const Batch& batch, const Positions& positions,
                                                     BatchHeader& header) {
  positions_ = encode(positions);
  header.events = static_cast<std::uint32_t>(batch.table_.size());
  header.dataBytes = static_cast<std::uint32_t>(batch.data_.size() + positions_.size());
  tail_.clear();  // the table first, as the tail begins with it
  std::string_view data = batch.data_;
  for (const Batch::Entry& entry : batch.table_) {
    put(tail_, entry.bytes);
    put(tail_, entry.kind);
    put(tail_, crc32c(data.substr(0, entry.bytes)));
    data.remove_prefix(entry.bytes);
  }
  put(tail_, static_cast<std::uint32_t>(positions_.size()));
  put(tail_, std::uint32_t{0});
  put(tail_, crc32c(positions_));
  header.tableCrc = crc32c(tail_);
  head_.clear();
  putHeader(head_, header, kFrontMagic);
  head_ += tail_;
  putHeader(tail_, header, kBackMagic);
  pieces_[0] = head_;
  pieces_[1] = batch.data_;
  pieces_[2] = positions_;
  pieces_[3] = tail_;
  return pieces_;
}

/// Up to `size` bytes of the file from `offset` on, fewer at the limit or the end.
std::string_view SegmentScanner::view(std::uint64_t offset, std::uint64_t size) {
  size = offset < limit_ ? std::min(size, limit_ - offset) : 0;
  if (size > 0 && (offset < roomAt_ || offset + size > roomAt_ + inRoom_)) {
    load(offset, static_cast<std::size_t>(std::min(std::max<std::uint64_t>(size, kReadAhead), limit_ - offset)));
  }
  if (offset < roomAt_ || offset >= roomAt_ + inRoom_) return {};
  return std::string_view(room_.get(), inRoom_).substr(static_cast<std::size_t>(offset - roomAt_), size);
}

/// Reads `size` bytes from `offset` on, but for those that are there.
void SegmentScanner::load(std::uint64_t offset, std::size_t size) {
  const bool isBehind = offset >= roomAt_ && offset < roomAt_ + inRoom_;
  const std::size_t begun = isBehind ? static_cast<std::size_t>(offset - roomAt_) : inRoom_;
  const std::size_t kept = inRoom_ - begun;
  if (size > roomBytes_) {
    roomBytes_ = std::max(size, 2 * roomBytes_);
    std::unique_ptr<char[]> larger(new char[roomBytes_]);  // not filled, as make_unique() would
    if (kept > 0) std::memcpy(larger.get(), room_.get() + begun, kept);
    room_ = std::move(larger);
  } else if (kept > 0) {
    std::memmove(room_.get(), room_.get() + begun, kept);
  }
  roomAt_ = offset;
  inRoom_ = kept;
  error_ = readSome(files_, file_, offset + kept, {room_.get() + kept, size - kept}, inRoom_);
  if (error_ != 0) inRoom_ = 0;
}

bool SegmentScanner::next(Found& found, std::uint64_t from) {
  error_ = 0;
  found.events.clear();
  found.positions = {};
  found.isSkipped = found.isWhole = found.isClean = found.hasPositions = false;
  return find(found) && readBatch(found, from);
}

/// Looks for the header of the next batch, or for its trailer, which tells the same.
bool SegmentScanner::find(Found& found) {
  for (std::uint64_t at = offset_;;) {
    const std::string_view text = view(at, at == offset_ ? kHeaderBytes : kReadAhead);
    if (error_ != 0 || text.size() < kHeaderBytes) return false;
    for (std::size_t i = 0; i + kHeaderBytes <= text.size(); ++i) {
      const std::string_view rest = text.substr(i);
      BatchHeader header;
      found.offset = at + i;
      if (!getHeader(rest, kFrontMagic, header)) {
        if (!getHeader(rest, kBackMagic, header)) continue;
        const std::uint64_t size = header.bytes();
        if (found.offset + kHeaderBytes < offset_ + size) continue;  // it begins before what is left
        found.offset -= size - kHeaderBytes;
      }
      if (header.first < atLeast_ || header.end() > below_) continue;  // part of an event that holds such things
      found.header = header;
      found.skipped = found.offset - offset_;
      return true;
    }
    at += text.size() - kHeaderBytes + 1;
  }
}

/// The table whose CRC is right, from before or behind the data.
bool SegmentScanner::readTable(const Found& found, std::string_view bytes, std::string& table, bool& isClean) const {
  const BatchHeader& header = found.header;
  const std::size_t size = tableBytes(header);
  const std::size_t back = kHeaderBytes + size + header.dataBytes;
  const std::string_view before = bytes.substr(std::min(kHeaderBytes, bytes.size()), size);
  const std::string_view behind = bytes.substr(std::min(back, bytes.size()), size);
  BatchHeader again;
  isClean = before == behind && getHeader(bytes, kFrontMagic, again) &&
            getHeader(bytes.substr(std::min(back + size, bytes.size())), kBackMagic, again);
  for (const std::string_view candidate : {before, behind}) {
    if (candidate.size() != size || crc32c(candidate) != header.tableCrc) continue;
    table = candidate;
    return true;
  }
  return false;
}

bool SegmentScanner::readBatch(Found& found, std::uint64_t from) {
  const BatchHeader& header = found.header;
  const std::uint64_t size = header.bytes();
  if (header.end() <= from) {
    found.isSkipped = true;
    offset_ = found.offset + size;
    atLeast_ = header.end();
    return true;
  }
  const std::string_view bytes = view(found.offset, size);
  if (error_ != 0) return false;
  offset_ = found.offset + bytes.size();
  atLeast_ = header.end();
  std::string table;
  if (!readTable(found, bytes, table, found.isClean)) return true;
  std::uint64_t at = kHeaderBytes + tableBytes(header);
  const std::uint64_t end = at + header.dataBytes;
  found.events.reserve(header.events);
  for (std::uint32_t i = 0; i <= header.events; ++i) {
    const std::string_view entry = std::string_view(table).substr(std::size_t{i} * kEntryBytes, kEntryBytes);
    const std::uint64_t length = get<std::uint32_t>(entry, 0);
    if (at + length > end) break;
    const std::string_view event = at + length <= bytes.size() ? bytes.substr(at, length) : std::string_view();
    at += length;
    if (event.size() != length || crc32c(event) != get<std::uint32_t>(entry, 8)) continue;
    if (i < header.events) {
      found.events.push_back({header.first + i, get<std::uint32_t>(entry, 4), event});
    } else {
      found.hasPositions = true;
      found.positions = event;
    }
  }
  found.isWhole = found.hasPositions && found.events.size() == header.events && at == end;
  found.isClean = found.isClean && found.isWhole && found.skipped == 0;
  return true;
}

std::string segmentName(std::uint64_t first) {
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016" PRIx64, first);
  return std::string(digits).append(kSuffix);
}

bool isSegmentName(std::string_view name, std::uint64_t& first) {
  if (name.size() != 16 + kSuffix.size() || !name.ends_with(kSuffix)) return false;
  return std::from_chars(name.data(), name.data() + 16, first, 16).ptr == name.data() + 16 &&
         segmentName(first) == name;
}

}  // namespace quillon::delivery
