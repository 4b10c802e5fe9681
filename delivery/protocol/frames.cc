#include "delivery/protocol/frames.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "delivery/cache/crc32c.h"

namespace quillon::delivery {
namespace {

constexpr std::size_t kMostClientIdBytes = 200;
constexpr std::size_t kMostReasonBytes = 1000;
constexpr std::size_t kRoom = 64 << 10;         ///< Of a reader that has no large frame.
constexpr std::size_t kMostKeptRoom = 1 << 20;  ///< Kept when nothing is in it.
constexpr std::size_t kCrcAt = 8;

template <class Number>
void put(std::string& bytes, Number number) {
  for (std::size_t shift = 0; shift < 8 * sizeof number; shift += 8) {
    bytes += static_cast<char>(static_cast<std::uint64_t>(number) >> shift & 0xff);
  }
}

void putText(std::string& bytes, std::string_view text) {
  put(bytes, static_cast<std::uint32_t>(text.size()));
  bytes += text;
}

/// Takes from the front of a body; what is not there any more fails it and is 0 or empty.
class Taker {
 public:
  explicit Taker(std::string_view bytes) : bytes_(bytes) {}

  template <class Number>
  Number number() {
    Number number = 0;
    const std::string_view taken = take(sizeof number);
    for (std::size_t i = 0; i < taken.size(); ++i) {
      const std::uint64_t byte = static_cast<unsigned char>(taken[i]);
      number = static_cast<Number>(number | byte << 8 * i);
    }
    return number;
  }
  std::string_view text() { return take(number<std::uint32_t>()); }

  bool isGood() const { return isGood_; }
  /// And nothing follows.
  bool isDone() const { return isGood_ && bytes_.empty(); }

 private:
  std::string_view take(std::size_t size) {
    isGood_ = isGood_ && size <= bytes_.size();
    if (!isGood_) return {};
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
  }

  std::string_view bytes_;
  bool isGood_ = true;
};

/// Puts a header before what its life adds to the bytes, the body.
class FrameWriter {
 public:
  FrameWriter(FrameKind kind, std::string& bytes) : bytes_(bytes), begin_(bytes.size()) {
    bytes += 'Q';
    bytes += static_cast<char>(kind);
    bytes.append(kFrameHeaderBytes - 2, '\0');
  }
  FrameWriter(const FrameWriter&) = delete;
  FrameWriter& operator=(const FrameWriter&) = delete;
  ~FrameWriter() {
    const std::size_t body = begin_ + kFrameHeaderBytes;
    set(4, static_cast<std::uint32_t>(bytes_.size() - body));
    const std::string_view all = bytes_;
    set(kCrcAt, crc32c(all.substr(body), crc32c(all.substr(begin_, kCrcAt))));
  }

 private:
  void set(std::size_t at, std::uint32_t number) {
    for (std::size_t i = 0; i < 4; ++i) bytes_[begin_ + at + i] = static_cast<char>(number >> 8 * i & 0xff);
  }

  std::string& bytes_;
  const std::size_t begin_;
};

std::chrono::milliseconds takePatience(Taker& taker) {
  return std::chrono::milliseconds(taker.number<std::uint32_t>());
}

std::uint32_t inMilliseconds(std::chrono::milliseconds time) {
  return static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(time.count(), 0, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

bool isClientId(std::string_view text) {
  return !text.empty() && text.size() <= kMostClientIdBytes &&
         std::ranges::all_of(text, [](char c) { return c > ' ' && c < 0x7f; });
}

void encode(const Hello& hello, std::string& bytes) {
  const FrameWriter frame(FrameKind::kHello, bytes);
  put(bytes, hello.version);
  put(bytes, inMilliseconds(hello.patience));
  putText(bytes, hello.client.substr(0, kMostClientIdBytes));
  putText(bytes, hello.token.substr(0, kMostTokenBytes));
}

void encode(const Welcome& welcome, std::string& bytes) {
  const FrameWriter frame(FrameKind::kWelcome, bytes);
  put(bytes, welcome.version);
  put(bytes, inMilliseconds(welcome.patience));
  put(bytes, welcome.next);
  put(bytes, welcome.mostBatch);
}

void encode(const Refusal& refusal, std::string& bytes) {
  const FrameWriter frame(FrameKind::kRefusal, bytes);
  put(bytes, static_cast<std::uint16_t>(refusal.code));
  putText(bytes, refusal.reason.substr(0, kMostReasonBytes));
}

void encodeTaken(std::uint64_t next, std::string& bytes) {
  const FrameWriter frame(FrameKind::kTaken, bytes);
  put(bytes, next);
}

void encodeAlive(std::string& bytes) { const FrameWriter frame(FrameKind::kAlive, bytes); }

void encodeBatch(std::span<const Event> events, std::uint64_t end, std::string& bytes) {
  const FrameWriter frame(FrameKind::kBatch, bytes);
  const std::uint64_t first = events.front().number;
  put(bytes, first);
  put(bytes, end);
  put(bytes, static_cast<std::uint32_t>(events.size()));
  for (const Event& event : events) {
    put(bytes, static_cast<std::uint32_t>(event.number - first));
    put(bytes, event.kind);
    putText(bytes, event.bytes);
  }
}

bool decode(std::string_view body, Hello& hello) {
  Taker taker(body);
  hello.version = taker.number<std::uint16_t>();
  if (taker.isGood() && hello.version != kProtocolVersion) return true;  // who knows what follows
  hello.patience = takePatience(taker);
  hello.client = taker.text();
  hello.token = taker.text();
  return taker.isDone();
}

bool decode(std::string_view body, Welcome& welcome) {
  Taker taker(body);
  welcome.version = taker.number<std::uint16_t>();
  welcome.patience = takePatience(taker);
  welcome.next = taker.number<std::uint64_t>();
  welcome.mostBatch = taker.number<std::uint32_t>();
  return taker.isDone();
}

bool decode(std::string_view body, Refusal& refusal) {
  Taker taker(body);
  refusal.code = static_cast<RefusalCode>(taker.number<std::uint16_t>());
  refusal.reason = taker.text();
  return taker.isDone();
}

bool decodeTaken(std::string_view body, std::uint64_t& next) {
  Taker taker(body);
  next = taker.number<std::uint64_t>();
  return taker.isDone();
}

bool decode(std::string_view body, NumberedRecords& records) {
  Taker taker(body);
  const std::uint64_t first = taker.number<std::uint64_t>();
  records.end = taker.number<std::uint64_t>();
  const std::uint32_t count = taker.number<std::uint32_t>();
  records.events.clear();
  std::uint64_t next = first;
  for (std::uint32_t i = 0; i < count && taker.isGood(); ++i) {
    const std::uint64_t number = first + taker.number<std::uint32_t>();
    if (number < next || number >= records.end) return false;
    next = number + 1;
    const std::uint32_t kind = taker.number<std::uint32_t>();
    records.events.push_back({number, kind, taker.text()});
  }
  return taker.isDone();
}

std::span<char> FrameReader::room() {
  if (begin_ == end_) {
    begin_ = end_ = 0;
    if (room_.size() > kMostKeptRoom) room_ = {};
  }
  if (begin_ > 0) {
    std::memmove(room_.data(), room_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  if (room_.size() - end_ < kRoom / 4) room_.resize(std::max(kRoom, 2 * room_.size()));
  return std::span(room_).subspan(end_);
}

std::size_t FrameReader::mostOf(FrameKind kind) const {
  switch (kind) {
    case FrameKind::kHello:
      return kMostHelloBytes;
    case FrameKind::kWelcome:
      return 64;
    case FrameKind::kRefusal:
      return 4096;
    case FrameKind::kBatch:
      return mostBatch_;
    case FrameKind::kTaken:
      return 8;
    case FrameKind::kAlive:
      break;
  }
  return 0;
}

FrameReader::Result FrameReader::next(Frame& frame) {
  const auto bad = [this](std::string why) {
    error_ = std::move(why);
    return Result::kBad;
  };
  const std::string_view there(room_.data() + begin_, end_ - begin_);
  if (!there.empty() && there[0] != 'Q') return bad("what came is no frame");
  if (there.size() < kFrameHeaderBytes) return Result::kMore;
  Taker header(there.substr(2, kFrameHeaderBytes - 2));
  const auto kind = static_cast<std::uint8_t>(there[1]);
  const bool isKnown = kind >= 1 && kind <= 6 && header.number<std::uint16_t>() == 0;
  if (!isKnown) return bad("a frame of no known kind came");
  const std::uint32_t size = header.number<std::uint32_t>();
  frame.kind = static_cast<FrameKind>(kind);
  if (size > mostOf(frame.kind)) {
    return bad("a frame of kind " + std::to_string(kind) + " came with " + std::to_string(size) + " bytes; at most " +
               std::to_string(mostOf(frame.kind)) + " are taken");
  }
  if (there.size() - kFrameHeaderBytes < size) return Result::kMore;
  frame.body = there.substr(kFrameHeaderBytes, size);
  if (header.number<std::uint32_t>() != crc32c(frame.body, crc32c(there.substr(0, kCrcAt)))) {
    return bad("a frame was damaged on its way");
  }
  begin_ += kFrameHeaderBytes + size;
  return Result::kFrame;
}

}  // namespace quillon::delivery
