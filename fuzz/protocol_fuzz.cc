// What comes on a connection, for both of its ends: the first byte says in what pieces, and whether every frame gets
// the CRC that it should have, so that what is in it is looked at. Whatever comes, room stays within what was allowed,
// and a frame that can be read, written again, is the same.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "delivery/cache/crc32c.h"
#include "delivery/protocol/frames.h"

namespace {

using namespace quillon::delivery;

constexpr std::size_t kMostBatch = 4096;

void require(bool holds) {
  if (!holds) std::abort();
}

void seal(std::string& bytes) {
  for (std::size_t at = 0; at + kFrameHeaderBytes <= bytes.size();) {
    std::size_t size = 0;
    for (std::size_t i = 0; i < 4; ++i) size |= std::size_t{static_cast<unsigned char>(bytes[at + 4 + i])} << 8 * i;
    const std::string_view all = bytes;
    const std::string_view body = all.substr(at + kFrameHeaderBytes).substr(0, size);
    const std::uint32_t crc = crc32c(body, crc32c(all.substr(at, 8)));
    for (std::size_t i = 0; i < 4; ++i) bytes[at + 8 + i] = static_cast<char>(crc >> 8 * i & 0xff);
    at += kFrameHeaderBytes + body.size();
  }
}

/// The frame written again; empty when its body is none.
std::string again(const Frame& frame) {
  std::string bytes;
  Hello hello;
  Welcome welcome;
  Refusal refusal;
  NumberedRecords records;
  std::uint64_t next = 0;
  switch (frame.kind) {
    case FrameKind::kHello:
      // Of other versions nothing else is known, and longer texts are taken than are sent.
      if (decode(frame.body, hello) && hello.version == kProtocolVersion && isClientId(hello.client) &&
          hello.token.size() <= kMostTokenBytes) {
        encode(hello, bytes);
      }
      break;
    case FrameKind::kWelcome:
      if (decode(frame.body, welcome)) encode(welcome, bytes);
      break;
    case FrameKind::kRefusal:
      if (decode(frame.body, refusal) && refusal.reason.size() <= 1000) encode(refusal, bytes);
      break;
    case FrameKind::kBatch:
      if (decode(frame.body, records) && !records.events.empty() && frame.body.starts_with(std::string(8, '\0')) &&
          records.events.front().number == 0) {
        encodeBatch(records.events, records.end, bytes);
      }
      break;
    case FrameKind::kTaken:
      if (decodeTaken(frame.body, next)) encodeTaken(next, bytes);
      break;
    case FrameKind::kAlive:
      encodeAlive(bytes);
      break;
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t step = 1 + data[0] % 64;
  std::string bytes(data + 1, data + size);
  if (data[0] >= 128) seal(bytes);
  FrameReader reader(kMostBatch);
  std::string_view left = bytes;
  while (true) {
    Frame frame;
    const FrameReader::Result result = reader.next(frame);
    if (result == FrameReader::Result::kBad) break;
    if (result == FrameReader::Result::kMore) {
      if (left.empty()) break;
      const std::span<char> room = reader.room();
      require(!room.empty() && room.size() <= 1 << 20);
      const std::size_t count = std::min({step, left.size(), room.size()});
      std::copy_n(left.begin(), count, room.begin());
      reader.put(count);
      left.remove_prefix(count);
      continue;
    }
    require(frame.body.size() <= kMostBatch);
    const std::string written = again(frame);
    require(written.empty() || written.substr(kFrameHeaderBytes) == frame.body);
  }
  return 0;
}
