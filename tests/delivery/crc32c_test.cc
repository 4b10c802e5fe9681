#include "delivery/cache/crc32c.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace quillon::delivery {
namespace {

TEST(Crc32c, KnownValues) {
  std::string upwards, downwards;
  for (char c = 0; c < 32; ++c) {
    upwards += c;
    downwards.insert(downwards.begin(), c);
  }
  struct Case {
    std::string bytes;
    std::uint32_t expected;
  };
  const Case cases[] = {
      // RFC 3720, appendix B.4
      {std::string(32, '\0'), 0x8A9136AA},
      {std::string(32, '\xFF'), 0x62A8AB43},
      {upwards, 0x46DD794E},
      {downwards, 0x113FDB5C},
      {"123456789", 0xE3069283},  // the usual check value
      {"", 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected, crc32c(c.bytes)) << c.bytes;
    EXPECT_EQ(c.expected, crc32cByTable(c.bytes)) << c.bytes;
  }
}

TEST(Crc32c, BothWaysAgreeWhereverATextIsCut) {
  std::mt19937 random(1);
  std::string text(200, '\0');
  for (char& c : text) c = static_cast<char>(random());
  const std::string_view all = text;
  for (std::size_t from = 0; from < 9; ++from) {
    for (std::size_t cut = from; cut < all.size(); ++cut) {
      const std::uint32_t whole = crc32cByTable(all.substr(from));
      EXPECT_EQ(whole, crc32c(all.substr(cut), crc32c(all.substr(from, cut - from)))) << from << ' ' << cut;
    }
  }
}

}  // namespace
}  // namespace quillon::delivery
