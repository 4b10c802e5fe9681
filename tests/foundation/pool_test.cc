#include "foundation/pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <vector>

namespace {

using quillon::Pool;

TEST(Pool, BlocksAreApartAndAligned) {
  std::map<std::uintptr_t, std::size_t> taken;
  std::vector<std::pair<void*, std::size_t>> blocks;
  for (int round = 0; round < 200; ++round) {
    for (std::size_t size : {0, 1, 8, 9, 24, 40, 48, 176, 248, 256, 257, 5000}) {
      void* const block = Pool::allocate(size);
      std::memset(block, round, size);
      const auto address = reinterpret_cast<std::uintptr_t>(block);
      EXPECT_EQ(0u, address % (size % 16 == 0 ? 16 : 8)) << size;
      EXPECT_TRUE(taken.emplace(address, size).second);
      if (round % 3 == 1) {
        taken.erase(address);
        Pool::deallocate(block, size);
      } else {
        blocks.emplace_back(block, size);
      }
    }
  }
  std::uintptr_t end = 0;
  for (const auto& [address, size] : taken) {
    EXPECT_LE(end, address);
    end = address + size;
  }
  for (const auto& [block, size] : blocks) Pool::deallocate(block, size);
}

struct Small : quillon::Pooled {
  virtual ~Small() = default;
  int number = 7;
};
struct Derived final : Small {
  char more[40] = {};
};
struct alignas(128) Aligned final : Small {};

TEST(Pool, EveryFormOfNew) {
  const Small* made[] = {new Small, new Derived, new Aligned, new (std::nothrow) Derived};
  for (const Small* object : made) EXPECT_EQ(7, object->number);
  EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(made[2]) % 128);
  for (const Small* object : made) delete object;
  alignas(Derived) char place[sizeof(Derived)];
  Small* const placed = new (place) Derived;
  EXPECT_EQ(static_cast<void*>(place), placed);
  placed->~Small();
  delete[] new Small[3];
}

}  // namespace
