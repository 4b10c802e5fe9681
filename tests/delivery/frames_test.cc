#include "delivery/protocol/frames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "delivery/cache/crc32c.h"

namespace quillon::delivery {
namespace {

/// Every frame there is, one behind the other.
std::string allFrames() {
  std::string bytes;
  encode(Hello{.patience = std::chrono::milliseconds(1500), .client = "web1-ab", .token = "secret"}, bytes);
  encode(Welcome{.patience = std::chrono::seconds(2), .next = UINT64_MAX - 1, .mostBatch = 1 << 20}, bytes);
  encode(Refusal{.code = RefusalCode::kNotAllowed, .reason = "no"}, bytes);
  const Event events[] = {{7, 1, "seven"}, {9, 2, ""}, {UINT32_MAX + std::uint64_t{7}, 3, "far"}};
  encodeBatch(events, UINT64_MAX, bytes);
  encodeTaken(10, bytes);
  encodeAlive(bytes);
  return bytes;
}

/// One line a frame; ends with what made it end.
std::string read(std::string_view bytes, std::size_t step, std::size_t mostBatch = 1000) {
  FrameReader reader(mostBatch);
  std::string said;
  while (true) {
    Frame frame;
    const FrameReader::Result result = reader.next(frame);
    if (result == FrameReader::Result::kBad) return said + reader.error();
    if (result == FrameReader::Result::kMore) {
      if (bytes.empty()) return said + (reader.isWithin() ? "unfinished" : "end");
      const std::span<char> room = reader.room();
      const std::size_t count = std::min({step, bytes.size(), room.size()});
      std::copy_n(bytes.begin(), count, room.begin());
      reader.put(count);
      bytes.remove_prefix(count);
      continue;
    }
    Hello hello;
    Welcome welcome;
    Refusal refusal;
    NumberedRecords records;
    std::uint64_t next = 0;
    switch (frame.kind) {
      case FrameKind::kHello:
        if (!decode(frame.body, hello)) return said + "malformed";
        said += "hello " + std::to_string(hello.version) + " " + std::to_string(hello.patience.count());
        ((said += " ").append(hello.client) += " ").append(hello.token);
        break;
      case FrameKind::kWelcome:
        if (!decode(frame.body, welcome)) return said + "malformed";
        said += "welcome " + std::to_string(welcome.patience.count()) + " " + std::to_string(welcome.next) + " " +
                std::to_string(welcome.mostBatch);
        break;
      case FrameKind::kRefusal:
        if (!decode(frame.body, refusal)) return said + "malformed";
        (said += "refusal " + std::to_string(static_cast<int>(refusal.code)) + " ").append(refusal.reason);
        break;
      case FrameKind::kBatch:
        if (!decode(frame.body, records)) return said + "malformed";
        said += "batch";
        for (const Event& event : records.events) {
          (said += " " + std::to_string(event.number) + ":" + std::to_string(event.kind) + ":").append(event.bytes);
        }
        said += " -" + std::to_string(records.end);
        break;
      case FrameKind::kTaken:
        if (!decodeTaken(frame.body, next)) return said + "malformed";
        said += "taken " + std::to_string(next);
        break;
      case FrameKind::kAlive:
        said += "alive";
        break;
    }
    said += '\n';
  }
}

constexpr const char* kAll =
    "hello 1 1500 web1-ab secret\nwelcome 2000 18446744073709551614 1048576\nrefusal 3 no\n"
    "batch 7:1:seven 9:2: 4294967302:3:far -18446744073709551615\ntaken 10\nalive\n";

TEST(Frames, ReadInPiecesOfAnySize) {
  const std::string bytes = allFrames();
  for (const std::size_t step : {1UL, 2UL, 11UL, 12UL, 13UL, 50UL, 100000UL}) {
    EXPECT_EQ(kAll + std::string("end"), read(bytes, step)) << step;
  }
  // One that is larger than the reader's room, and others behind it.
  const std::string large(300'000, 'x');
  const Event event{1, 1, large};
  std::string two;
  encodeBatch({&event, 1}, 2, two);
  two += bytes;
  EXPECT_EQ("batch 1:1:" + large + " -2\n" + kAll + "end", read(two, 70'000, 400'000));
}

// Whatever byte is damaged, nothing is read that was not sent.
TEST(Frames, NoDamageGoesUnseen) {
  const std::string bytes = allFrames();
  const std::string whole = kAll;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (const char flip : {'\x01', '\x80', '\xff'}) {
      std::string damaged = bytes;
      damaged[at] = static_cast<char>(damaged[at] ^ flip);
      const std::string said = read(damaged, 40);
      const std::string frames = said.substr(0, said.rfind('\n') + 1);
      EXPECT_TRUE(whole.starts_with(frames) && frames.size() < whole.size()) << at << ": " << said;
    }
  }
}

/// With a header that fits.
std::string frame(char kind, std::string body, std::uint32_t size) {
  std::string bytes = std::string("Q") + kind + std::string(2, '\0');
  const auto put = [&bytes](std::uint32_t number) {
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xff);
  };
  put(size);
  put(crc32c(body, crc32c(bytes)));
  return bytes + body;
}

TEST(Frames, WhatIsTooLargeOrMalformedIsRefusedAtOnce) {
  const auto of = [](char kind, std::string body) {
    const auto size = static_cast<std::uint32_t>(body.size());
    return frame(kind, std::move(body), size);
  };
  const std::string zeros(64, '\0');
  struct Case {
    std::string bytes;
    const char* expected;
  };
  const Case cases[] = {
      {"GET / HTTP/1.1\r\n\r\n", "what came is no frame"},
      {frame(1, "", 4097), "a frame of kind 1 came with 4097 bytes; at most 4096 are taken"},
      {frame(4, "", 1001), "a frame of kind 4 came with 1001 bytes; at most 1000 are taken"},
      {frame(4, "", 0xffffffff), "a frame of kind 4 came with 4294967295 bytes; at most 1000 are taken"},
      {frame(6, "", 1), "a frame of kind 6 came with 1 bytes; at most 0 are taken"},
      {frame(7, "", 0), "a frame of no known kind came"},
      {frame(0, "", 0), "a frame of no known kind came"},
      {of(5, "1234567"), "malformed"},                                           // too short
      {of(3, std::string("\1\0\1\0\0\0xy", 8)), "malformed"},                    // something follows
      {of(1, std::string("\1\0\0\0\0\0\xff\xff\xff\xff", 10)), "malformed"},     // a text beyond the end
      {of(1, std::string("\2\0whatever comes later", 22)), "hello 2 0  \nend"},  // to be refused by its version
      {of(4, zeros.substr(0, 16) + "\xff\xff\xff\xff"), "malformed"},            // fewer records than it says
      {of(4, zeros.substr(0, 16) + "\1" + zeros.substr(0, 15)), "malformed"},    // a record at its end
      {of(4, zeros.substr(0, 8) + "\2" + zeros.substr(0, 7) + "\2" + zeros.substr(0, 27)), "malformed"},  // one twice
      {of(4, zeros.substr(0, 20)), "batch -0\nend"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, read(c.bytes, 100));
}

}  // namespace
}  // namespace quillon::delivery
