#ifndef QUILLON_DELIVERY_PROTOCOL_FRAMES_H_
#define QUILLON_DELIVERY_PROTOCOL_FRAMES_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "delivery/cache/format.h"

/// The frames that a client and an event server exchange, as values; doc/event-protocol.md has the bytes and what they
/// mean. No sockets here, and no state but a reader's own: everything is for one thread at a time.
namespace quillon::delivery {

enum class FrameKind : std::uint8_t { kHello = 1, kWelcome = 2, kRefusal = 3, kBatch = 4, kTaken = 5, kAlive = 6 };

constexpr std::uint16_t kProtocolVersion = 1;
constexpr std::size_t kFrameHeaderBytes = 12;
constexpr std::size_t kMostHelloBytes = 4096;
constexpr std::size_t kMostTokenBytes = 1024;
/// Bytes of a batch besides those of its records, and of a record besides its own.
constexpr std::size_t kBatchBytes = 20;
constexpr std::size_t kBatchRecordBytes = 12;
/// The largest body of a batch that a server may take: what a cache may take at once, and something for itself.
constexpr std::size_t kMostBatchBodyBytes = kMaxBatchBytes / 2;

struct Hello {
  std::uint16_t version = kProtocolVersion;
  std::chrono::milliseconds patience{};
  std::string_view client, token;
};

struct Welcome {
  std::uint16_t version = kProtocolVersion;
  std::chrono::milliseconds patience{};
  std::uint64_t next = 0;       ///< The server has all events below.
  std::uint32_t mostBatch = 0;  ///< Bytes of the body of a batch that it takes.
};

enum class RefusalCode : std::uint16_t {
  kNotUnderstood = 1,
  kVersion = 2,
  kNotAllowed = 3,
  kBusy = 4,
  kEnding = 5,
};

struct Refusal {
  RefusalCode code = RefusalCode::kNotUnderstood;
  std::string_view reason;
};

/// Records by their numbers, in order, and the number below which there are no others.
struct NumberedRecords {
  std::uint64_t end = 0;
  std::vector<Event> events;
};

/// Whether a client may call itself that.
bool isClientId(std::string_view text);

// Append a frame. Texts that are too long for their frame are cut; a hello must not need that.
void encode(const Hello& hello, std::string& bytes);
void encode(const Welcome& welcome, std::string& bytes);
void encode(const Refusal& refusal, std::string& bytes);
void encodeTaken(std::uint64_t next, std::string& bytes);
void encodeAlive(std::string& bytes);
/// Of one event at least, by their numbers, in order, and each less than 2^32 above the first; `end` is above all.
void encodeBatch(std::span<const Event> events, std::uint64_t end, std::string& bytes);

// From the body of a frame of the kind; views are valid as long as it is. False when the bytes are no such thing.
[[nodiscard]] bool decode(std::string_view body, Hello& hello);
[[nodiscard]] bool decode(std::string_view body, Welcome& welcome);
[[nodiscard]] bool decode(std::string_view body, Refusal& refusal);
[[nodiscard]] bool decodeTaken(std::string_view body, std::uint64_t& next);
/// `records` keeps its room from one to the next.
[[nodiscard]] bool decode(std::string_view body, NumberedRecords& records);

struct Frame {
  FrameKind kind{};
  std::string_view body;
};

/// Takes what comes apart into frames.
class FrameReader {
 public:
  /// Bodies of batches have at most `mostBatch` bytes; with 0 there are none.
  explicit FrameReader(std::size_t mostBatch = 0) : mostBatch_(mostBatch) {}

  void setMostBatch(std::size_t bytes) { mostBatch_ = bytes; }

  /// Where what comes next is to be put: never empty, and more when there is much. What next() gave is gone.
  std::span<char> room();
  /// So many bytes were put there.
  void put(std::size_t bytes) { end_ += bytes; }

  enum class Result {
    kFrame,
    kMore,  ///< More has to come first.
    kBad,   ///< error() says why; nothing that comes later can be understood.
  };
  /// The next frame, whose body is valid until room() is called.
  [[nodiscard]] Result next(Frame& frame);
  const std::string& error() const { return error_; }

  /// A frame has begun and is not whole.
  bool isWithin() const { return begin_ != end_; }

 private:
  std::size_t mostOf(FrameKind kind) const;

  std::size_t mostBatch_;
  std::vector<char> room_;
  std::size_t begin_ = 0, end_ = 0;  ///< Of what has come and was not given out.
  std::string error_;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_PROTOCOL_FRAMES_H_
